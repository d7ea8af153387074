#pragma once

#include "engines/conversations/ChatRecords.h"

#include <QString>

namespace nuvrel {

/// Reads the machine-readable export of Telegram Desktop, "result.json": of one chat, or of a whole
/// account ("chats" and "left_chats", each a list). The file is read as a stream of JSON events and
/// never held whole: an account's export reaches gigabytes. Chats are numbered from 1 in the file's
/// order. Every failure is a ConversationError.
class TelegramExport final
{
public:
    TelegramExport() = delete;

    /// The chats, without their messages: title ("Telegram : " and the chat's name), message count and
    /// the date of the newest.
    static QList<MessagesChatInfo> listChats(const QString& file);
    /// Chat number `number` whole. Photos named by a message and found inside the export's folder become
    /// its images; anything else stays a label. The account owner's messages (the export's own user)
    /// are the owner word's. Empty when it holds no message.
    static ChatTranscript transcript(const QString& file, qint64 number);
};

} // namespace nuvrel
