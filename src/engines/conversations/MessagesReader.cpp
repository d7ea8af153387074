#include "engines/conversations/MessagesReader.h"

#include "engines/conversations/ChatDatabase.h"
#include "engines/conversations/ConversationError.h"
#include "formats/sqlite/SqlStatement.h"
#include "ground/Dates.h"
#include "l10n/L.h"

#include <QDir>
#include <QStringDecoder>
#include <QtEndian>

#include <cmath>

namespace nuvrel {

namespace {

constexpr char16_t objectReplacement = u'\uFFFC';

QString databaseOrDefault(const QString& file)
{
    return file.isEmpty() ? MessagesReader::defaultDatabase() : file;
}

QString transcriptTitle(const QString& name)
{
    return L("Messages : ") + name;
}

// Reactions ("liked", "laughed at" …) are rows of their own with types 2000 to 3999.
bool isReaction(qint64 type)
{
    return static_cast<quint64>(type - 2000) < 2000;
}

QString cleaned(QString text)
{
    text.remove(QChar(objectReplacement));
    return trimmedText(text);
}

QList<MessagesChatInfo> modernChats(sqlite3* db, bool* prepared)
{
    std::optional<SqlStatement> statement = SqlStatement::tryPrepare(
        db, "SELECT c.ROWID, c.chat_identifier, c.display_name, COUNT(cmj.message_id), MAX(m.date)\n"
            "FROM chat c\n"
            "JOIN chat_message_join cmj ON cmj.chat_id = c.ROWID\n"
            "JOIN message m ON m.ROWID = cmj.message_id\n"
            "GROUP BY c.ROWID\n"
            "ORDER BY MAX(m.date) DESC");
    *prepared = statement.has_value();
    QList<MessagesChatInfo> chats;
    if (!statement)
        return chats;
    while (statement->next()) {
        MessagesChatInfo chat;
        chat.id = statement->int64(0);
        const std::optional<QString> name = statement->text(2);
        chat.title = name && !name->isEmpty() ? *name : statement->text(1).value_or(L("Conversation"));
        chat.count = statement->int64(3);
        chat.last = MessagesReader::appleDate(statement->int64(4));
        chats.append(std::move(chat));
    }
    return chats;
}

QList<QString> attachmentNames(SqlStatement& statement, qint64 messageID)
{
    statement.reset();
    statement.bind(1, messageID);
    QList<QString> names;
    while (statement.next()) {
        const QString name = statement.text(0).value_or(QString());
        if (!name.isEmpty())
            names.append(name);
    }
    return names;
}

} // namespace

QString MessagesReader::defaultDatabase()
{
    return QDir::homePath() + QStringLiteral("/Library/Messages/chat.db");
}

QDateTime MessagesReader::appleDate(qint64 value)
{
    return appleDate(value, QDateTime::currentDateTimeUtc());
}

QDateTime MessagesReader::appleDate(qint64 value, const QDateTime& now)
{
    if (std::fabs(static_cast<double>(value)) > 1e11) {
        // Nanoseconds since 2001, kept to the millisecond.
        return utcFromMSecsSinceEpoch(appleEpochOffsetSeconds * 1000 + value / 1'000'000);
    }
    QDateTime fromApple = utcFromSecsSinceEpoch(appleEpochOffsetSeconds + value);
    // The oldest databases stored Unix time: read from 2001 it would lie in the future.
    if (value >= 950'000'001 && value < 2'200'000'000 && fromApple > now.addSecs(86'400))
        return utcFromSecsSinceEpoch(value);
    return fromApple;
}

std::optional<QString> MessagesReader::decodeAttributedBody(QByteArrayView data)
{
    if (data.size() <= 16)
        return std::nullopt;
    const qsizetype marker = data.indexOf(QByteArrayView("NSString"));
    if (marker < 0)
        return std::nullopt;
    // The class name is followed by five bytes of typedstream bookkeeping, then the length.
    const qsizetype p = marker + 8 + 5;
    if (p >= data.size())
        return std::nullopt;
    const auto* bytes = reinterpret_cast<const uchar*>(data.data());
    qint64 length = bytes[p];
    qsizetype start = p + 1;
    if (bytes[p] == 0x81 && p + 2 < data.size()) {
        length = qFromLittleEndian<quint16>(bytes + p + 1);
        start = p + 3;
    } else if (bytes[p] == 0x82 && p + 4 < data.size()) {
        length = qFromLittleEndian<quint32>(bytes + p + 1);
        start = p + 5;
    }
    if (length == 0 || length > data.size() - start)
        return std::nullopt;
    // Invalid UTF-8 is a failure, not a repair: those bytes were not the string we looked for.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(data.sliced(start, static_cast<qsizetype>(length)));
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

QList<MessagesChatInfo> MessagesReader::listChats(const QString& file)
{
    return withChatDatabase(databaseOrDefault(file), [](sqlite3* db) { return listChats(db); });
}

QList<MessagesChatInfo> MessagesReader::listChats(sqlite3* db)
{
    bool prepared = false;
    QList<MessagesChatInfo> chats = modernChats(db, &prepared);
    if (!chats.isEmpty())
        return chats;
    chats = legacyChats(db);
    // No statement of any generation prepared: this is no Messages database at all.
    if (chats.isEmpty() && !prepared && !SqlStatement::tryPrepare(db, "SELECT COUNT(*) FROM message"))
        throw ConversationError::unreadable();
    return chats;
}

QList<MessagesChatInfo> MessagesReader::legacyChats(sqlite3* db)
{
    struct Listing
    {
        const char* sql;
        qint64 offset;
    };
    static constexpr Listing listings[] = {
        {"SELECT g.ROWID, (SELECT address FROM group_member WHERE group_id = g.ROWID LIMIT 1), COUNT(m.ROWID), "
         "MAX(m.date)\n"
         "FROM msg_group g JOIN message m ON m.group_id = g.ROWID\n"
         "GROUP BY g.ROWID ORDER BY MAX(m.date) DESC",
         groupKeyOffset},
        {"SELECT MIN(ROWID), address, COUNT(*), MAX(date) FROM message\n"
         "WHERE address IS NOT NULL GROUP BY address ORDER BY MAX(date) DESC",
         addressKeyOffset},
        {"SELECT MIN(m.ROWID), h.id, COUNT(*), MAX(m.date) FROM message m JOIN handle h ON h.ROWID = m.handle_id\n"
         "GROUP BY h.id ORDER BY MAX(m.date) DESC",
         handleKeyOffset},
    };
    for (const Listing& listing : listings) {
        std::optional<SqlStatement> statement = SqlStatement::tryPrepare(db, listing.sql);
        if (!statement)
            continue;
        QList<MessagesChatInfo> chats;
        while (statement->next()) {
            chats.append({statement->int64(0) + listing.offset, statement->text(1).value_or(L("Conversation")),
                          statement->int64(2), appleDate(statement->int64(3))});
        }
        if (!chats.isEmpty())
            return chats;
    }
    return {};
}

qint64 MessagesReader::messageCount(const QString& file)
{
    return withChatDatabase(databaseOrDefault(file), [](sqlite3* db) { return messageCount(db); });
}

qint64 MessagesReader::messageCount(sqlite3* db)
{
    SqlStatement statement = SqlStatement::prepare(db, "SELECT COUNT(*) FROM message");
    if (!statement.next())
        throw ConversationError::unreadable();
    return statement.int64(0);
}

ChatTranscript MessagesReader::messages(qint64 chatID, const QString& title, const QString& file)
{
    return withChatDatabase(databaseOrDefault(file), [&](sqlite3* db) { return messages(db, chatID, title); });
}

ChatTranscript MessagesReader::messages(sqlite3* db, qint64 chatID, const QString& title)
{
    if (chatID >= groupKeyOffset)
        return legacyMessages(db, chatID, title);
    SqlStatement statement = SqlStatement::prepare(
        db, "SELECT m.ROWID, m.date, m.is_from_me, m.text, m.attributedBody, m.cache_has_attachments, h.id, "
            "m.associated_message_type\n"
            "FROM message m\n"
            "JOIN chat_message_join cmj ON cmj.message_id = m.ROWID\n"
            "LEFT JOIN handle h ON h.ROWID = m.handle_id\n"
            "WHERE cmj.chat_id = ?\n"
            "ORDER BY m.date ASC");
    statement.bind(1, chatID);
    std::optional<SqlStatement> attachments;
    const QString owner = ownerName();
    const QString attachmentLabel = L("[pièce jointe : ");
    ChatTranscript transcript{transcriptTitle(title), {}};
    while (statement.next()) {
        if (isReaction(statement.int64(7)))
            continue;
        QString text = statement.text(3).value_or(QString());
        if (text.isEmpty() && !statement.isNull(4))
            text = decodeAttributedBody(statement.blob(4)).value_or(QString());
        text = cleaned(std::move(text));
        if (statement.int64(5) == 1) {
            if (!attachments)
                attachments.emplace(SqlStatement::prepare(
                    db, "SELECT a.transfer_name FROM message_attachment_join maj JOIN attachment a ON a.ROWID = "
                        "maj.attachment_id WHERE maj.message_id = ?"));
            for (const QString& name : attachmentNames(*attachments, statement.int64(0)))
                text += (text.isEmpty() ? QString() : QStringLiteral("\n")) + attachmentLabel + name + u']';
        }
        // An empty bubble says nothing: such rows (a lost attachment, a system event) are left out.
        if (text.isEmpty())
            continue;
        const bool fromMe = statement.int64(2) == 1;
        transcript.messages.append(
            {appleDate(statement.int64(1)), fromMe ? owner : statement.text(6).value_or(title), std::move(text), {}});
    }
    return transcript;
}

ChatTranscript MessagesReader::legacyMessages(sqlite3* db, qint64 chatID, const QString& title)
{
    const char* sql = nullptr;
    qint64 key = 0;
    bool handleSchema = false;
    if (chatID >= handleKeyOffset) {
        sql = "SELECT m.date, m.is_from_me, m.text, h.id FROM message m LEFT JOIN handle h ON h.ROWID = m.handle_id "
              "WHERE m.handle_id = (SELECT handle_id FROM message WHERE ROWID = ?) ORDER BY m.date";
        key = chatID - handleKeyOffset;
        handleSchema = true;
    } else if (chatID >= addressKeyOffset) {
        sql = "SELECT date, flags, text, address FROM message WHERE address = (SELECT address FROM message WHERE "
              "ROWID = ?) ORDER BY date";
        key = chatID - addressKeyOffset;
    } else {
        sql = "SELECT date, flags, text, address FROM message WHERE group_id = ? ORDER BY date";
        key = chatID - groupKeyOffset;
    }
    SqlStatement statement = SqlStatement::prepare(db, sql);
    statement.bind(1, key);
    const QString owner = ownerName();
    ChatTranscript transcript{transcriptTitle(title), {}};
    while (statement.next()) {
        QString text = statement.text(2).value_or(QString());
        if (text.isEmpty())
            continue;
        const qint64 direction = statement.int64(1);
        const bool fromMe = handleSchema ? direction == 1 : (direction & 1) != 0;
        transcript.messages.append(
            {appleDate(statement.int64(0)), fromMe ? owner : statement.text(3).value_or(title), std::move(text), {}});
    }
    return transcript;
}

} // namespace nuvrel
