#include "engines/transfer/HttpAnswer.h"

#include "l10n/L.h"

#include <QLocale>
#include <QRandomGenerator>

#include <cstring>
#include <limits>

namespace nuvrel::HttpAnswers {

namespace {

/// Compares without stopping at the first difference: the time an answer takes says nothing of how
/// much of a guessed token was right.
bool sameToken(QStringView given, QStringView token)
{
    if (given.size() != token.size())
        return false;
    char16_t difference = 0;
    for (qsizetype i = 0; i < given.size(); ++i)
        difference |= char16_t(given[i].unicode() ^ token[i].unicode());
    return difference == 0;
}

/// A decimal number of digits only, saturated at the largest qint64; nothing when it is not one.
std::optional<qint64> digits(QStringView text)
{
    if (text.isEmpty())
        return std::nullopt;
    qint64 value = 0;
    for (const QChar c : text) {
        if (c < u'0' || c > u'9')
            return std::nullopt;
        const int digit = c.unicode() - u'0';
        value = value > (std::numeric_limits<qint64>::max() - digit) / 10 ? std::numeric_limits<qint64>::max()
                                                                          : value * 10 + digit;
    }
    return value;
}

QByteArray httpDate(const QDateTime& time)
{
    return QLocale::c().toString(time.toUTC(), QStringLiteral("ddd, dd MMM yyyy hh:mm:ss 'GMT'")).toLatin1();
}

QByteArray escaped(const QString& text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        switch (c.unicode()) {
        case '&': out += QLatin1String("&amp;"); break;
        case '<': out += QLatin1String("&lt;"); break;
        case '>': out += QLatin1String("&gt;"); break;
        default: out += c;
        }
    }
    return out.toUtf8();
}

HttpAnswer fixed(int status, QByteArray head)
{
    HttpAnswer answer;
    answer.status = status;
    answer.head = std::move(head);
    return answer;
}

} // namespace

QString newToken()
{
    static constexpr char alphabet[] = "abcdefghijklmnopqrstuvwxyz234567";
    QString token;
    token.reserve(26);
    for (int i = 0; i < 26; ++i)
        token += QLatin1Char(alphabet[QRandomGenerator::system()->bounded(32)]);
    return token;
}

QByteArray contentDisposition(const QString& name)
{
    QByteArray fallback;
    for (const QChar c : name) {
        const char16_t u = c.unicode();
        const bool plain = u >= 0x20 && u < 0x7F && u != '"' && u != '\\' && u != '%';
        if (!c.isLowSurrogate()) // one stand-in per character, not per UTF-16 unit
            fallback += plain ? char(u) : '_';
    }
    QByteArray exact;
    const QByteArray utf8 = name.toUtf8();
    static constexpr char attributeChars[] = "!#$&+-.^_`|~";
    for (const char byte : utf8) {
        const auto u = static_cast<unsigned char>(byte);
        if ((u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9') ||
            (u < 0x80 && std::strchr(attributeChars, byte) != nullptr && byte != 0))
            exact += byte;
        else
            exact += '%' + QByteArray::number(u, 16).rightJustified(2, '0').toUpper();
    }
    return "attachment; filename=\"" + fallback + "\"; filename*=UTF-8''" + exact;
}

Range parseRange(QByteArrayView header, qint64 size)
{
    const QString text = QString::fromLatin1(header).trimmed();
    if (!text.startsWith(QLatin1String("bytes="), Qt::CaseInsensitive) || text.contains(u','))
        return {};
    const QStringView spec = QStringView(text).sliced(6).trimmed();
    const qsizetype dash = spec.indexOf(u'-');
    if (dash < 0)
        return {};
    const QStringView from = spec.first(dash).trimmed();
    const QStringView to = spec.sliced(dash + 1).trimmed();
    if (from.isEmpty()) { // "-N": the last N bytes
        const std::optional<qint64> suffix = digits(to);
        if (!suffix)
            return {};
        if (*suffix == 0 || size == 0)
            return {Range::Kind::Unsatisfiable};
        return {Range::Kind::Part, size - std::min(*suffix, size), size - 1};
    }
    const std::optional<qint64> first = digits(from);
    const std::optional<qint64> last =
        to.isEmpty() ? std::optional<qint64>(std::numeric_limits<qint64>::max()) : digits(to);
    if (!first || !last || *last < *first)
        return {};
    if (*first >= size)
        return {Range::Kind::Unsatisfiable};
    return {Range::Kind::Part, *first, std::min(*last, size - 1)};
}

QByteArray indexPage(const QList<ServedFile>& files)
{
    QByteArray page =
        "<!doctype html><html><head><meta charset=\"utf-8\"><meta name=\"viewport\" content=\"width=device-width, "
        "initial-scale=1\">\n<title>Nuvrel</title></head>\n<body style=\"background:#0B0D14;margin:0;padding:24px;\">\n"
        "<h2 style=\"font-family:-apple-system,sans-serif;color:#F2F4F8;\">";
    page += escaped(L("Fichiers envoyés depuis ton Mac"));
    page += "</h2>\n";
    for (qsizetype n = 0; n < files.size(); ++n) {
        // Relative: the page lives under the token, and so do its links.
        page += "<a href=\"f/" + QByteArray::number(n) +
                "\" style=\"display:block;padding:14px 16px;margin:10px 0;background:#151926;color:#5CF2C4;"
                "border-radius:14px;text-decoration:none;font-family:-apple-system,sans-serif;font-size:17px;"
                "border:1px solid #5CF2C4;\">\xE2\xAC\x87\xEF\xB8\x8F ";
        page += escaped(files[n].name);
        page += "</a>";
    }
    page += "\n</body></html>";
    return page;
}

HttpAnswer answer(const HttpRequest& request, const QString& token, const QList<ServedFile>& files)
{
    const bool head = request.method == "HEAD";
    if (request.method != "GET" && !head) {
        return fixed(405, "HTTP/1.1 405 Method Not Allowed\r\nAllow: GET, HEAD\r\nContent-Length: 0\r\n"
                          "Connection: close\r\n\r\n");
    }
    const QString root = u'/' + token;
    const QStringView path(request.path);
    if (request.badTarget || token.isEmpty() || !path.startsWith(u'/'))
        return fixed(404, notFound);
    // The token first, whole, and compared in constant time.
    const QStringView given = path.sliced(1).first(std::min<qsizetype>(token.size(), path.size() - 1));
    if (!sameToken(given, token))
        return fixed(404, notFound);
    const QStringView rest = path.sliced(root.size());
    if (rest.isEmpty()) {
        return fixed(301, "HTTP/1.1 301 Moved Permanently\r\nLocation: " + root.toLatin1() +
                              "/\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    }
    if (rest == u"/") {
        HttpAnswer page;
        page.status = 200;
        const QByteArray body = indexPage(files);
        page.head = "HTTP/1.1 200 OK\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: " +
                    QByteArray::number(body.size()) + "\r\nCache-Control: no-store\r\nConnection: close\r\n\r\n";
        if (!head)
            page.body = body;
        return page;
    }
    if (!rest.startsWith(u"/f/"))
        return fixed(404, notFound);
    const std::optional<qint64> number = digits(rest.sliced(3));
    if (!number || *number >= files.size())
        return fixed(404, notFound);
    const ServedFile& file = files[int(*number)];

    const Range range = request.hasRange ? parseRange(request.range, file.size) : Range{};
    if (range.kind == Range::Kind::Unsatisfiable) {
        return fixed(416, "HTTP/1.1 416 Range Not Satisfiable\r\nContent-Range: bytes */" +
                              QByteArray::number(file.size) + "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    }
    HttpAnswer sent;
    sent.file = head ? -1 : int(*number);
    const bool part = range.kind == Range::Kind::Part;
    sent.status = part ? 206 : 200;
    sent.offset = part ? range.first : 0;
    sent.length = part ? range.last - range.first + 1 : file.size;
    sent.head = part ? QByteArray("HTTP/1.1 206 Partial Content\r\n") : QByteArray("HTTP/1.1 200 OK\r\n");
    sent.head +=
        "Content-Type: application/octet-stream\r\nContent-Length: " + QByteArray::number(sent.length) + "\r\n";
    if (part) {
        sent.head += "Content-Range: bytes " + QByteArray::number(range.first) + '-' + QByteArray::number(range.last) +
                     '/' + QByteArray::number(file.size) + "\r\n";
    }
    sent.head += "Content-Disposition: " + contentDisposition(file.name) + "\r\nAccept-Ranges: bytes\r\n";
    if (file.modified.isValid())
        sent.head += "Last-Modified: " + httpDate(file.modified) + "\r\n";
    sent.head += "Connection: close\r\n\r\n";
    if (head)
        sent.length = 0;
    return sent;
}

} // namespace nuvrel::HttpAnswers
