// The desktop portal's colour scheme, read and watched over a real D-Bus session: tools/test.sh runs this
// in a private session; without one the test is skipped. A portal of our own, on that bus, answers.

#include "platform/system/SystemAppearance.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

using namespace nuvrel;

namespace {

// What GNOME's and KDE's portals answer: the value wrapped in a variant, itself in a variant.
class FakePortal final : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Settings")

public:
    unsigned value = 1;

public Q_SLOTS:
    QDBusVariant Read(const QString& group, const QString& key)
    {
        if (group != QLatin1StringView("org.freedesktop.appearance") || key != QLatin1StringView("color-scheme"))
            return QDBusVariant(QVariant());
        return QDBusVariant(QVariant::fromValue(QDBusVariant(value)));
    }
};

} // namespace

TEST(SystemAppearance, FollowsThePortalsColourScheme)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS") || !bus.isConnected())
        GTEST_SKIP() << "needs a D-Bus session: tools/test.sh starts one";
    FakePortal portal;
    ASSERT_TRUE(bus.registerObject(QStringLiteral("/org/freedesktop/portal/desktop"), &portal,
                                   QDBusConnection::ExportAllSlots));
    if (!bus.registerService(QStringLiteral("org.freedesktop.portal.Desktop")))
        GTEST_SKIP() << "a real portal runs on this session";

    SystemAppearance appearance;
    EXPECT_EQ(appearance.scheme(), Appearance::Scheme::Dark);
    int told = 0;
    appearance.watch([&told] { ++told; });

    // The desktop switches to light: the portal says so on the bus, and the watcher is told once.
    const auto announce = [&bus](const QString& key, unsigned value) {
        QDBusMessage signal = QDBusMessage::createSignal(QStringLiteral("/org/freedesktop/portal/desktop"),
                                                         QStringLiteral("org.freedesktop.portal.Settings"),
                                                         QStringLiteral("SettingChanged"));
        signal << QStringLiteral("org.freedesktop.appearance") << key << QVariant::fromValue(QDBusVariant(value));
        bus.send(signal);
    };
    announce(QStringLiteral("color-scheme"), 2);
    EXPECT_TRUE(QTest::qWaitFor([&] { return told == 1; }, 5000));
    EXPECT_EQ(appearance.scheme(), Appearance::Scheme::Light);
    // Another setting, or the same value again, changes nothing.
    announce(QStringLiteral("accent-color"), 1);
    announce(QStringLiteral("color-scheme"), 2);
    announce(QStringLiteral("color-scheme"), 0);
    EXPECT_TRUE(QTest::qWaitFor([&] { return told == 2; }, 5000));
    EXPECT_EQ(appearance.scheme(), Appearance::Scheme::NoPreference);

    bus.unregisterService(QStringLiteral("org.freedesktop.portal.Desktop"));
    bus.unregisterObject(QStringLiteral("/org/freedesktop/portal/desktop"));
}

#include "SystemAppearanceTest.moc"
