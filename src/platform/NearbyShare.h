#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace nuvrel {

/// Sending files straight to a phone nearby, the system's own way: AirDrop on macOS, KDE Connect on
/// Linux where it is installed and a phone is paired with it.
class NearbyShare
{
public:
    struct Device
    {
        QString id;
        QString name;
    };

    struct Availability
    {
        enum class Kind {
            Ready,        ///< files can be handed over now
            NotInstalled, ///< no such service on this system
            NoDevice,     ///< installed, but no phone is paired and reachable
        };
        Kind kind = Kind::NotInstalled;
        /// The phones it can send to; empty where the system chooses (AirDrop's own window).
        QList<Device> devices;
    };

    enum class Outcome {
        Sent,         ///< handed over; the service tells the progress in its own notices
        PickerOpened, ///< the system's window to choose the phone opened with the files
        NotAvailable, ///< the service cannot send now
        Failed,       ///< it was asked and refused
    };

    enum class Service { AirDrop, KdeConnect };

    virtual ~NearbyShare() = default;

    /// Which it is, for the words the page uses.
    virtual Service service() const = 0;

    /// May run a program for a moment: call it off the GUI thread.
    virtual Availability availability() = 0;
    /// `device`: one of availability()'s, or empty where the system chooses. Off the GUI thread too.
    virtual Outcome send(const QStringList& files, const QString& device) = 0;
};

} // namespace nuvrel
