// Conversations at scale, each against its reference in the same run:
// - listing the conversations of a 1,000,000-message chat.db, against the sqlite3 command running the
//   same statement on the same private copy; the private copy is timed on its own;
// - reading a 200,000-message conversation into a ChatTranscript;
// - parsing a 100 MB WhatsApp export;
// - writing conversations of 10,000 and 100,000 messages as PDF (the time must grow linearly).
//   NUVREL_BENCH_DATA=DIR build/default/bench/bench_conversations   (bench/run.sh prepares DIR)

#include "engines/conversations/ConversationPdf.h"
#include "engines/conversations/MessagesReader.h"
#include "engines/conversations/WhatsAppParser.h"
#include "formats/sqlite/PrivateDatabase.h"

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimeZone>

#include <benchmark/benchmark.h>

#include <sys/resource.h>

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

void ReadConversation200k(benchmark::State& state)
{
    if (!haveData(state))
        return;
    qsizetype messages = 0;
    for (auto _ : state)
        messages = nuvrel::MessagesReader::messages(1, QStringLiteral("+33610000001"), chatDatabase()).messages.size();
    state.SetItemsProcessed(state.iterations() * messages);
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

} // namespace

BENCHMARK(ConversationToPdf)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(PrivateCopy)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(ListChats1M)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
// Wall time: the reference runs in a child process.
BENCHMARK(Sqlite3Listing1M)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(ReadConversation200k)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(ParseExport100MB)->Unit(benchmark::kMillisecond)->Iterations(2);

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen"); // fonts for the PDF, no window
    QGuiApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
