#pragma once

#include "engines/conversations/ChatRecords.h"

struct sqlite3;

namespace nuvrel {

/// Reads conversations from WhatsApp's ChatStorage.sqlite (from a phone backup or the Mac), always
/// through a private copy. Errors are ConversationError.
class WhatsAppReader final
{
public:
    WhatsAppReader() = delete;

    /// The Mac's own store, in WhatsApp's group container.
    static QString defaultDatabase();

    /// The conversations that have messages, newest first; removed sessions and type 3 are left out.
    static QList<MessagesChatInfo> listChats(const QString& file = {});
    /// One conversation, oldest first; `title` names it and stands for senders without a push name.
    static ChatTranscript messages(qint64 chatID, const QString& title, const QString& file = {});

    /// The same, on a database already open (a copy kept for a batch); SqlError escapes.
    static QList<MessagesChatInfo> listChats(sqlite3* db);
    static ChatTranscript messages(sqlite3* db, qint64 chatID, const QString& title);

    /// The note a media message carries ("[photo]", "[document : name]"…), empty for plain text.
    static QString label(qint64 messageType, const QString& text, const QString& mediaTitle);
};

} // namespace nuvrel
