#pragma once

#include "platform/Handoff.h"

namespace nuvrel {

class Launcher;

/// Handing files over on a Linux desktop, where no system share sheet exists:
/// - Telegram: Telegram Desktop's own `-sendpath`, which opens its chat chooser with the files; the
///   native program first, then the Flatpak (org.telegram.desktop), then the Snap. A sandboxed one
///   can only read some folders: it is given copies in the downloads folder's "Nuvrel".
/// - WhatsApp: no official application exists; an installed one is found by its menu entry and
///   started, else WhatsApp Web opens in the browser. Nothing is typed into another application.
/// - Mail: `xdg-email --attach`, only when a mail application handles mailto: links (xdg-email would
///   otherwise open a bare link, drop the attachments and still succeed).
/// - Messages: Apple's alone.
class SystemHandoff final : public Handoff
{
public:
    /// `sandboxFolder`: where a sandboxed application is given its copies (tests); empty for the
    /// downloads folder's "Nuvrel".
    explicit SystemHandoff(Launcher& launcher, QString sandboxFolder = {});

    Outcome send(Channel channel, const QStringList& files) override;

private:
    Outcome sendToTelegram(const QStringList& files);
    Outcome openWhatsApp();
    Outcome composeMail(const QStringList& files);
    /// Copies of `files` where a sandbox reads them; empty when one could not be made.
    QStringList copiesForSandbox(const QStringList& files) const;
    QString sandboxFolder() const;

    Launcher& m_launcher;
    QString m_sandboxFolder;
};

} // namespace nuvrel
