#pragma once

#include <QString>
#include <QStringList>

namespace nuvrel {

/// Hands files to the application of a messaging or mail channel, the way each system allows: a
/// chat chooser or a mail composer opened with the files where the application offers one, else the
/// application (or its web version) opened for the user to paste into. Copying the files to the
/// clipboard and telling the user are the caller's.
class Handoff
{
public:
    enum class Channel { WhatsApp, Telegram, Mail, Messages };

    struct Outcome
    {
        enum class Kind {
            ShareWindow,         ///< the application's own window to send the files opened with them
            SharedThroughFolder, ///< the same, for a sandboxed application given copies in `folder`
            AppOpened,           ///< the application was started; the user pastes or drags the files
            WebOpened,           ///< its web version opened in the browser; the user pastes or drags
            NotAvailable,        ///< no application for this channel on this system
            Failed,              ///< the application was found but did not start
        };
        Kind kind = Kind::NotAvailable;
        QString folder; ///< for SharedThroughFolder
    };

    virtual ~Handoff() = default;

    virtual Outcome send(Channel channel, const QStringList& files) = 0;
};

} // namespace nuvrel
