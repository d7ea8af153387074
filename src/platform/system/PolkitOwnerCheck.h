#pragma once

#include "platform/OwnerCheck.h"

namespace nuvrel {

/// The owner check through polkit: asks the authority on the system bus whether this process may
/// perform our action, which the shipped policy grants to the account's owner once they have typed
/// their own password (auth_self, kept for a few minutes). The desktop's polkit agent shows the
/// dialog; in a terminal, pkttyagent can ask instead (setTerminalAgent).
class PolkitOwnerCheck final : public OwnerCheck
{
public:
    /// The action of the shipped policy file (data/polkit).
    static constexpr char vaultAction[] = "app.nuvrel.vault-unlock";

    explicit PolkitOwnerCheck(QString action = QString::fromLatin1(vaultAction));

    /// For a program without a window: when no desktop agent answers, runs pkttyagent for this
    /// process and asks again, so that the password is asked on the terminal.
    void setTerminalAgent(bool enabled) { m_terminalAgent = enabled; }

    Outcome confirmOwner(const QString& reason) override;

private:
    QString m_action;
    bool m_terminalAgent = false;
};

} // namespace nuvrel
