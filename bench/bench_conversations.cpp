// Conversations at scale, each against its reference in the same run. The chat.db and the WhatsApp
// exports are shaped like real ones (bench/generators/chats.py: every script, emoji, multi-line
// messages, attachments; a chat.db with the columns and indexes of a current one).
// - listing the conversations of a 1,000,000-message chat.db, its private copy included, against `cp`
//   copying the file plus the sqlite3 command running the same statement on the copy (target: within
//   1.3x); the private copy and the statement are also timed on their own;
// - reading the longest conversation of that chat.db into a ChatTranscript;
// - `nuvrel-cli chat-pdf --export` on WhatsApp exports of 50,000 messages (French, Serbian and Russian
//   with emoji, and the same conversation in ASCII) and 100,000 messages: messages per second (target:
//   10,000 on the real-shaped chat) and peak memory (target: under 300 MB at 100,000);
// - parsing a 100 MB WhatsApp export;
// - writing conversations of 10,000 and 100,000 messages as PDF (the time must grow linearly);
// - listing the chats of a 500 MB Telegram account export (at least 200 MB/s, peak memory under 64 MB
//   whatever the file's size), against `cat` reading the file and `jq` counting its chats; reading its
//   100,000-message chat and writing it as a PDF.
//   NUVREL_BENCH_DATA=DIR build/default/bench/bench_conversations   (bench/run.sh prepares DIR; the
//   Telegram export is written there on first use)

#include "engines/conversations/ConversationPdf.h"
#include "engines/conversations/MessagesReader.h"
#include "engines/conversations/TelegramExport.h"
#include "engines/conversations/WhatsAppParser.h"
#include "formats/sqlite/PrivateDatabase.h"

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimeZone>

#include "ChildRun.h"

#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace {

const char* const listingStatement =
    "SELECT c.ROWID, c.chat_identifier, c.display_name, COUNT(cmj.message_id), MAX(m.date)\n"
    "FROM chat c\n"
    "JOIN chat_message_join cmj ON cmj.chat_id = c.ROWID\n"
    "JOIN message m ON m.ROWID = cmj.message_id\n"
    "GROUP BY c.ROWID\n"
    "ORDER BY MAX(m.date) DESC";

QString chatDatabase()
{
    return QDir(qEnvironmentVariable("NUVREL_BENCH_DATA")).filePath(QStringLiteral("chat.db"));
}

bool haveData(benchmark::State& state)
{
    if (QFile::exists(chatDatabase()))
        return true;
    state.SkipWithError("no bench data: run bench/run.sh");
    return false;
}

void PrivateCopy(benchmark::State& state)
{
    if (!haveData(state))
        return;
    for (auto _ : state)
        nuvrel::PrivateDatabase database(chatDatabase());
    state.SetBytesProcessed(state.iterations() * QFileInfo(chatDatabase()).size());
}

void ListChats1M(benchmark::State& state)
{
    if (!haveData(state))
        return;
    qsizetype chats = 0;
    for (auto _ : state)
        chats = nuvrel::MessagesReader::listChats(chatDatabase()).size();
    state.counters["chats"] = static_cast<double>(chats);
}

void Sqlite3Listing1M(benchmark::State& state)
{
    if (!haveData(state))
        return;
    QTemporaryDir copy;
    const QString path = copy.filePath(QStringLiteral("chat.db"));
    QFile::copy(chatDatabase(), path);
    for (auto _ : state) {
        QProcess sqlite;
        sqlite.setStandardOutputFile(QProcess::nullDevice());
        sqlite.start(QStringLiteral("sqlite3"), {path, QString::fromLatin1(listingStatement)});
        if (!sqlite.waitForFinished(-1) || sqlite.exitCode() != 0)
            state.SkipWithError("sqlite3 failed");
    }
}

// What the listing must stay within 1.3x of: copying the database, then the sqlite3 command running the
// listing's statement on the copy.
void CopyThenSqlite3Listing1M(benchmark::State& state)
{
    if (!haveData(state))
        return;
    QTemporaryDir copy;
    const QString path = copy.filePath(QStringLiteral("chat.db"));
    for (auto _ : state) {
        QFile::remove(path);
        const nuvrel::bench::ChildRun cp = nuvrel::bench::runChild(QStringLiteral("cp"), {chatDatabase(), path});
        const nuvrel::bench::ChildRun sqlite =
            nuvrel::bench::runChild(QStringLiteral("sqlite3"), {path, QString::fromLatin1(listingStatement)});
        if (!cp.ok || !sqlite.ok) {
            state.SkipWithError("cp or sqlite3 failed");
            return;
        }
        state.SetIterationTime(cp.seconds + sqlite.seconds);
    }
}

// The longest conversation, the one a real phone's busiest chat would be.
void ReadLongestConversation(benchmark::State& state)
{
    if (!haveData(state))
        return;
    const QList<nuvrel::MessagesChatInfo> chats = nuvrel::MessagesReader::listChats(chatDatabase());
    const auto longest =
        std::max_element(chats.cbegin(), chats.cend(), [](const auto& a, const auto& b) { return a.count < b.count; });
    qsizetype messages = 0;
    for (auto _ : state)
        messages = nuvrel::MessagesReader::messages(longest->id, longest->title, chatDatabase()).messages.size();
    state.SetItemsProcessed(state.iterations() * messages);
}

// nuvrel-cli chat-pdf on a WhatsApp export, in a child process whose own peak memory is reported.
void ChatPdfExport(benchmark::State& state, const char* file, int messages)
{
    const QString exportFile = QDir(qEnvironmentVariable("NUVREL_BENCH_DATA")).filePath(QString::fromLatin1(file));
    if (!QFile::exists(exportFile)) {
        state.SkipWithError("no bench data: run bench/run.sh");
        return;
    }
    QTemporaryDir dir;
    const QString pdf = dir.filePath(QStringLiteral("chat.pdf"));
    for (auto _ : state) {
        QFile::remove(pdf);
        QFile::remove(dir.filePath(QStringLiteral("chat.empreinte.txt")));
        const nuvrel::bench::ChildRun run =
            nuvrel::bench::runChild(QStringLiteral(NUVREL_CLI), {QStringLiteral("chat-pdf"), QStringLiteral("--export"),
                                                                 exportFile, QStringLiteral("-o"), pdf});
        if (!run.ok) {
            state.SkipWithError("nuvrel-cli chat-pdf failed");
            return;
        }
        state.SetIterationTime(run.seconds);
        state.counters["peak_rss_MB"] = run.peakMegabytes;
        state.counters["messages_per_s"] = messages / run.seconds;
    }
}

void ParseExport100MB(benchmark::State& state)
{
    QString text;
    constexpr qint64 targetBytes = qint64(100) * 1024 * 1024;
    text.reserve(targetBytes);
    qint64 bytes = 0;
    for (int i = 0; bytes < targetBytes; ++i) {
        QString line = QStringLiteral("[%1/11/2026, %2:%3:07\u202FPM] %4: Message numéro %5, à demain au café ?\n")
                           .arg(1 + i % 28)
                           .arg(1 + i % 12)
                           .arg(i % 60, 2, 10, QLatin1Char('0'))
                           .arg(i % 2 ? QStringLiteral("Camille") : QStringLiteral("Louis"))
                           .arg(i);
        if (i % 7 == 0)
            line += QStringLiteral("une seconde ligne, qui continue le message\n");
        bytes += line.toUtf8().size();
        text += line;
    }
    for (auto _ : state) {
        const std::optional<nuvrel::ChatTranscript> transcript =
            nuvrel::WhatsAppParser::parse(text, QStringLiteral("x"));
        benchmark::DoNotOptimize(transcript);
    }
    state.SetBytesProcessed(state.iterations() * bytes);
}

void ConversationToPdf(benchmark::State& state)
{
    nuvrel::ChatTranscript transcript{QStringLiteral("WhatsApp : Camille / Louis"), {}};
    const QDateTime start(QDate(2024, 1, 1), QTime(8, 0), QTimeZone::systemTimeZone());
    for (qint64 i = 0; i < state.range(0); ++i)
        transcript.messages.append(
            {start.addSecs(i * 97),
             i % 3 ? QStringLiteral("Camille") : QStringLiteral("Louis"),
             QStringLiteral("Message %1, à demain au café ? ").arg(i) + QString(i % 4 * 30, u'x'),
             {}});
    QTemporaryDir dir;
    int pages = 0;
    for (auto _ : state) {
        const auto result = nuvrel::ConversationPDF::build(dir.filePath(QStringLiteral("c.pdf")), transcript,
                                                           QStringLiteral("WhatsApp"));
        pages = result.pages;
        QFile::remove(result.pdf); // the next one takes the same name again
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["pages"] = pages;
    state.counters["peak_rss_MB"] = static_cast<double>(usage.ru_maxrss) / 1024.0;
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// A Telegram Desktop account export of about 500 MB: 200 chats, the first of 100,000 messages, text
// as plain strings and as lists of entities, as the real exports mix them.
QString telegramExport()
{
    QString path = QDir(qEnvironmentVariable("NUVREL_BENCH_DATA")).filePath(QStringLiteral("telegram/result.json"));
    if (QFile::exists(path))
        return path;
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path + QStringLiteral(".part"));
    if (!file.open(QIODevice::WriteOnly))
        return {};
    constexpr qint64 targetBytes = qint64(500) * 1000 * 1000;
    file.write(R"({"about": "Here is the data you requested.", "personal_information": {"user_id": 1000, )"
               R"("first_name": "Camille"}, "chats": {"about": "chats", "list": [)");
    const int chats = 200;
    for (int chat = 0; chat < chats; ++chat) {
        const qint64 messages = chat == 0 ? 100'000 : (targetBytes / 200 / 230);
        QByteArray block =
            QStringLiteral(R"(%1{"name": "Contact %2", "type": "personal_chat", "id": %3, "messages": [)")
                .arg(chat == 0 ? QString() : QStringLiteral(","))
                .arg(chat)
                .arg(100'000 + chat)
                .toUtf8();
        for (qint64 m = 0; m < messages; ++m) {
            const qint64 time = 1'600'000'000 + m * 61 + chat;
            const bool mine = m % 3 == 0;
            block += QStringLiteral(
                         R"(%1{"id": %2, "type": "message", "date": "2020-09-13T12:26:40", "date_unixtime": "%3", )"
                         R"("from": "%4", "from_id": "user%5", "text": %6, "text_entities": []})")
                         .arg(m == 0 ? QString() : QStringLiteral(","))
                         .arg(m + 1)
                         .arg(time)
                         .arg(mine ? QStringLiteral("Camille") : QStringLiteral("Contact %1").arg(chat))
                         .arg(mine ? 1000 : 2000 + chat)
                         .arg(m % 5 == 0
                                  ? QStringLiteral(R"(["Vu ", {"type": "bold", "text": "ça"}, " au café, à demain ?"])")
                                  : QStringLiteral(R"("Message numéro %1, à demain au café ? On se retrouve à midi.")")
                                        .arg(m))
                         .toUtf8();
            if (block.size() > 1 << 20) {
                file.write(block);
                block.clear();
            }
        }
        block += "]}";
        file.write(block);
    }
    file.write("]}}\n");
    file.close();
    QFile::rename(file.fileName(), path);
    return path;
}

// The chats listed in a child process of this program, which reports its own peak memory: nothing the
// other benchmarks hold counts.
void ListTelegram500MB(benchmark::State& state)
{
    const QString path = telegramExport();
    if (path.isEmpty()) {
        state.SkipWithError("no bench data folder: run bench/run.sh");
        return;
    }
    double peak = 0;
    qsizetype chats = 0;
    for (auto _ : state) {
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--list-telegram"), path});
        if (!child.waitForFinished(-1) || child.exitCode() != 0) {
            state.SkipWithError("the listing failed");
            return;
        }
        const QList<QByteArray> words = child.readAllStandardOutput().simplified().split(' ');
        chats = words.value(0).toLongLong();
        peak = words.value(1).toDouble();
    }
    state.counters["chats"] = static_cast<double>(chats);
    state.counters["peak_rss_MB"] = peak;
    state.SetBytesProcessed(state.iterations() * QFileInfo(path).size());
}

void CatTelegram500MB(benchmark::State& state)
{
    const QString path = telegramExport();
    for (auto _ : state) {
        QProcess cat;
        cat.setStandardOutputFile(QProcess::nullDevice());
        cat.start(QStringLiteral("cat"), {path});
        if (!cat.waitForFinished(-1) || cat.exitCode() != 0)
            state.SkipWithError("cat failed");
    }
    state.SetBytesProcessed(state.iterations() * QFileInfo(path).size());
}

void JqTelegram500MB(benchmark::State& state)
{
    const QString path = telegramExport();
    for (auto _ : state) {
        QProcess jq;
        jq.setStandardOutputFile(QProcess::nullDevice());
        jq.start(QStringLiteral("jq"), {QStringLiteral(".chats.list | length"), path});
        if (!jq.waitForFinished(-1) || jq.exitCode() != 0)
            state.SkipWithError("jq failed (tools/install-deps.sh installs it)");
    }
    state.SetBytesProcessed(state.iterations() * QFileInfo(path).size());
}

// The 100,000-message chat of the export, read and written as a PDF.
void TelegramChatToPdf100k(benchmark::State& state)
{
    const QString path = telegramExport();
    QTemporaryDir dir;
    qsizetype messages = 0;
    for (auto _ : state) {
        const nuvrel::ChatTranscript chat = nuvrel::TelegramExport::transcript(path, 1);
        messages = chat.messages.size();
        const auto result =
            nuvrel::ConversationPDF::build(dir.filePath(QStringLiteral("t.pdf")), chat, QStringLiteral("Telegram"));
        QFile::remove(result.pdf);
    }
    state.SetItemsProcessed(state.iterations() * messages);
}

} // namespace

BENCHMARK(ListTelegram500MB)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();
BENCHMARK(CatTelegram500MB)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();
BENCHMARK(JqTelegram500MB)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(TelegramChatToPdf100k)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(ConversationToPdf)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(ChatPdfExport, real_50k, "whatsapp-50k.txt", 50'000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2)
    ->UseManualTime();
BENCHMARK_CAPTURE(ChatPdfExport, ascii_50k, "whatsapp-50k-ascii.txt", 50'000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2)
    ->UseManualTime();
BENCHMARK_CAPTURE(ChatPdfExport, real_100k, "whatsapp-100k.txt", 100'000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->UseManualTime();
BENCHMARK(PrivateCopy)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(ListChats1M)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(CopyThenSqlite3Listing1M)->Unit(benchmark::kMillisecond)->Iterations(3)->UseManualTime();
// Wall time: the reference runs in a child process.
BENCHMARK(Sqlite3Listing1M)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(ReadLongestConversation)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(ParseExport100MB)->Unit(benchmark::kMillisecond)->Iterations(2);

int main(int argc, char** argv)
{
    // The child of ListTelegram500MB: lists, then prints the chats and its own peak memory in MB.
    if (argc == 3 && std::string_view(argv[1]) == "--list-telegram") {
        QCoreApplication app(argc, argv);
        const qsizetype chats = nuvrel::TelegramExport::listChats(QString::fromLocal8Bit(argv[2])).size();
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        std::printf("%lld %.1f\n", static_cast<long long>(chats), static_cast<double>(usage.ru_maxrss) / 1024.0);
        return 0;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen"); // fonts for the PDF, no window
    QGuiApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
