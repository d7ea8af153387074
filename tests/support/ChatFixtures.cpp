#include "support/ChatFixtures.h"

#include <QtEndian>

#include <sqlite3.h>

namespace nuvrel::test {

namespace {
// A literal's bytes, embedded NULs included.
template <size_t N>
QByteArray bytes(const char (&literal)[N])
{
    return QByteArray(literal, N - 1);
}
} // namespace

QByteArray attributedBody(const QString& text)
{
    const QByteArray utf8 = text.toUtf8();
    QByteArray blob = bytes("\x04\x0bstreamtyped\x81\xe8\x03\x84\x01@\x84\x84\x84\x12NSAttributedString\x00\x84\x84"
                            "\x08NSObject\x00\x85\x92\x84\x84\x84\x08NSString\x01\x94\x84\x01+");
    // Lengths below 0x80 take one byte; longer ones a marker and a little-endian 16- or 32-bit count.
    if (utf8.size() < 0x80) {
        blob += static_cast<char>(utf8.size());
    } else if (utf8.size() <= 0xFFFF) {
        char length[2];
        qToLittleEndian<quint16>(static_cast<quint16>(utf8.size()), length);
        blob += '\x81' + QByteArray(length, 2);
    } else {
        char length[4];
        qToLittleEndian<quint32>(static_cast<quint32>(utf8.size()), length);
        blob += '\x82' + QByteArray(length, 4);
    }
    blob += utf8;
    // The attribute run that follows the string in real blobs.
    blob +=
        bytes("\x86\x84\x02iI\x01") + static_cast<char>(text.size() & 0x7F) +
        bytes("\x92\x84\x84\x84\x0cNSDictionary\x00\x94\x84\x01i\x01\x92\x84\x96\x96\x1d__kIMMessagePartAttributeName"
              "\x86\x92\x84\x84\x84\x08NSNumber\x00\x84\x84\x07NSValue\x00\x94\x84\x01*\x84\x99\x99\x00\x86\x86\x86");
    return blob;
}

FixtureDatabase::FixtureDatabase(const QString& path)
{
    if (sqlite3_open(path.toUtf8().constData(), &m_db) != SQLITE_OK)
        qFatal("cannot create %s", qPrintable(path));
}

FixtureDatabase::~FixtureDatabase()
{
    sqlite3_close(m_db);
}

void FixtureDatabase::exec(const QString& sql)
{
    char* error = nullptr;
    if (sqlite3_exec(m_db, sql.toUtf8().constData(), nullptr, nullptr, &error) != SQLITE_OK)
        qFatal("fixture SQL failed: %s\n%s", error, qPrintable(sql));
}

void FixtureDatabase::execWithBlob(const QString& sql, const QByteArray& blob)
{
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(m_db, sql.toUtf8().constData(), -1, &statement, nullptr);
    sqlite3_bind_blob(statement, 1, blob.constData(), static_cast<int>(blob.size()), SQLITE_TRANSIENT);
    if (sqlite3_step(statement) != SQLITE_DONE)
        qFatal("fixture insert failed: %s", sqlite3_errmsg(m_db));
    sqlite3_finalize(statement);
}

void createModernMessagesSchema(FixtureDatabase& db)
{
    db.exec(QStringLiteral(
        "CREATE TABLE handle (ROWID INTEGER PRIMARY KEY AUTOINCREMENT UNIQUE, id TEXT NOT NULL, country TEXT, "
        "service TEXT NOT NULL, uncanonicalized_id TEXT, person_centric_id TEXT);"
        "CREATE TABLE chat (ROWID INTEGER PRIMARY KEY AUTOINCREMENT, guid TEXT UNIQUE NOT NULL, style INTEGER, "
        "state INTEGER, account_id TEXT, properties BLOB, chat_identifier TEXT, service_name TEXT, room_name TEXT, "
        "account_login TEXT, is_archived INTEGER DEFAULT 0, last_addressed_handle TEXT, display_name TEXT, "
        "group_id TEXT, is_filtered INTEGER DEFAULT 0, successful_query INTEGER);"
        "CREATE TABLE message (ROWID INTEGER PRIMARY KEY AUTOINCREMENT, guid TEXT UNIQUE NOT NULL, text TEXT, "
        "replace INTEGER DEFAULT 0, service_center TEXT, handle_id INTEGER DEFAULT 0, subject TEXT, country TEXT, "
        "attributedBody BLOB, version INTEGER DEFAULT 0, type INTEGER DEFAULT 0, service TEXT, account TEXT, "
        "date INTEGER, date_read INTEGER, date_delivered INTEGER, is_delivered INTEGER DEFAULT 0, "
        "is_finished INTEGER DEFAULT 0, is_from_me INTEGER DEFAULT 0, is_read INTEGER DEFAULT 0, "
        "cache_has_attachments INTEGER DEFAULT 0, cache_roomnames TEXT, associated_message_guid TEXT DEFAULT NULL, "
        "associated_message_type INTEGER DEFAULT 0, balloon_bundle_id TEXT, thread_originator_guid TEXT);"
        "CREATE TABLE chat_message_join (chat_id INTEGER REFERENCES chat (ROWID) ON DELETE CASCADE, "
        "message_id INTEGER REFERENCES message (ROWID) ON DELETE CASCADE, message_date INTEGER DEFAULT 0, "
        "PRIMARY KEY (chat_id, message_id));"
        "CREATE TABLE chat_handle_join (chat_id INTEGER, handle_id INTEGER, UNIQUE(chat_id, handle_id));"
        "CREATE TABLE attachment (ROWID INTEGER PRIMARY KEY AUTOINCREMENT, guid TEXT UNIQUE NOT NULL, "
        "created_date INTEGER DEFAULT 0, filename TEXT, uti TEXT, mime_type TEXT, transfer_name TEXT, "
        "total_bytes INTEGER DEFAULT 0);"
        "CREATE TABLE message_attachment_join (message_id INTEGER, attachment_id INTEGER, "
        "UNIQUE(message_id, attachment_id));"));
}

void createWhatsAppSchema(FixtureDatabase& db)
{
    db.exec(QStringLiteral(
        "CREATE TABLE ZWACHATSESSION (Z_PK INTEGER PRIMARY KEY, Z_ENT INTEGER, Z_OPT INTEGER, ZARCHIVED INTEGER, "
        "ZREMOVED INTEGER, ZSESSIONTYPE INTEGER, ZUNREADCOUNT INTEGER, ZLASTMESSAGEDATE TIMESTAMP, "
        "ZCONTACTJID VARCHAR, ZPARTNERNAME VARCHAR);"
        "CREATE TABLE ZWAMEDIAITEM (Z_PK INTEGER PRIMARY KEY, Z_ENT INTEGER, Z_OPT INTEGER, ZMESSAGE INTEGER, "
        "ZFILESIZE INTEGER, ZMEDIALOCALPATH VARCHAR, ZTITLE VARCHAR);"
        "CREATE TABLE ZWAMESSAGE (Z_PK INTEGER PRIMARY KEY, Z_ENT INTEGER, Z_OPT INTEGER, ZCHATSESSION INTEGER, "
        "ZISFROMME INTEGER, ZMESSAGESTATUS INTEGER, ZMESSAGETYPE INTEGER, ZMEDIAITEM INTEGER, "
        "ZMESSAGEDATE TIMESTAMP, ZSENTDATE TIMESTAMP, ZFROMJID VARCHAR, ZPUSHNAME VARCHAR, ZTEXT VARCHAR, "
        "ZTOJID VARCHAR, ZSTANZAID VARCHAR);"));
}

void writeSampleWhatsAppDatabase(const QString& path)
{
    FixtureDatabase db(path);
    createWhatsAppSchema(db);
    // Dates count seconds from 2001-01-01: 785'000'000 is late November 2025.
    db.exec(QStringLiteral(
        "INSERT INTO ZWACHATSESSION (Z_PK, ZREMOVED, ZSESSIONTYPE, ZCONTACTJID, ZPARTNERNAME) VALUES"
        " (1, 0, 0, '33612345678@s.whatsapp.net', 'Ana Martin'),"
        " (2, 0, 1, '120363025@g.us', 'Famille 🏡');"
        "INSERT INTO ZWAMEDIAITEM (Z_PK, ZTITLE) VALUES (1, NULL), (2, 'Billets-train.pdf');"
        "INSERT INTO ZWAMESSAGE (Z_PK, ZCHATSESSION, ZISFROMME, ZMESSAGETYPE, ZMEDIAITEM, ZMESSAGEDATE, ZPUSHNAME,"
        " ZTEXT) VALUES"
        " (1, 1, 0, 0, NULL, 785000000, 'Ana', 'Coucou ! Tu arrives à quelle heure samedi ?'),"
        " (2, 1, 1, 0, NULL, 785000420, NULL, 'Vers 14 h, je prends le train de 11 h 04.'),"
        " (3, 1, 0, 1, 1, 785000600, 'Ana', 'La vue depuis le balcon'),"
        " (4, 1, 1, 8, 2, 785000900, NULL, NULL),"
        " (5, 1, 0, 0, NULL, 785090000, 'Ana', 'Super, à samedi 😊'),"
        " (10, 2, 0, 0, NULL, 786000000, 'Maman', 'Qui apporte le dessert dimanche ?'),"
        " (11, 2, 0, 0, NULL, 786000300, 'Paul', 'Moi, une tarte aux pommes.'),"
        " (12, 2, 1, 0, NULL, 786000600, NULL, 'Et moi le pain.'),"
        " (13, 2, 0, 0, NULL, 786003600, 'Maman', 'Parfait, merci à vous deux ❤️');"));
}

void writeSampleMessagesDatabase(const QString& path)
{
    FixtureDatabase db(path);
    createModernMessagesSchema(db);
    db.exec(QStringLiteral(
        "INSERT INTO handle (ROWID, id, service) VALUES (1, '+33612345678', 'iMessage'), (2, 'louis@example.com', "
        "'iMessage');"
        "INSERT INTO chat (ROWID, guid, chat_identifier, display_name) VALUES (1, 'iMessage;-;+33612345678', "
        "'+33612345678', ''), (2, 'iMessage;+;chat42', 'chat42', 'Famille');"
        "INSERT INTO attachment (ROWID, guid, transfer_name) VALUES (1, 'at1', 'IMG_0003.HEIC');"
        "INSERT INTO message_attachment_join VALUES (4, 1);"));
    struct Row
    {
        int id;
        int chat;
        qint64 date; // nanoseconds since 2001, as recent systems store them
        int fromMe;
        int handle;
        const char* text;
        int type;
        int attachments;
    };
    const Row rows[] = {
        {1, 1, 785'000'000'000'000'000, 0, 1, "Tu es où ?", 0, 0},
        {2, 1, 785'000'060'000'000'000, 1, 0, "J'arrive dans dix minutes", 0, 0},
        {3, 1, 785'000'070'000'000'000, 0, 1, "Loved “J'arrive dans dix minutes”", 2000, 0},
        {4, 2, 785'100'000'000'000'000, 0, 2, nullptr, 0, 1},
        {5, 2, 785'100'100'000'000'000, 1, 0, nullptr, 0, 0},
        {6, 2, 785'100'200'000'000'000, 0, 2, "Bon anniversaire Mamie ! 🎂", 0, 0},
    };
    for (const Row& row : rows) {
        db.exec(QStringLiteral("INSERT INTO message (ROWID, guid, text, handle_id, date, is_from_me, "
                               "associated_message_type, cache_has_attachments) VALUES (%1, 'm%1', %2, %3, %4, %5, %6, "
                               "%7); INSERT INTO chat_message_join VALUES (%8, %1, %4);")
                    .arg(row.id)
                    .arg(row.text ? u'\'' + QString::fromUtf8(row.text).replace(u'\'', QStringLiteral("''")) + u'\''
                                  : QStringLiteral("NULL"))
                    .arg(row.handle)
                    .arg(row.date)
                    .arg(row.fromMe)
                    .arg(row.type)
                    .arg(row.attachments)
                    .arg(row.chat));
    }
    // Recent systems keep the text of many messages only in attributedBody.
    db.execWithBlob(QStringLiteral("UPDATE message SET attributedBody = ? WHERE ROWID = 5"),
                    attributedBody(QStringLiteral("Merci pour la photo, elle est magnifique \uFFFC")));
}

void writeLargeMessagesDatabase(const QString& path, int messages, int chats, int bigChat)
{
    FixtureDatabase db(path);
    createModernMessagesSchema(db);
    db.exec(QStringLiteral("PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; BEGIN;"));
    for (int c = 1; c <= chats; ++c)
        db.exec(QStringLiteral("INSERT INTO handle (ROWID, id, service) VALUES (%1, '+3361%2', 'iMessage');"
                               "INSERT INTO chat (ROWID, guid, chat_identifier, display_name) VALUES (%1, 'c%1', "
                               "'+3361%2', '');")
                    .arg(c)
                    .arg(c, 7, 10, QLatin1Char('0')));
    sqlite3_stmt* message = nullptr;
    sqlite3_stmt* join = nullptr;
    sqlite3_prepare_v2(db.handle(),
                       "INSERT INTO message (ROWID, guid, text, handle_id, date, is_from_me, attributedBody) "
                       "VALUES (?, ?, ?, ?, ?, ?, ?)",
                       -1, &message, nullptr);
    sqlite3_prepare_v2(db.handle(), "INSERT INTO chat_message_join VALUES (?, ?, ?)", -1, &join, nullptr);
    const QByteArray body = attributedBody(QStringLiteral("Message reçu seulement en attributedBody, comme souvent"));
    for (int i = 1; i <= messages; ++i) {
        const int chat = i <= bigChat ? 1 : 2 + (i % (chats - 1));
        const qint64 date = 700'000'000'000'000'000LL + qint64(i) * 1'000'000'000;
        const QByteArray guid = "m" + QByteArray::number(i);
        const QByteArray text = "Message numéro " + QByteArray::number(i) + " : à demain, on se voit au café ?";
        sqlite3_bind_int(message, 1, i);
        sqlite3_bind_text(message, 2, guid.constData(), -1, SQLITE_TRANSIENT);
        if (i % 5 == 0) {
            sqlite3_bind_null(message, 3);
            sqlite3_bind_blob(message, 7, body.constData(), static_cast<int>(body.size()), SQLITE_STATIC);
        } else {
            sqlite3_bind_text(message, 3, text.constData(), -1, SQLITE_TRANSIENT);
            sqlite3_bind_null(message, 7);
        }
        sqlite3_bind_int(message, 4, chat);
        sqlite3_bind_int64(message, 5, date);
        sqlite3_bind_int(message, 6, i % 3 == 0);
        sqlite3_step(message);
        sqlite3_reset(message);
        sqlite3_bind_int(join, 1, chat);
        sqlite3_bind_int(join, 2, i);
        sqlite3_bind_int64(join, 3, date);
        sqlite3_step(join);
        sqlite3_reset(join);
    }
    sqlite3_finalize(message);
    sqlite3_finalize(join);
    // The indexes the real database has for these joins.
    db.exec(QStringLiteral("CREATE INDEX chat_message_join_idx_message_id_only ON chat_message_join(message_id);"
                           "CREATE INDEX chat_message_join_idx_chat_id ON chat_message_join(chat_id);"
                           "COMMIT;"));
}

QString sampleWhatsAppExport()
{
    return QStringLiteral("\uFEFF[22/11/2026, 19:02:11] Camille: Les messages et les appels sont chiffrés de bout en "
                          "bout.\r\n"
                          "[22/11/2026, 19:02:40] Camille: On se retrouve au marché demain ?\r\n"
                          "[22/11/2026, 19:05:02] Louis: Oui, vers 10 h\r\n"
                          "Je prends le pain.\r\n"
                          "[22/11/2026, 19:06:15] Camille: \u200Eimage absente\r\n");
}

} // namespace nuvrel::test
