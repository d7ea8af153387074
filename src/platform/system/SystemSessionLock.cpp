#include "platform/system/SystemSessionLock.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>

#include <unistd.h>

namespace nuvrel {

namespace {

const QString logindService = QStringLiteral("org.freedesktop.login1");
const QString activeChanged = QStringLiteral("ActiveChanged");

/// This process's logind session, or an empty path when there is none (no logind, a service).
QString sessionPath(QDBusConnection& bus)
{
    QDBusMessage call = QDBusMessage::createMethodCall(logindService, QStringLiteral("/org/freedesktop/login1"),
                                                       QStringLiteral("org.freedesktop.login1.Manager"),
                                                       QStringLiteral("GetSessionByPID"));
    call << quint32(::getpid());
    // Short: a machine without logind must not hold the window back.
    const QDBusMessage reply = bus.call(call, QDBus::Block, 500);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return {};
    return reply.arguments().constFirst().value<QDBusObjectPath>().path();
}

} // namespace

SystemSessionLock::SystemSessionLock()
{
    QDBusConnection system = QDBusConnection::systemBus();
    if (system.isConnected()) {
        const QString session = sessionPath(system);
        if (!session.isEmpty())
            system.connect(logindService, session, QStringLiteral("org.freedesktop.login1.Session"),
                           QStringLiteral("Lock"), this, SLOT(sessionLocked()));
    }
    QDBusConnection user = QDBusConnection::sessionBus();
    if (user.isConnected()) {
        // Any sender: the locker of the day owns the name, and the signal comes from its unique name.
        user.connect(QString(), QStringLiteral("/org/freedesktop/ScreenSaver"),
                     QStringLiteral("org.freedesktop.ScreenSaver"), activeChanged, this, SLOT(screenSaverActive(bool)));
        user.connect(QString(), QStringLiteral("/org/gnome/ScreenSaver"), QStringLiteral("org.gnome.ScreenSaver"),
                     activeChanged, this, SLOT(screenSaverActive(bool)));
    }
}

SystemSessionLock::~SystemSessionLock() = default;

void SystemSessionLock::sessionLocked()
{
    if (m_locked)
        m_locked();
}

void SystemSessionLock::screenSaverActive(bool active)
{
    if (active)
        sessionLocked();
}

} // namespace nuvrel
