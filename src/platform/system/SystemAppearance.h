#pragma once

#include "platform/Appearance.h"

#include <QObject>

class QDBusMessage;

namespace nuvrel {

/// The desktop's colour scheme. On Linux, from the desktop portal's "org.freedesktop.appearance
/// color-scheme" setting over D-Bus (GNOME, KDE and the others that implement it; Qt 6.4 reads none
/// of it), watched for changes; without a portal, no preference. On macOS, the system's appearance as
/// Qt's palette reports it.
class SystemAppearance final : public QObject, public Appearance
{
    Q_OBJECT

public:
    SystemAppearance();

    Scheme scheme() const override { return m_scheme; }
    void watch(std::function<void()> changed) override { m_changed = std::move(changed); }

    /// The portal's value of the setting: 1 prefers dark, 2 prefers light, anything else none.
    static Scheme fromPortalValue(unsigned value);

private Q_SLOTS:
    void settingChanged(const QDBusMessage& message);

private:
    void setScheme(Scheme scheme);

    Scheme m_scheme = Scheme::NoPreference;
    std::function<void()> m_changed;
};

} // namespace nuvrel
