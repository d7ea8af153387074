#pragma once

#include "engines/conversations/ChatRecords.h"

#include <QByteArrayView>
#include <QDateTime>

#include <optional>

struct sqlite3;

namespace nuvrel {

/// Reads SMS and iMessage conversations from a Messages database (a phone's sms.db or the Mac's
/// chat.db), always through a private copy. Three schema generations: the modern one (chat, handle,
/// message with attributedBody), the old group one (msg_group) and the address-only message table.
/// Errors are ConversationError.
class MessagesReader final
{
public:
    /// Keys of the old schemas carry an offset telling which statement reads them back.
    static constexpr qint64 groupKeyOffset = 1'000'000'000;
    static constexpr qint64 addressKeyOffset = 2'000'000'000;
    static constexpr qint64 handleKeyOffset = 3'000'000'000;

    MessagesReader() = delete;

    /// The Mac's own database: ~/Library/Messages/chat.db.
    static QString defaultDatabase();

    /// The conversations, newest first; an empty file argument means the Mac's own database.
    static QList<MessagesChatInfo> listChats(const QString& file = {});
    /// The number of rows of the message table.
    static qint64 messageCount(const QString& file = {});
    /// One conversation, oldest message first; `title` names it and stands for senders without handle.
    static ChatTranscript messages(qint64 chatID, const QString& title, const QString& file = {});

    /// The same three, on a database already open (a copy kept for a batch); SqlError escapes.
    static QList<MessagesChatInfo> listChats(sqlite3* db);
    static qint64 messageCount(sqlite3* db);
    static ChatTranscript messages(sqlite3* db, qint64 chatID, const QString& title);

    /// A stored date: nanoseconds or seconds since 2001, or, in the oldest databases, Unix seconds.
    static QDateTime appleDate(qint64 value);
    static QDateTime appleDate(qint64 value, const QDateTime& now);

    /// The plain text of an attributedBody blob (a typedstream NSAttributedString); nothing when absent.
    static std::optional<QString> decodeAttributedBody(QByteArrayView data);

    static QList<MessagesChatInfo> legacyChats(sqlite3* db);
    static ChatTranscript legacyMessages(sqlite3* db, qint64 chatID, const QString& title);
};

} // namespace nuvrel
