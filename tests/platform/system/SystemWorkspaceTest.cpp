// Revealing a file on Linux: the org.freedesktop.FileManager1 call that Nautilus, Dolphin, Nemo and
// Thunar answer, checked against a file manager played by this test on a D-Bus daemon of its own.

#include "platform/system/SystemWorkspace.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QUrl>

#include <gtest/gtest.h>

using namespace nuvrel;

namespace {

// Answers ShowItems as a file manager would, remembering what it was asked.
class FakeFileManager final : public QDBusVirtualObject
{
public:
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        if (message.interface() != u"org.freedesktop.FileManager1")
            return false;
        calls.append(message.member());
        arguments = message.arguments();
        connection.send(message.createReply());
        return true;
    }
    QString introspect(const QString&) const override
    {
        return QStringLiteral(R"(<interface name="org.freedesktop.FileManager1">
  <method name="ShowItems"><arg type="as" name="uris" direction="in"/>
    <arg type="s" name="startupId" direction="in"/></method>
</interface>)");
    }

    QStringList calls;
    QVariantList arguments;
};

// A session bus for this process alone: the developer's desktop never sees the test's calls.
class PrivateBus
{
public:
    PrivateBus()
    {
        m_daemon.start(QStringLiteral("dbus-daemon"),
                       {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--print-address=1")});
        if (!m_daemon.waitForStarted(10'000) || !m_daemon.waitForReadyRead(10'000))
            return;
        m_address = QString::fromUtf8(m_daemon.readLine()).trimmed();
    }
    ~PrivateBus()
    {
        m_daemon.kill();
        m_daemon.waitForFinished(10'000);
    }
    QString address() const { return m_address; }

private:
    QProcess m_daemon;
    QString m_address;
};

} // namespace

#ifndef Q_OS_MACOS
TEST(SystemWorkspace, RevealAsksTheFileManagerToShowTheItem)
{
    PrivateBus bus;
    if (bus.address().isEmpty())
        GTEST_SKIP() << "dbus-daemon is not installed";
    // The session bus is chosen at its first use in the process: before it, point it at ours.
    qputenv("DBUS_SESSION_BUS_ADDRESS", bus.address().toUtf8());
    QDBusConnection session = QDBusConnection::sessionBus();
    ASSERT_TRUE(session.isConnected());

    FakeFileManager fileManager;
    ASSERT_TRUE(session.registerVirtualObject(QStringLiteral("/org/freedesktop/FileManager1"), &fileManager));
    ASSERT_TRUE(session.registerService(QStringLiteral("org.freedesktop.FileManager1")));

    QTemporaryDir dir;
    const QString file = QDir(dir.path()).filePath(QStringLiteral("Famille été #1.pdf"));
    QFile(file).open(QIODevice::WriteOnly);

    SystemWorkspace workspace;
    EXPECT_TRUE(workspace.reveal(file));
    ASSERT_EQ(fileManager.calls, QStringList{QStringLiteral("ShowItems")});
    ASSERT_EQ(fileManager.arguments.size(), 2);
    // A file URI, percent-encoded so that spaces, accents and '#' survive the file manager's parsing.
    const QStringList uris = fileManager.arguments.at(0).toStringList();
    ASSERT_EQ(uris.size(), 1);
    EXPECT_TRUE(uris.at(0).startsWith(u"file:///")) << uris.at(0).toStdString();
    EXPECT_FALSE(uris.at(0).contains(u' '));
    EXPECT_EQ(QUrl(uris.at(0)).toLocalFile(), file);
    EXPECT_FALSE(fileManager.arguments.at(1).toString().isEmpty());

    // Nothing to show: no call at all.
    EXPECT_FALSE(workspace.reveal(QDir(dir.path()).filePath(QStringLiteral("absent.pdf"))));
    EXPECT_FALSE(workspace.open(QDir(dir.path()).filePath(QStringLiteral("absent.pdf"))));
    EXPECT_EQ(fileManager.calls.size(), 1);

    session.unregisterService(QStringLiteral("org.freedesktop.FileManager1"));
    session.unregisterObject(QStringLiteral("/org/freedesktop/FileManager1"));
}
#endif
