#pragma once

#include <QDateTime>
#include <QList>
#include <QString>

#include <array>
#include <optional>

namespace nuvrel {

/// One line of a conversation list, before any message is read.
struct MessagesChatInfo
{
    qint64 id = 0; ///< the conversation's key in its database (old Messages schemas add an offset)
    QString title;
    qint64 count = 0;
    QDateTime last; ///< the newest message

    friend bool operator==(const MessagesChatInfo&, const MessagesChatInfo&) = default;
};

/// One message, ready to be rendered. It is outgoing exactly when `sender` is the owner word ownerName().
struct ChatMessage
{
    QDateTime date; ///< invalid when unknown: text kept from a line whose date could not be read
    QString sender;
    QString text;          ///< cleaned; attachment notes included
    QList<QString> images; ///< pictures drawn with the message (export importers only)

    friend bool operator==(const ChatMessage&, const ChatMessage&) = default;
};

/// A whole conversation, oldest message first.
struct ChatTranscript
{
    QString title;
    QList<ChatMessage> messages;
    /// Lines whose date could not be read (an export's 31/02), kept as text in the message before them.
    qsizetype undatedLines = 0;

    friend bool operator==(const ChatTranscript&, const ChatTranscript&) = default;
};

/// The localised owner word ("Moi") that marks the user's own messages.
QString ownerName();

/// The kind of source the user picks conversations from.
enum class ConvSource { WhatsApp, Telegram, Messages };

inline constexpr std::array allConvSources{ConvSource::WhatsApp, ConvSource::Telegram, ConvSource::Messages};

QString rawValue(ConvSource source);
std::optional<ConvSource> convSourceFromRawValue(QStringView raw);
/// The name shown in the source picker.
QString title(ConvSource source);

/// Whitespace and line ends removed from both ends, as every reader cleans a text.
QString trimmedText(QStringView text);

} // namespace nuvrel
