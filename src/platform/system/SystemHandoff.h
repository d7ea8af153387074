#pragma once

#include "platform/Handoff.h"

namespace nuvrel {

class Launcher;

/// Handing files over to another application.
///
/// On a Linux desktop, where no system share sheet exists:
/// - Telegram: Telegram Desktop's own `-sendpath`, which opens its chat chooser with the files; the
///   native program first, then the Flatpak (org.telegram.desktop), then the Snap. A sandboxed one
///   can only read some folders: it is given copies in the downloads folder's "Nuvrel".
/// - WhatsApp: no official application exists; an installed one is found by its menu entry and
///   started, else WhatsApp Web opens in the browser. Nothing is typed into another application.
/// - Mail: `xdg-email --attach`, only when a mail application handles mailto: links (xdg-email would
///   otherwise open a bare link, drop the attachments and still succeed).
/// - Messages: Apple's alone.
///
/// On macOS, through the `open` command: WhatsApp and Telegram started by their bundle identifiers for
/// the user to paste into, Mail and Messages given the files, which each opens in a new message.
class SystemHandoff final : public Handoff
{
public:
    enum class Desktop { Linux, MacOS };
#if defined(Q_OS_MACOS)
    static constexpr Desktop thisDesktop = Desktop::MacOS;
#else
    static constexpr Desktop thisDesktop = Desktop::Linux;
#endif

    /// `sandboxFolder`: where a sandboxed application is given its copies (tests); empty for the
    /// downloads folder's "Nuvrel".
    explicit SystemHandoff(Launcher& launcher, QString sandboxFolder = {}, Desktop desktop = thisDesktop);

    Outcome send(Channel channel, const QStringList& files) override;

private:
    Outcome sendToTelegram(const QStringList& files);
    Outcome openWhatsApp();
    Outcome composeMail(const QStringList& files);
    Outcome sendOnMac(Channel channel, const QStringList& files);
    /// Copies of `files` where a sandbox reads them; empty when one could not be made.
    QStringList copiesForSandbox(const QStringList& files) const;
    QString sandboxFolder() const;

    Launcher& m_launcher;
    QString m_sandboxFolder;
    Desktop m_desktop;
};

} // namespace nuvrel
