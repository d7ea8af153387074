#include "engines/conversations/TelegramExport.h"
#include "engines/conversations/ConversationError.h"
#include "engines/conversations/ConversationSource.h"
#include "l10n/LanguageStore.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace nuvrel;

namespace {

QJsonObject message(qint64 id, qint64 unixTime, const QString& from, const QJsonValue& text)
{
    return {{QStringLiteral("id"), id},
            {QStringLiteral("type"), QStringLiteral("message")},
            {QStringLiteral("date"), QDateTime::fromSecsSinceEpoch(unixTime).toString(Qt::ISODate)},
            {QStringLiteral("date_unixtime"), QString::number(unixTime)},
            {QStringLiteral("from"), from},
            {QStringLiteral("from_id"), QString(QStringLiteral("user") + QString::number(qHash(from) % 1000))},
            {QStringLiteral("text"), text}};
}

class TelegramExportTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_saved = LanguageStore::shared().language();
        LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
    }
    void TearDown() override { LanguageStore::shared().setLanguageForThisRun(m_saved); }

    QString write(const QByteArray& json, const QString& name = QStringLiteral("result.json"))
    {
        const QString path = m_dir.filePath(name);
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(json);
        return path;
    }
    QString write(const QJsonObject& root) { return write(QJsonDocument(root).toJson()); }

    QTemporaryDir m_dir;
    AppLanguage m_saved = AppLanguage::Auto;
};

TEST_F(TelegramExportTest, OneChatWithEntitiesServiceLinesPhotosForwardsAndReplies)
{
    QDir(m_dir.path()).mkpath(QStringLiteral("photos"));
    QFile photo(m_dir.filePath(QStringLiteral("photos/photo_1@05-01-2023.jpg")));
    ASSERT_TRUE(photo.open(QIODevice::WriteOnly));
    photo.write("jpeg");
    photo.close();
    // A real file outside the export, which a hostile name points to.
    QTemporaryDir elsewhere;
    QFile outside(elsewhere.filePath(QStringLiteral("secret.jpg")));
    ASSERT_TRUE(outside.open(QIODevice::WriteOnly));
    outside.write("x");
    outside.close();

    QJsonArray messages;
    messages.append(message(1, 1'672'918'496, QStringLiteral("Ana"), QStringLiteral("Salut !")));
    // Text as a list of parts: plain strings and entities joined as plain text, a link keeping its address.
    QJsonObject entities = message(2, 1'672'918'500, QStringLiteral("Bruno"),
                                   QJsonArray{QStringLiteral("Vu "),
                                              QJsonObject{{QStringLiteral("type"), QStringLiteral("bold")},
                                                          {QStringLiteral("text"), QStringLiteral("ceci")}},
                                              QStringLiteral(" chez "),
                                              QJsonObject{{QStringLiteral("type"), QStringLiteral("text_link")},
                                                          {QStringLiteral("text"), QStringLiteral("le site")},
                                                          {QStringLiteral("href"), QStringLiteral("https://ex.org")}},
                                              QStringLiteral(" "),
                                              QJsonObject{{QStringLiteral("type"), QStringLiteral("mention")},
                                                          {QStringLiteral("text"), QStringLiteral("@ana")}}});
    entities.insert(QStringLiteral("reply_to_message_id"), 1);
    messages.append(entities);
    messages.append(QJsonObject{{QStringLiteral("id"), 3},
                                {QStringLiteral("type"), QStringLiteral("service")},
                                {QStringLiteral("date_unixtime"), QStringLiteral("1672918600")},
                                {QStringLiteral("actor"), QStringLiteral("Ana")},
                                {QStringLiteral("action"), QStringLiteral("invite_members")},
                                {QStringLiteral("members"), QJsonArray{QStringLiteral("Chloé"), QStringLiteral("Dan")}},
                                {QStringLiteral("text"), QString()}});
    QJsonObject withPhoto = message(4, 1'672'918'700, QStringLiteral("Ana"), QString());
    withPhoto.insert(QStringLiteral("photo"), QStringLiteral("photos/photo_1@05-01-2023.jpg"));
    withPhoto.insert(QStringLiteral("forwarded_from"), QStringLiteral("Chloé"));
    messages.append(withPhoto);
    for (const QString& hostile :
         {QString(QStringLiteral("../") + QDir(m_dir.path()).relativeFilePath(outside.fileName())), outside.fileName(),
          QStringLiteral("(File not included.)")}) {
        QJsonObject escape = message(5, 1'672'918'800, QStringLiteral("Ana"), QStringLiteral("là"));
        escape.insert(QStringLiteral("photo"), hostile);
        messages.append(escape);
    }
    // No Unix time: the date is the local time written; a channel's post has no sender; "Moi" as a
    // name does not make a message the owner's.
    messages.append(QJsonObject{{QStringLiteral("id"), 6},
                                {QStringLiteral("type"), QStringLiteral("message")},
                                {QStringLiteral("date"), QStringLiteral("2023-01-06T08:00:00")},
                                {QStringLiteral("from"), QJsonValue::Null},
                                {QStringLiteral("text"), QStringLiteral("  annonce \n")}});
    messages.append(message(7, 1'672'999'999, QStringLiteral("Moi"), QStringLiteral("faux")));

    const QString file = write(QJsonObject{{QStringLiteral("name"), QStringLiteral("Famille")},
                                           {QStringLiteral("type"), QStringLiteral("private_group")},
                                           {QStringLiteral("id"), 123},
                                           {QStringLiteral("messages"), messages}});

    const QList<MessagesChatInfo> chats = TelegramExport::listChats(file);
    ASSERT_EQ(chats.size(), 1);
    EXPECT_EQ(chats[0].id, 1);
    EXPECT_EQ(chats[0].title, QStringLiteral("Telegram : Famille"));
    EXPECT_EQ(chats[0].count, 9);
    EXPECT_EQ(chats[0].last, QDateTime::fromSecsSinceEpoch(1'672'999'999));

    const ChatTranscript chat = TelegramExport::transcript(file, 1);
    EXPECT_EQ(chat.title, QStringLiteral("Telegram : Famille"));
    ASSERT_EQ(chat.messages.size(), 9);
    EXPECT_EQ(chat.messages[0].sender, QStringLiteral("Ana"));
    EXPECT_EQ(chat.messages[0].date, QDateTime::fromSecsSinceEpoch(1'672'918'496));
    EXPECT_EQ(chat.messages[1].text,
              QStringLiteral("En réponse à Ana : « Salut ! »\nVu ceci chez le site (https://ex.org) @ana"));
    EXPECT_EQ(chat.messages[2].sender, QStringLiteral("Système"));
    EXPECT_EQ(chat.messages[2].text, QStringLiteral("Ana a ajouté Chloé, Dan"));
    EXPECT_EQ(chat.messages[3].text, QStringLiteral("Transféré de Chloé"));
    ASSERT_EQ(chat.messages[3].images.size(), 1);
    EXPECT_TRUE(chat.messages[3].images[0].endsWith(QStringLiteral("/photos/photo_1@05-01-2023.jpg")));
    for (int i = 4; i < 7; ++i) {
        EXPECT_TRUE(chat.messages[i].images.isEmpty()) << i;
        EXPECT_EQ(chat.messages[i].text, QStringLiteral("[photo]\nlà")) << i;
    }
    EXPECT_EQ(chat.messages[7].sender, QStringLiteral("Famille"));
    EXPECT_EQ(chat.messages[7].text, QStringLiteral("annonce"));
    EXPECT_EQ(chat.messages[7].date, QDateTime(QDate(2023, 1, 6), QTime(8, 0), Qt::LocalTime));
    EXPECT_EQ(chat.messages[8].sender, QStringLiteral("Famille")) << "nobody but the export's user is the owner";
    EXPECT_EQ(chat.undatedLines, 0);

    // Through the common interface, found by the file's name.
    const auto source = ConversationSource::forFile(file);
    EXPECT_EQ(source->kind(), ConvSource::Telegram);
    EXPECT_EQ(source->transcript(source->listChats().constFirst()), chat);
}

TEST_F(TelegramExportTest, AWholeAccountListsEveryChatAndKnowsItsOwner)
{
    QJsonArray chats;
    for (int n = 0; n < 3; ++n) {
        QJsonArray messages;
        for (int m = 0; m <= n; ++m) {
            QJsonObject line = message(m + 1, 1'700'000'000 + n * 1000 + m, QStringLiteral("Ana"),
                                       QStringLiteral("message %1").arg(m));
            if (m == 0)
                line.insert(QStringLiteral("from_id"), QStringLiteral("user42")); // the account's own
            messages.append(line);
        }
        chats.append(QJsonObject{{QStringLiteral("name"), QStringLiteral("Chat %1").arg(n)},
                                 {QStringLiteral("type"), QStringLiteral("personal_chat")},
                                 {QStringLiteral("id"), 1000 + n},
                                 {QStringLiteral("messages"), messages}});
    }
    // Saved messages have no name; a chat left holds messages too.
    const QJsonObject left{{QStringLiteral("type"), QStringLiteral("saved_messages")},
                           {QStringLiteral("messages"),
                            QJsonArray{message(1, 1'600'000'000, QStringLiteral("Ana"), QStringLiteral("vieux"))}}};
    // Written in Telegram's own order, the account's owner before the chats (a JSON object of Qt's
    // would sort the keys).
    const auto json = [](const auto& value) { return QJsonDocument(value).toJson(QJsonDocument::Compact); };
    const QString file = write(
        QByteArray("{\"about\": \"Here is the data you requested.\", \"personal_information\": ") +
        json(QJsonObject{{QStringLiteral("user_id"), 42}, {QStringLiteral("first_name"), QStringLiteral("Zoé")}}) +
        ", \"contacts\": {\"list\": [{\"name\": \"x\"}]}, \"chats\": {\"about\": \"…\", \"list\": " + json(chats) +
        "}, \"left_chats\": {\"list\": " + json(QJsonArray{left}) + "}}");

    const QList<MessagesChatInfo> list = TelegramExport::listChats(file);
    ASSERT_EQ(list.size(), 4);
    for (int n = 0; n < 3; ++n) {
        EXPECT_EQ(list[n].id, n + 1);
        EXPECT_EQ(list[n].title, QStringLiteral("Telegram : Chat %1").arg(n));
        EXPECT_EQ(list[n].count, n + 1);
        EXPECT_EQ(list[n].last, QDateTime::fromSecsSinceEpoch(1'700'000'000 + n * 1000 + n));
    }
    EXPECT_EQ(list[3].title, QStringLiteral("Telegram : Conversation"));

    const ChatTranscript third = TelegramExport::transcript(file, 3);
    EXPECT_EQ(third.title, QStringLiteral("Telegram : Chat 2"));
    ASSERT_EQ(third.messages.size(), 3);
    EXPECT_EQ(third.messages[0].sender, ownerName());
    EXPECT_EQ(third.messages[1].sender, QStringLiteral("Ana"));
    EXPECT_EQ(TelegramExport::transcript(file, 4).messages.constFirst().text, QStringLiteral("vieux"));

    // Numbers that name no chat.
    for (const qint64 number : {qint64(0), qint64(-1), qint64(5)}) {
        try {
            TelegramExport::transcript(file, number);
            ADD_FAILURE() << number;
        } catch (const ConversationError& error) {
            EXPECT_EQ(error.kind(), ConversationError::Kind::Empty);
        }
    }
}

// Whatever the bytes, a clear error and no crash: a cut file, a nesting without end, not JSON at
// all, a missing file; an export of no chat is an empty list.
TEST_F(TelegramExportTest, BrokenAndHostileFilesFailCleanly)
{
    const QByteArray whole =
        QJsonDocument(QJsonObject{
                          {QStringLiteral("name"), QStringLiteral("A")},
                          {QStringLiteral("messages"),
                           QJsonArray{message(1, 1'700'000'000, QStringLiteral("A"), QStringLiteral("texte"))}},
                      })
            .toJson();
    const struct
    {
        QByteArray bytes;
        ConversationError::Kind kind;
    } broken[] = {
        {whole.left(whole.size() / 2), ConversationError::Kind::Unreadable},
        {QByteArray(100'000, '['), ConversationError::Kind::Unreadable},
        {QByteArray("{\"messages\": [") + QByteArray(5000, '{'), ConversationError::Kind::Unreadable},
        {QByteArray("PK\x03\x04 not json"), ConversationError::Kind::Unreadable},
        {[] {
             QByteArray nul(R"({"name": "A", "messages": [{"text": "a_b"}]})");
             nul[nul.indexOf('_')] = '\0';
             return nul;
         }(),
         ConversationError::Kind::Unreadable},
        {QByteArray(), ConversationError::Kind::Unreadable},
    };
    for (const auto& [bytes, kind] : broken) {
        const QString file = write(bytes);
        try {
            TelegramExport::listChats(file);
            ADD_FAILURE() << bytes.left(40).toStdString();
        } catch (const ConversationError& error) {
            EXPECT_EQ(error.kind(), kind) << bytes.left(40).toStdString();
        }
    }
    try {
        TelegramExport::listChats(m_dir.filePath(QStringLiteral("absent.json")));
        ADD_FAILURE();
    } catch (const ConversationError& error) {
        EXPECT_EQ(error.kind(), ConversationError::Kind::File);
    }
    EXPECT_TRUE(TelegramExport::listChats(write(QByteArray("[1, 2, {\"messages\": []}]"))).isEmpty());
    EXPECT_TRUE(TelegramExport::listChats(write(QByteArray("{\"about\": \"nothing\"}"))).isEmpty());
    // A chat of no message lists with a count of 0 and cannot be read.
    const QString empty = write(QByteArray(R"({"name": "Vide", "messages": []})"));
    ASSERT_EQ(TelegramExport::listChats(empty).size(), 1);
    EXPECT_EQ(TelegramExport::listChats(empty).constFirst().count, 0);
    EXPECT_THROW(TelegramExport::transcript(empty, 1), ConversationError);
}

// jq, an independent JSON reader, counts the same messages in every chat of a large account export.
TEST_F(TelegramExportTest, CountsAgreeWithJq)
{
    const QString jq = QStandardPaths::findExecutable(QStringLiteral("jq"));
    if (jq.isEmpty())
        GTEST_SKIP() << "jq is not installed (tools/install-deps.sh installs it)";
    QJsonArray chats;
    quint32 seed = 7;
    const auto next = [&seed] { return seed = seed * 1'103'515'245u + 12'345u; };
    for (int n = 0; n < 40; ++n) {
        QJsonArray messages;
        const int count = int(next() % 300);
        for (int m = 0; m < count; ++m) {
            QJsonValue text =
                (next() % 3 == 0)
                    ? QJsonValue(QJsonArray{QStringLiteral("a"),
                                            QJsonObject{{QStringLiteral("type"), QStringLiteral("bold")},
                                                        {QStringLiteral("text"), QStringLiteral("é\"\\n")}}})
                    : QJsonValue(QStringLiteral("ligne %1\n🙂").arg(m));
            messages.append(
                message(m, 1'600'000'000 + qint64(next() % 100'000'000), QStringLiteral("P%1").arg(next() % 5), text));
        }
        chats.append(QJsonObject{{QStringLiteral("name"), QStringLiteral("C%1").arg(n)},
                                 {QStringLiteral("messages"), messages}});
    }
    const QString file = write(QJsonObject{{QStringLiteral("chats"), QJsonObject{{QStringLiteral("list"), chats}}}});

    QProcess process;
    process.start(jq, {QStringLiteral("-c"), QStringLiteral("[.chats.list[] | .messages | length]"), file});
    ASSERT_TRUE(process.waitForFinished(60'000));
    const QJsonArray counts = QJsonDocument::fromJson(process.readAllStandardOutput()).array();
    const QList<MessagesChatInfo> list = TelegramExport::listChats(file);
    ASSERT_EQ(list.size(), counts.size());
    for (qsizetype i = 0; i < list.size(); ++i)
        EXPECT_EQ(list[i].count, counts[i].toInteger()) << i;
}

} // namespace
