#pragma once

#include "platform/PhoneCamera.h"

#include <QTimer>

#include <memory>

namespace nuvrel {

/// Hands an arrival or a removal that usbmuxd announced to the watcher, on its thread.
void deliverDeviceEvent(const QString& udid, bool removed);

/// The phone on a cable through usbmuxd and libimobiledevice: arrivals and removals from usbmuxd's
/// events, the phone's state from the lockdown handshake, its camera roll through the AFC service
/// under /DCIM. libimobiledevice has one event subscription per process: make one watcher.
class ImobilePhoneWatcher final : public PhoneWatcher
{
    Q_OBJECT
public:
    explicit ImobilePhoneWatcher(QObject* parent = nullptr);
    ~ImobilePhoneWatcher() override;
    Q_DISABLE_COPY_MOVE(ImobilePhoneWatcher)

    State state() const override { return m_state; }
    QString deviceName() const override { return m_name; }
    void start() override;
    void stop() override;
    void refresh() override;
    std::shared_ptr<CameraSource> camera() override;
    QString nameOfMountedPhone(const QString& folder) override;

    /// How the handshake with a phone ended, as libimobiledevice's lockdown tells it.
    static State stateOfHandshake(int lockdownError);

private:
    friend void deliverDeviceEvent(const QString& udid, bool removed);
    struct Shared;
    void deviceAdded(const QString& udid);
    void deviceRemoved(const QString& udid);
    void handshake();
    void setState(State state, const QString& name);

    std::shared_ptr<Shared> m_shared; ///< what the library's threads may still reach after we are gone
    State m_state = State::NoDevice;
    QString m_name;
    QString m_udid;
    bool m_subscribed = false;
    int m_attempt = 0;
    QTimer m_retry;
};

} // namespace nuvrel
