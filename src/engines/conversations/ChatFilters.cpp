#include "engines/conversations/ChatFilters.h"

#include "engines/conversations/ConversationError.h"
#include "l10n/L.h"

#include <QSet>

namespace nuvrel {

ChatPeriod ChatPeriod::lastDays(int days, const QDateTime& now)
{
    ChatPeriod period;
    period.m_from = now.addSecs(-qint64(days) * 24 * 3600);
    return period;
}

ChatPeriod ChatPeriod::localDays(const QDate& first, const QDate& last)
{
    ChatPeriod period;
    if (first.isValid())
        period.m_from = first.startOfDay(Qt::LocalTime);
    if (last.isValid())
        period.m_until = last.addDays(1).startOfDay(Qt::LocalTime);
    return period;
}

bool ChatPeriod::contains(const QDateTime& date) const
{
    if (isEverything())
        return true;
    if (!date.isValid())
        return false;
    return (!m_from.isValid() || date >= m_from) && (!m_until.isValid() || date < m_until);
}

ChatTranscript ChatPeriod::apply(ChatTranscript transcript) const
{
    if (!isEverything()) {
        transcript.messages.removeIf([this](const ChatMessage& message) { return !contains(message.date); });
        transcript.undatedLines = 0; // what is left has a date
    }
    if (transcript.messages.isEmpty())
        throw ConversationError::empty();
    return transcript;
}

QStringList sendersOf(const ChatTranscript& transcript)
{
    const QString owner = ownerName();
    const QString system = L("Système");
    QStringList senders;
    QSet<QString> seen{owner, system};
    for (const ChatMessage& message : transcript.messages) {
        if (!seen.contains(message.sender)) {
            seen.insert(message.sender);
            senders.append(message.sender);
        }
    }
    return senders;
}

ChatTranscript withOwner(ChatTranscript transcript, const QString& sender)
{
    if (sender.isEmpty())
        return transcript;
    const QString owner = ownerName();
    for (ChatMessage& message : transcript.messages) {
        if (message.sender == sender)
            message.sender = owner;
    }
    return transcript;
}

} // namespace nuvrel
