#pragma once

#include "platform/SessionLock.h"

#include <QObject>

class QDBusMessage;

namespace nuvrel {

/// The session's lock as the desktop announces it: logind's Lock signal for this process's session
/// (loginctl lock-session, most lockers), and the screen saver's ActiveChanged on the session bus
/// (GNOME, KDE, and the freedesktop name others answer to). On macOS, the system's screen-locked
/// notification.
class SystemSessionLock final : public QObject, public SessionLock
{
    Q_OBJECT

public:
    SystemSessionLock();
    ~SystemSessionLock() override;

    void watch(std::function<void()> locked) override { m_locked = std::move(locked); }

private Q_SLOTS:
    void sessionLocked();
    void screenSaverActive(bool active);

private:
    std::function<void()> m_locked;
    void* m_observer = nullptr; ///< macOS only
};

} // namespace nuvrel
