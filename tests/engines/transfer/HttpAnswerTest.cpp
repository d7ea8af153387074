// The transfer server's words, byte for byte: what a head is, what each path gets, and that nothing a
// request or a file name holds can reach a file outside the list or a header of its own.

#include "engines/transfer/HttpAnswer.h"
#include "l10n/LanguageStore.h"

#include <QRegularExpression>
#include <QSet>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace nuvrel;

namespace {

const QString token = QStringLiteral("abcdefghijklmnopqrstuvwxyz");

QList<ServedFile> files()
{
    return {{QStringLiteral("/tmp/a"), QStringLiteral("Vidéo <vacances> & plage.mov"), 3'000'000'000,
             QDateTime(QDate(2026, 7, 14), QTime(8, 30), Qt::UTC)},
            {QStringLiteral("/tmp/b"), QStringLiteral("vide.txt"), 0, {}}};
}

HttpAnswer ask(const QByteArray& head)
{
    HttpRequestReader reader;
    EXPECT_EQ(reader.feed(head), HttpRequestReader::State::Complete) << head.constData();
    return HttpAnswers::answer(reader.request(), token, files());
}

QByteArray header(const HttpAnswer& answer, const QByteArray& name)
{
    for (const QByteArray& line : answer.head.split('\n')) {
        if (line.startsWith(QByteArray(name + ": ")))
            return line.mid(name.size() + 2).chopped(1);
    }
    return {};
}

} // namespace

TEST(HttpRequestReader, AHeadArrivesInPiecesAndAnEndlessOneIsCut)
{
    // Byte by byte, as a slow client sends it; the target decoded, the query dropped.
    const QByteArray head = "GET /x/f/%31?dl=1 HTTP/1.1\r\nHost: 192.168.1.20\r\nRANGE:  bytes=0-9 \r\n\r\nbody";
    HttpRequestReader reader;
    HttpRequestReader::State state = HttpRequestReader::State::NeedMore;
    for (const char byte : head) {
        state = reader.feed(QByteArrayView(&byte, 1));
        if (state != HttpRequestReader::State::NeedMore)
            break;
    }
    ASSERT_EQ(state, HttpRequestReader::State::Complete);
    EXPECT_EQ(reader.request().method, "GET");
    EXPECT_EQ(reader.request().path, QStringLiteral("/x/f/1"));
    EXPECT_TRUE(reader.request().hasRange);
    EXPECT_EQ(reader.request().range, "bytes=0-9");

    // A request line over 8,192 bytes is still read and answered; a head over 16 KiB is not.
    HttpRequestReader longLine;
    EXPECT_EQ(longLine.feed(QByteArray("GET /" + QByteArray(12'000, 'a') + " HTTP/1.1\r\n\r\n")),
              HttpRequestReader::State::Complete);
    HttpRequestReader endless;
    HttpRequestReader::State last = HttpRequestReader::State::NeedMore;
    for (int i = 0; i < 1024 && last == HttpRequestReader::State::NeedMore; ++i)
        last = endless.feed(QByteArray("X-Padding: " + QByteArray(1000, 'p') + "\r\n"));
    EXPECT_EQ(last, HttpRequestReader::State::TooLarge);

    // Bare line feeds, a line with no path, stray or non-UTF-8 escapes, a NUL.
    EXPECT_EQ(HttpRequestReader::parse("GET /a%20b HTTP/1.0").path, QStringLiteral("/a b"));
    EXPECT_TRUE(HttpRequestReader::parse("GET").path.isEmpty());
    EXPECT_TRUE(HttpRequestReader::parse("GET /%zz HTTP/1.1").badTarget);
    EXPECT_TRUE(HttpRequestReader::parse("GET /%c3%28 HTTP/1.1").badTarget);
    EXPECT_TRUE(HttpRequestReader::parse("GET /a%00 HTTP/1.1").badTarget);
    EXPECT_TRUE(HttpRequestReader::parse("GET /a% HTTP/1.1").badTarget);
    HttpRequestReader lf;
    EXPECT_EQ(lf.feed("GET / HTTP/1.1\nHost: x\n\n"), HttpRequestReader::State::Complete);
}

TEST(HttpAnswers, OnlyTheTokenOpensTheListAndItsFiles)
{
    LanguageStore::shared().setLanguageForThisRun(AppLanguage::Fr);
    const QByteArray notFound = HttpAnswers::notFound;
    // Strangers: no token, a wrong one, a prefix of it, a longer one, the bare paths of a server without one.
    for (const QByteArray& path :
         {QByteArray("/"), QByteArray("/f/0"), QByteArray("/abcdefghijklmnopqrstuvwxy/"),
          QByteArray("/abcdefghijklmnopqrstuvwxyzz/"), QByteArray("/ABCDEFGHIJKLMNOPQRSTUVWXYZ/"),
          QByteArray("/bbcdefghijklmnopqrstuvwxyz/f/0"), QByteArray("//abcdefghijklmnopqrstuvwxyz/"),
          QByteArray("/abcdefghijklmnopqrstuvwxyz/f/"), QByteArray("/abcdefghijklmnopqrstuvwxyz/f/2"),
          QByteArray("/abcdefghijklmnopqrstuvwxyz/f/-1"), QByteArray("/abcdefghijklmnopqrstuvwxyz/f/+1"),
          QByteArray("/abcdefghijklmnopqrstuvwxyz/f/1a"),
          QByteArray("/abcdefghijklmnopqrstuvwxyz/f/99999999999999999999999"),
          QByteArray("/abcdefghijklmnopqrstuvwxyz/f/..%2f..%2fetc%2fpasswd"),
          QByteArray("/abcdefghijklmnopqrstuvwxyz/../f/0"), QByteArray("/abcdefghijklmnopqrstuvwxyz/f/0/"),
          QByteArray("/abcdefghijklmnopqrstuvwxyz/%2e%2e/f/0"), QByteArray("abcdefghijklmnopqrstuvwxyz/f/0"),
          QByteArray("/abcdefghijklmnopqrstuvwxyz/f/%zz")}) {
        const HttpAnswer answer = ask(QByteArray("GET " + path + " HTTP/1.1\r\n\r\n"));
        EXPECT_EQ(answer.head, notFound) << path.constData();
        EXPECT_EQ(answer.file, -1);
    }
    EXPECT_EQ(ask("GET\r\n\r\n").head, notFound);

    // The token without its slash is sent to the list; other methods are refused.
    const HttpAnswer redirect = ask("GET /abcdefghijklmnopqrstuvwxyz HTTP/1.1\r\n\r\n");
    EXPECT_EQ(redirect.status, 301);
    EXPECT_EQ(header(redirect, "Location"), "/abcdefghijklmnopqrstuvwxyz/");
    EXPECT_EQ(ask("POST /abcdefghijklmnopqrstuvwxyz/ HTTP/1.1\r\n\r\n").status, 405);
    EXPECT_EQ(ask("DELETE /abcdefghijklmnopqrstuvwxyz/f/0 HTTP/1.1\r\n\r\n").status, 405);

    // The list: relative links, names as text.
    const HttpAnswer index = ask("GET /abcdefghijklmnopqrstuvwxyz/ HTTP/1.1\r\n\r\n");
    EXPECT_EQ(index.status, 200);
    EXPECT_EQ(header(index, "Content-Length").toLongLong(), index.body.size());
    EXPECT_TRUE(index.body.contains("<a href=\"f/0\""));
    EXPECT_TRUE(index.body.contains("<a href=\"f/1\""));
    EXPECT_TRUE(index.body.contains("Vidéo &lt;vacances&gt; &amp; plage.mov</a>"));
    EXPECT_FALSE(index.body.contains("<vacances>"));
    EXPECT_TRUE(index.body.startsWith("<!doctype html><html><head><meta charset=\"utf-8\">"));

    // A file by its percent-encoded number; HEAD says the same without the bytes.
    const HttpAnswer first = ask("GET /abcdefghijklmnopqrstuvwxyz/f/%30 HTTP/1.1\r\n\r\n");
    EXPECT_EQ(first.status, 200);
    EXPECT_EQ(first.file, 0);
    EXPECT_EQ(first.length, 3'000'000'000);
    EXPECT_EQ(header(first, "Content-Length"), "3000000000");
    EXPECT_EQ(header(first, "Accept-Ranges"), "bytes");
    EXPECT_EQ(header(first, "Last-Modified"), "Tue, 14 Jul 2026 08:30:00 GMT");
    const HttpAnswer probe = ask("HEAD /abcdefghijklmnopqrstuvwxyz/f/0 HTTP/1.1\r\n\r\n");
    EXPECT_EQ(probe.head, first.head);
    EXPECT_EQ(probe.file, -1);
    EXPECT_TRUE(probe.body.isEmpty());
    const HttpAnswer empty = ask("GET /abcdefghijklmnopqrstuvwxyz/f/1 HTTP/1.1\r\n\r\n");
    EXPECT_EQ(header(empty, "Content-Length"), "0");
    EXPECT_EQ(empty.length, 0);
}

TEST(HttpAnswers, RangesAsSafariAsksForThem)
{
    using Kind = HttpAnswers::Range::Kind;
    const auto range = [](const char* header, qint64 size) { return HttpAnswers::parseRange(header, size); };
    EXPECT_EQ(range("bytes=0-1", 100).kind, Kind::Part);
    EXPECT_EQ(range("bytes=0-1", 100).last, 1);
    EXPECT_EQ(range("bytes=90-", 100).first, 90);
    EXPECT_EQ(range("bytes=90-", 100).last, 99);
    EXPECT_EQ(range("bytes=-10", 100).first, 90);
    EXPECT_EQ(range("bytes=-1000", 100).first, 0);
    EXPECT_EQ(range("bytes=50-99999999999999999999999", 100).last, 99);
    EXPECT_EQ(range("BYTES = 5-6", 100).kind, Kind::Whole); // not the unit as written
    EXPECT_EQ(range("bytes=5-6", 100).kind, Kind::Part);
    // Invalid: ignored, the whole file.
    for (const char* invalid : {"", "bytes", "bytes=", "bytes=-", "bytes=a-b", "bytes=5-4", "items=0-1", "bytes=--1",
                                "bytes=0-1,5-6", "bytes= 1 - 2 - 3"})
        EXPECT_EQ(range(invalid, 100).kind, Kind::Whole) << invalid;
    // Beyond the end, a zero suffix, anything of an empty file: 416.
    for (const auto& [header, size] :
         {std::pair{"bytes=100-", qint64(100)}, std::pair{"bytes=-0", qint64(100)}, std::pair{"bytes=0-", qint64(0)},
          std::pair{"bytes=-5", qint64(0)}, std::pair{"bytes=99999999999999999999-", qint64(100)}})
        EXPECT_EQ(range(header, size).kind, Kind::Unsatisfiable) << header;

    const HttpAnswer part = ask("GET /abcdefghijklmnopqrstuvwxyz/f/0 HTTP/1.1\r\nRange: bytes=1000-1999\r\n\r\n");
    EXPECT_EQ(part.status, 206);
    EXPECT_EQ(part.offset, 1000);
    EXPECT_EQ(part.length, 1000);
    EXPECT_EQ(header(part, "Content-Range"), "bytes 1000-1999/3000000000");
    const HttpAnswer beyond = ask("GET /abcdefghijklmnopqrstuvwxyz/f/1 HTTP/1.1\r\nRange: bytes=0-\r\n\r\n");
    EXPECT_EQ(beyond.status, 416);
    EXPECT_EQ(header(beyond, "Content-Range"), "bytes */0");
    EXPECT_EQ(ask("GET /abcdefghijklmnopqrstuvwxyz/f/0 HTTP/1.1\r\nRange: bytes=0-1,4-5\r\n\r\n").status, 200);
    EXPECT_EQ(ask("GET /abcdefghijklmnopqrstuvwxyz/f/0 HTTP/1.1\r\nRange:\r\n\r\n").status, 200);
}

TEST(HttpAnswers, NoNameCanWriteAHeaderAndTokensDoNotRepeat)
{
    for (const QString& name : {QStringLiteral("a\"; filename=evil.exe"), QStringLiteral("ligne\r\nSet-Cookie: x=1"),
                                QStringLiteral("été 😀 ü.pdf"), QStringLiteral("100%.txt"),
                                QStringLiteral("back\\slash"), QStringLiteral("\t")}) {
        const QByteArray value = HttpAnswers::contentDisposition(name);
        EXPECT_FALSE(value.contains('\r') || value.contains('\n')) << value.constData();
        // One quoted stand-in, ASCII only, then the exact name, which decodes back.
        const QRegularExpression form(
            QStringLiteral("^attachment; filename=\"([ -~]*)\"; filename\\*=UTF-8''([A-Za-z0-9!#$&+\\-.^_`|~%]*)$"));
        const QRegularExpressionMatch match = form.match(QString::fromLatin1(value));
        ASSERT_TRUE(match.hasMatch()) << value.constData();
        EXPECT_FALSE(match.captured(1).contains(u'"'));
        EXPECT_EQ(QString::fromUtf8(QByteArray::fromPercentEncoding(match.captured(2).toLatin1())), name);
    }
    EXPECT_EQ(HttpAnswers::contentDisposition(QStringLiteral("été 😀.pdf")),
              "attachment; filename=\"_t_ _.pdf\"; filename*=UTF-8''%C3%A9t%C3%A9%20%F0%9F%98%80.pdf");

    QSet<QString> seen;
    for (int i = 0; i < 1000; ++i) {
        const QString made = HttpAnswers::newToken();
        EXPECT_TRUE(QRegularExpression(QStringLiteral("^[a-z2-7]{26}$")).match(made).hasMatch());
        seen.insert(made);
    }
    EXPECT_EQ(seen.size(), 1000);
}
