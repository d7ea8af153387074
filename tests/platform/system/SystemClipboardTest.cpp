#include "platform/system/SystemClipboard.h"

#include <QGuiApplication>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>
#include <QUrl>

#include <gtest/gtest.h>

using namespace nuvrel;

namespace {

// What another application reads from the clipboard in `target`'s form. We own the clipboard: our
// event loop must keep answering while xclip asks.
QByteArray pasted(const QString& target)
{
    QProcess xclip;
    xclip.start(QStringLiteral("xclip"), {QStringLiteral("-o"), QStringLiteral("-selection"),
                                          QStringLiteral("clipboard"), QStringLiteral("-t"), target});
    if (!QTest::qWaitFor([&xclip] { return xclip.state() == QProcess::NotRunning; }, 10'000))
        xclip.kill();
    return xclip.readAllStandardOutput();
}

} // namespace

TEST(SystemClipboard, FilesArePastedAsFilesByFileManagersAndBrowsers)
{
    if (QGuiApplication::platformName() != QLatin1StringView("xcb") ||
        QStandardPaths::findExecutable(QStringLiteral("xclip")).isEmpty())
        GTEST_SKIP() << "needs an X server (tools/test.sh runs this under Xvfb) and xclip";
    SystemClipboard clipboard;
    const QStringList files{QStringLiteral("/tmp/IMG_0001-leger.jpg"), QStringLiteral("/tmp/un été/scan-leger.pdf")};
    clipboard.copyFiles(files);
    const QByteArray first = QUrl::fromLocalFile(files[0]).toEncoded();
    const QByteArray second = QUrl::fromLocalFile(files[1]).toEncoded();
    EXPECT_EQ(second, QByteArray("file:///tmp/un%20%C3%A9t%C3%A9/scan-leger.pdf"));

    EXPECT_EQ(pasted(QStringLiteral("text/uri-list")), first + "\r\n" + second + "\r\n");
    // Nautilus: "copy", then the addresses, no line break at the end.
    EXPECT_EQ(pasted(QStringLiteral("x-special/gnome-copied-files")), "copy\n" + first + '\n' + second);
    // Dolphin: copied, not cut (a paste must never move the files).
    EXPECT_EQ(pasted(QStringLiteral("application/x-kde-cutselection")), QByteArray("0"));
}
