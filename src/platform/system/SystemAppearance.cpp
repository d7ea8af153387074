#include "platform/system/SystemAppearance.h"

#if !defined(Q_OS_MACOS)
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVariant>
#endif

namespace nuvrel {

namespace {

#if !defined(Q_OS_MACOS)
const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString settingsInterface = QStringLiteral("org.freedesktop.portal.Settings");
const QString appearanceGroup = QStringLiteral("org.freedesktop.appearance");
const QString schemeKey = QStringLiteral("color-scheme");

// The portal wraps its answer in one or two variants, depending on its version.
unsigned unwrap(QVariant value)
{
    while (value.canConvert<QDBusVariant>() && value.userType() == qMetaTypeId<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    return value.toUInt();
}
#endif

} // namespace

Appearance::Scheme SystemAppearance::fromPortalValue(unsigned value)
{
    switch (value) {
    case 1: return Scheme::Dark;
    case 2: return Scheme::Light;
    default: return Scheme::NoPreference;
    }
}

SystemAppearance::SystemAppearance()
{
#if !defined(Q_OS_MACOS)
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    QDBusMessage read =
        QDBusMessage::createMethodCall(portalService, portalPath, settingsInterface, QStringLiteral("Read"));
    read << appearanceGroup << schemeKey;
    // A short wait: a desktop without a portal must not hold the window back.
    const QDBusMessage reply = bus.call(read, QDBus::Block, 500);
    if (reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty())
        m_scheme = fromPortalValue(unwrap(reply.arguments().constFirst()));
    bus.connect(portalService, portalPath, settingsInterface, QStringLiteral("SettingChanged"), this,
                SLOT(settingChanged(QDBusMessage)));
#endif
}

void SystemAppearance::settingChanged(const QDBusMessage& message)
{
#if !defined(Q_OS_MACOS)
    const QList<QVariant> arguments = message.arguments();
    if (arguments.size() == 3 && arguments[0].toString() == appearanceGroup && arguments[1].toString() == schemeKey)
        setScheme(fromPortalValue(unwrap(arguments[2])));
#else
    Q_UNUSED(message);
#endif
}

void SystemAppearance::setScheme(Scheme scheme)
{
    if (scheme == m_scheme)
        return;
    m_scheme = scheme;
    if (m_changed)
        m_changed();
}

} // namespace nuvrel
