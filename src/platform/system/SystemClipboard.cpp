#include "platform/system/SystemClipboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <QUrl>

namespace nuvrel {

void SystemClipboard::copyText(const QString& text)
{
    QGuiApplication::clipboard()->setText(text);
}

void SystemClipboard::copyFiles(const QStringList& paths)
{
    auto* data = new QMimeData;
    QList<QUrl> urls;
    QByteArray gnome = "copy";
    for (const QString& path : paths) {
        const QUrl url = QUrl::fromLocalFile(path);
        urls.append(url);
        gnome += '\n' + url.toEncoded();
    }
    data->setUrls(urls);
    // GNOME's and KDE's file managers paste files from this form; the URL list alone they paste as text.
    data->setData(QStringLiteral("x-special/gnome-copied-files"), gnome);
    data->setData(QStringLiteral("application/x-kde-cutselection"), QByteArrayLiteral("0")); // copied, not cut
    QGuiApplication::clipboard()->setMimeData(data);
}

} // namespace nuvrel
