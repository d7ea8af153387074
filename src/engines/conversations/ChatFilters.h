#pragma once

#include "engines/conversations/ChatRecords.h"

#include <QDateTime>

namespace nuvrel {

/// The time a conversation is kept for: everything, the last days counted back from an instant, or a
/// range of local days. Messages of unknown date belong to "everything" only.
class ChatPeriod final
{
public:
    /// Every message.
    ChatPeriod() = default;
    /// The `days` × 24 hours before `now`, up to now and after.
    static ChatPeriod lastDays(int days, const QDateTime& now);
    /// From the start of local day `first` to the end of local day `last`, both included; an invalid
    /// date leaves that side open.
    static ChatPeriod localDays(const QDate& first, const QDate& last);

    bool isEverything() const { return !m_from.isValid() && !m_until.isValid(); }
    bool contains(const QDateTime& date) const;

    /// The messages of `transcript` inside the period. Throws ConversationError::empty() when none is.
    ChatTranscript apply(ChatTranscript transcript) const;

private:
    QDateTime m_from;  ///< included; invalid: open
    QDateTime m_until; ///< excluded; invalid: open
};

/// Who wrote in `transcript`, in order of first appearance: neither the owner nor the system's lines.
QStringList sendersOf(const ChatTranscript& transcript);

/// The messages of `sender` become the owner's: `sender` is replaced by the owner word. The owner's
/// earlier messages, if any, stay the owner's.
ChatTranscript withOwner(ChatTranscript transcript, const QString& sender);

} // namespace nuvrel
