#include "engines/transfer/HttpRequest.h"

#include <QStringDecoder>

namespace nuvrel {

namespace {

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

QByteArrayView trimmed(QByteArrayView text)
{
    while (!text.isEmpty() && (text.front() == ' ' || text.front() == '\t'))
        text = text.sliced(1);
    while (!text.isEmpty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r'))
        text.chop(1);
    return text;
}

} // namespace

std::optional<QString> percentDecoded(QByteArrayView text)
{
    QByteArray bytes;
    bytes.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            bytes.append(text[i]);
            continue;
        }
        const int high = i + 2 < text.size() ? hexValue(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? hexValue(text[i + 2]) : -1;
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes.append(char(high * 16 + low));
        i += 2;
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString decoded = decoder.decode(bytes);
    if (decoder.hasError() || decoded.contains(QChar(0)))
        return std::nullopt;
    return decoded;
}

HttpRequest HttpRequestReader::parse(QByteArrayView head)
{
    HttpRequest request;
    qsizetype lineEnd = head.indexOf('\n');
    const QByteArrayView firstLine = trimmed(lineEnd < 0 ? head : head.first(lineEnd));
    // "METHOD SP TARGET SP VERSION"; a line with fewer fields gets what it has.
    const qsizetype firstSpace = firstLine.indexOf(' ');
    request.method = (firstSpace < 0 ? firstLine : firstLine.first(firstSpace)).toByteArray();
    if (firstSpace >= 0) {
        QByteArrayView rest = firstLine.sliced(firstSpace + 1);
        while (!rest.isEmpty() && rest.front() == ' ')
            rest = rest.sliced(1);
        const qsizetype secondSpace = rest.indexOf(' ');
        QByteArrayView target = secondSpace < 0 ? rest : rest.first(secondSpace);
        if (const qsizetype query = target.indexOf('?'); query >= 0)
            target = target.first(query);
        if (const std::optional<QString> path = percentDecoded(target))
            request.path = *path;
        else
            request.badTarget = true;
    }
    // Headers: only Range matters, and only its first occurrence.
    while (lineEnd >= 0) {
        const qsizetype start = lineEnd + 1;
        lineEnd = head.indexOf('\n', start);
        const QByteArrayView line = trimmed(lineEnd < 0 ? head.sliced(start) : head.sliced(start, lineEnd - start));
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0)
            continue;
        if (!request.hasRange && line.first(colon).compare("range", Qt::CaseInsensitive) == 0) {
            request.hasRange = true;
            request.range = trimmed(line.sliced(colon + 1)).toByteArray();
        }
    }
    return request;
}

HttpRequestReader::State HttpRequestReader::feed(QByteArrayView bytes)
{
    if (m_state != State::NeedMore)
        return m_state;
    // Only the part that can still hold the end of the head is searched again.
    const qsizetype from = std::max<qsizetype>(0, m_buffer.size() - 3);
    m_buffer.append(bytes.first(std::min(bytes.size(), maxHeadSize + 4 - m_buffer.size())));
    qsizetype end = m_buffer.indexOf("\r\n\r\n", from);
    qsizetype endLength = 4;
    if (end < 0) { // some clients end lines with a bare LF
        end = m_buffer.indexOf("\n\n", from);
        endLength = 2;
    }
    if (end >= 0 && end + endLength <= maxHeadSize + 4 && end <= maxHeadSize) {
        m_request = parse(QByteArrayView(m_buffer).first(end));
        m_state = State::Complete;
    } else if (m_buffer.size() > maxHeadSize) {
        m_state = State::TooLarge;
    }
    if (m_state != State::NeedMore)
        m_buffer = QByteArray(); // nothing more to keep
    return m_state;
}

} // namespace nuvrel
