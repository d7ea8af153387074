#include "platform/system/SystemWorkspace.h"

#include <QDesktopServices>
#include <QFileInfo>
#include <QUrl>

#ifdef Q_OS_MACOS
#include <QProcess>
#else
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QUuid>
#endif

namespace nuvrel {

bool SystemWorkspace::open(const QString& path)
{
    return QFileInfo::exists(path) && QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

bool SystemWorkspace::openUrl(const QUrl& url)
{
    return url.isValid() && QDesktopServices::openUrl(url);
}

bool SystemWorkspace::reveal(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists())
        return false;
#ifdef Q_OS_MACOS
    return QProcess::startDetached(QStringLiteral("/usr/bin/open"), {QStringLiteral("-R"), info.absoluteFilePath()});
#else
    // Nautilus, Dolphin, Nemo and Thunar answer this call and select the item; a desktop without one
    // still gets the folder opened.
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected()) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
            QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
        // Fully encoded: file managers parse a strict URI, where a raw space or accent is an error.
        call << QStringList{QUrl::fromLocalFile(info.absoluteFilePath()).toString(QUrl::FullyEncoded)}
             << QUuid::createUuid().toString(QUuid::WithoutBraces);
        const QDBusMessage reply = bus.call(call, QDBus::Block, 3000);
        if (reply.type() == QDBusMessage::ReplyMessage)
            return true;
    }
    const QString folder = info.isDir() ? info.absoluteFilePath() : info.absolutePath();
    return QDesktopServices::openUrl(QUrl::fromLocalFile(folder));
#endif
}

} // namespace nuvrel
