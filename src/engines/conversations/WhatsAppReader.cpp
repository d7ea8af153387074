#include "engines/conversations/WhatsAppReader.h"

#include "engines/conversations/ChatDatabase.h"
#include "formats/sqlite/SqlStatement.h"
#include "ground/Dates.h"
#include "l10n/L.h"

#include <QDir>

namespace nuvrel {

namespace {

QString databaseOrDefault(const QString& file)
{
    return file.isEmpty() ? WhatsAppReader::defaultDatabase() : file;
}

// WhatsApp stores floating-point seconds since 2001.
QDateTime whatsAppDate(double seconds)
{
    return utcFromMSecsSinceEpoch(appleEpochOffsetSeconds * 1000 + static_cast<qint64>(std::llround(seconds * 1000)));
}

} // namespace

QString WhatsAppReader::defaultDatabase()
{
    return QDir::homePath() +
           QStringLiteral("/Library/Group Containers/group.net.whatsapp.WhatsApp.shared/ChatStorage.sqlite");
}

QString WhatsAppReader::label(qint64 messageType, const QString& text, const QString& mediaTitle)
{
    switch (messageType) {
    case 1: return L("[photo]");
    case 2: return L("[vidéo]");
    case 3: return L("[message vocal]");
    case 4: return L("[contact]");
    case 5: return L("[position]");
    // The document's own name is what matters; the label around it stays as the app writes it.
    case 8:
        return mediaTitle.isEmpty() ? QStringLiteral("[document]") : QStringLiteral("[document : ") + mediaTitle + u']';
    case 14: return text.isEmpty() ? L("[message supprimé]") : QString();
    case 15: return L("[sticker]");
    default: return {};
    }
}

QList<MessagesChatInfo> WhatsAppReader::listChats(const QString& file)
{
    return withChatDatabase(databaseOrDefault(file), [](sqlite3* db) { return listChats(db); });
}

QList<MessagesChatInfo> WhatsAppReader::listChats(sqlite3* db)
{
    SqlStatement statement =
        SqlStatement::prepare(db, "SELECT s.Z_PK, s.ZPARTNERNAME, s.ZCONTACTJID, COUNT(m.Z_PK), MAX(m.ZMESSAGEDATE)\n"
                                  "FROM ZWACHATSESSION s\n"
                                  "JOIN ZWAMESSAGE m ON m.ZCHATSESSION = s.Z_PK\n"
                                  "WHERE IFNULL(s.ZREMOVED, 0) = 0 AND IFNULL(s.ZSESSIONTYPE, 0) != 3\n"
                                  "GROUP BY s.Z_PK\n"
                                  "ORDER BY MAX(m.ZMESSAGEDATE) DESC");
    QList<MessagesChatInfo> chats;
    while (statement.next()) {
        const std::optional<QString> name = statement.text(1);
        chats.append({statement.int64(0),
                      name && !name->isEmpty() ? *name : statement.text(2).value_or(L("Conversation")),
                      statement.int64(3), whatsAppDate(statement.real(4))});
    }
    return chats;
}

ChatTranscript WhatsAppReader::messages(qint64 chatID, const QString& title, const QString& file)
{
    return withChatDatabase(databaseOrDefault(file), [&](sqlite3* db) { return messages(db, chatID, title); });
}

ChatTranscript WhatsAppReader::messages(sqlite3* db, qint64 chatID, const QString& title)
{
    SqlStatement statement = SqlStatement::prepare(
        db, "SELECT m.ZMESSAGEDATE, m.ZISFROMME, m.ZTEXT, m.ZMESSAGETYPE, m.ZPUSHNAME, mi.ZTITLE, m.ZFROMJID\n"
            "FROM ZWAMESSAGE m\n"
            "LEFT JOIN ZWAMEDIAITEM mi ON mi.Z_PK = m.ZMEDIAITEM\n"
            "WHERE m.ZCHATSESSION = ?\n"
            "ORDER BY m.ZMESSAGEDATE ASC, m.Z_PK ASC");
    statement.bind(1, chatID);
    const QString owner = ownerName();
    ChatTranscript transcript{L("WhatsApp : ") + title, {}};
    while (statement.next()) {
        const QString text = trimmedText(statement.text(2).value_or(QString()));
        const QString note = label(statement.int64(3), text, statement.text(5).value_or(QString()));
        QString body = note.isEmpty() ? text : text.isEmpty() ? note : text + u'\n' + note;
        if (body.isEmpty())
            continue;
        const std::optional<QString> pushName = statement.text(4);
        const QString sender = statement.int64(1) == 1 ? owner : pushName && !pushName->isEmpty() ? *pushName : title;
        transcript.messages.append({whatsAppDate(statement.real(0)), sender, std::move(body), {}});
    }
    return transcript;
}

} // namespace nuvrel
