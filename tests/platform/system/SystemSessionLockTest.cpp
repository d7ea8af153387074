// The session's lock as the screen savers announce it, over a real D-Bus session: tools/test.sh runs
// this in a private session; without one the test is skipped.

#include "platform/system/SystemSessionLock.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QTest>

#include <gtest/gtest.h>

using namespace nuvrel;

TEST(SystemSessionLock, LocksWhenAScreenSaverComesOnOnly)
{
    if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS") || !QDBusConnection::sessionBus().isConnected())
        GTEST_SKIP() << "needs a D-Bus session: tools/test.sh starts one";
    // The screen saver is another program: its signals come from a connection of its own.
    QDBusConnection saver =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("nuvrel-test-screensaver"));
    ASSERT_TRUE(saver.isConnected());

    SystemSessionLock lock;
    int locked = 0;
    lock.watch([&locked] { ++locked; });
    const auto announce = [&saver](const QString& path, const QString& interface, const QString& member, bool active) {
        QDBusMessage signal = QDBusMessage::createSignal(path, interface, member);
        signal << active;
        saver.send(signal);
    };
    const QString freedesktop = QStringLiteral("/org/freedesktop/ScreenSaver");
    const QString freedesktopInterface = QStringLiteral("org.freedesktop.ScreenSaver");
    const QString gnome = QStringLiteral("/org/gnome/ScreenSaver");
    const QString gnomeInterface = QStringLiteral("org.gnome.ScreenSaver");

    announce(freedesktop, freedesktopInterface, QStringLiteral("ActiveChanged"), true);
    EXPECT_TRUE(QTest::qWaitFor([&] { return locked == 1; }, 5000));
    // Coming back, a look-alike signal on another interface or member: nothing.
    announce(freedesktop, freedesktopInterface, QStringLiteral("ActiveChanged"), false);
    announce(freedesktop, QStringLiteral("org.example.Other"), QStringLiteral("ActiveChanged"), true);
    announce(freedesktop, freedesktopInterface, QStringLiteral("WakeUpScreen"), true);
    announce(gnome, gnomeInterface, QStringLiteral("ActiveChanged"), true);
    EXPECT_TRUE(QTest::qWaitFor([&] { return locked == 2; }, 5000));
    QTest::qWait(200);
    EXPECT_EQ(locked, 2);

    QDBusConnection::disconnectFromBus(QStringLiteral("nuvrel-test-screensaver"));
}
