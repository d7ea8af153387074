#pragma once

#include <QString>

namespace nuvrel {

/// The system's check that the person at the keyboard owns this account: the account's password (or a
/// fingerprint where the system offers one), asked in the system's own dialog. polkit on Linux,
/// LocalAuthentication's device-owner policy on macOS.
class OwnerCheck
{
public:
    enum class Outcome {
        Confirmed,
        Refused,     ///< a wrong password, or the dialog dismissed
        Unavailable, ///< nothing here can ask: no polkit, no agent to show the dialog, our action not installed
    };

    virtual ~OwnerCheck() = default;

    /// Asks, with `reason` shown where the system shows one. Blocks until the person answers, which
    /// may take minutes: call it off the GUI thread.
    virtual Outcome confirmOwner(const QString& reason) = 0;
};

} // namespace nuvrel
