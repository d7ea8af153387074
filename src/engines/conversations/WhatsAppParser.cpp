#include "engines/conversations/WhatsAppParser.h"

#include "engines/conversations/ConversationError.h"
#include "ground/Dates.h"
#include "l10n/L.h"

#include <QFileDevice>
#include <QHash>
#include <QRegularExpression>
#include <QTimeZone>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace nuvrel {

namespace {

// The numbers of a message line as written: the date, the time and the am/pm marker.
struct Raw
{
    int a = 1;
    int b = 1;
    int y = 2000;
    int h = 0;
    int mi = 0;
    int s = 0;
    char16_t marker = 0; ///< 'a', 'p' or 0: all the rules need of the am/pm marker
    bool yearFirst = false;
};

// Unicode-aware \s and \d, as in the ICU engine the exports were first read with: iPhone exports put
// U+202F NARROW NO-BREAK SPACE before "PM".
constexpr auto patternOptions = QRegularExpression::UseUnicodePropertiesOption;

const QRegularExpression& iphoneLine()
{
    static const QRegularExpression pattern(
        QStringLiteral("^\\[(\\d{1,2})[./](\\d{1,2})[./](\\d{2,4}),?\\s+(\\d{1,2}):(\\d{2})(?::(\\d{2}))?\\s?"
                       "([AaPp]\\.?[Mm]\\.?)?\\]\\s?(.*)$"),
        patternOptions);
    return pattern;
}

const QRegularExpression& androidLine()
{
    static const QRegularExpression pattern(
        QStringLiteral("^(\\d{1,2})[./](\\d{1,2})[./](\\d{2,4}),?\\s+(\\d{1,2}):(\\d{2})(?::(\\d{2}))?\\s?"
                       "([AaPp]\\.?[Mm]\\.?)?\\s-\\s(.*)$"),
        patternOptions);
    return pattern;
}

// Layouts real exports also use, tried only on a file the two lines above cannot read at all:
// a space inside the marker ("p. m.") and year-first dates ("2019/01/30, 20:49 - ").
struct Loose
{
    QRegularExpression pattern;
    bool yearFirst;
};

const QList<Loose>& looseLines()
{
    static const QList<Loose> patterns{
        {QRegularExpression(QStringLiteral("^\\[(\\d{1,2})[./](\\d{1,2})[./](\\d{2,4}),?\\s+(\\d{1,2}):(\\d{2})"
                                           "(?::(\\d{2}))?\\s?([AaPp]\\.?\\s?[Mm]\\.?)?\\]\\s?(.*)$"),
                            patternOptions),
         false},
        {QRegularExpression(QStringLiteral("^(\\d{1,2})[./](\\d{1,2})[./](\\d{2,4}),?\\s+(\\d{1,2}):(\\d{2})"
                                           "(?::(\\d{2}))?\\s?([AaPp]\\.?\\s?[Mm]\\.?)?\\s-\\s(.*)$"),
                            patternOptions),
         false},
        {QRegularExpression(QStringLiteral("^\\[(\\d{4})[./-](\\d{1,2})[./-](\\d{1,2}),?\\s+(\\d{1,2}):(\\d{2})"
                                           "(?::(\\d{2}))?\\s?([AaPp]\\.?\\s?[Mm]\\.?)?\\]\\s?(.*)$"),
                            patternOptions),
         true},
        {QRegularExpression(QStringLiteral("^(\\d{4})[./-](\\d{1,2})[./-](\\d{1,2}),?\\s+(\\d{1,2}):(\\d{2})"
                                           "(?::(\\d{2}))?\\s?([AaPp]\\.?\\s?[Mm]\\.?)?\\s-\\s(.*)$"),
                            patternOptions),
         true},
    };
    return patterns;
}

// The groups hold one to four digits, so the value always fits; an empty group takes the default.
int number(const QRegularExpressionMatch& match, int group, int fallback)
{
    const QStringView digits = match.capturedView(group);
    if (digits.isEmpty())
        return fallback;
    int value = 0;
    for (QChar c : digits) {
        const int digit = c.digitValue(); // \d is Unicode-aware: any decimal digit counts
        if (digit < 0)
            return fallback;
        value = value * 10 + digit;
    }
    return value;
}

Raw fromMatch(const QRegularExpressionMatch& match, bool yearFirst)
{
    Raw raw;
    raw.yearFirst = yearFirst;
    if (yearFirst) {
        raw.y = number(match, 1, 2000);
        raw.a = number(match, 2, 1);
        raw.b = number(match, 3, 1);
    } else {
        raw.a = number(match, 1, 1);
        raw.b = number(match, 2, 1);
        raw.y = number(match, 3, 2000);
    }
    raw.h = number(match, 4, 0);
    raw.mi = number(match, 5, 0);
    raw.s = number(match, 6, 0);
    const QStringView marker = match.capturedView(7);
    raw.marker = marker.isEmpty() ? char16_t(0) : marker.front().toLower().unicode();
    return raw;
}

bool isLineEnd(QChar c)
{
    switch (c.unicode()) {
    case u'\n':
    case u'\v':
    case u'\f':
    case u'\r':
    case 0x0085:
    case 0x2028:
    case 0x2029: return true;
    default: return false;
    }
}

// Marks WhatsApp scatters through its exports, invisible and never part of what was written.
bool isInvisibleMark(QChar c)
{
    return c == QChar(0x200E) || c == QChar(0x200F) || c == QChar(0xFEFF);
}

// Cuts text fed in pieces into lines, whatever the pieces' boundaries (a CR LF may be split between two
// reads), and hands each line on without the invisible marks.
class LineSplitter
{
public:
    template <typename Sink>
    bool feed(QStringView text, Sink&& sink)
    {
        qsizetype start = 0;
        for (qsizetype i = 0; i < text.size(); ++i) {
            const QChar c = text[i];
            if (std::exchange(m_afterCarriageReturn, false) && c == u'\n') {
                start = i + 1;
                continue;
            }
            if (!isLineEnd(c))
                continue;
            if (!hand(text.sliced(start, i - start), sink))
                return false;
            m_afterCarriageReturn = c == u'\r';
            start = i + 1;
        }
        m_carry += text.sliced(start);
        return true;
    }

    /// The last line, which no line end closes.
    template <typename Sink>
    void finish(Sink&& sink)
    {
        const QString last = std::exchange(m_carry, QString());
        hand(last, sink);
    }

private:
    template <typename Sink>
    bool hand(QStringView piece, Sink& sink)
    {
        if (!m_carry.isEmpty()) {
            m_carry += piece;
            const QString line = std::exchange(m_carry, QString());
            return handClean(line, sink);
        }
        return handClean(piece, sink);
    }

    template <typename Sink>
    bool handClean(QStringView line, Sink& sink)
    {
        if (std::none_of(line.begin(), line.end(), isInvisibleMark))
            return sink(line);
        QString clean;
        clean.reserve(line.size());
        for (QChar c : line) {
            if (!isInvisibleMark(c))
                clean += c;
        }
        return sink(QStringView(clean));
    }

    QString m_carry;
    bool m_afterCarriageReturn = false;
};

// Every line of a text, in order; `sink` returns false to stop.
template <typename Sink>
void forEachLine(QStringView text, Sink&& sink)
{
    LineSplitter splitter;
    if (splitter.feed(text, sink))
        splitter.finish(sink);
}

// How many bytes at the end of `bytes` start a UTF-8 sequence that only the next piece completes.
qsizetype incompleteTail(QByteArrayView bytes)
{
    for (qsizetype back = 1; back <= std::min<qsizetype>(3, bytes.size()); ++back) {
        const auto c = static_cast<unsigned char>(bytes[bytes.size() - back]);
        if ((c & 0xC0) == 0x80)
            continue; // a continuation byte: its lead is further back
        const qsizetype length = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
        return length > back ? back : 0;
    }
    return 0;
}

// Every line of a UTF-8 file read in pieces from its start, so that the file never sits whole in
// memory; false when the device fails to read. Pieces are cut before a lead byte, where decoding
// starts afresh, so that the text is the one QString::fromUtf8 makes of the whole file.
template <typename Sink>
bool forEachLine(QIODevice& device, Sink&& sink)
{
    if (!device.seek(0))
        return false;
    LineSplitter splitter;
    constexpr qsizetype pieceSize = 1 << 20;
    QByteArray bytes;
    while (true) {
        const qsizetype kept = bytes.size();
        bytes.resize(kept + pieceSize);
        const qint64 read = device.read(bytes.data() + kept, pieceSize);
        if (read < 0)
            return false;
        bytes.resize(kept + read);
        if (read == 0)
            break;
        const qsizetype whole = bytes.size() - incompleteTail(bytes);
        if (!splitter.feed(QString::fromUtf8(QByteArrayView(bytes).first(whole)), sink))
            return true;
        bytes.remove(0, whole);
    }
    if (!bytes.isEmpty() && !splitter.feed(QString::fromUtf8(bytes), sink))
        return true;
    splitter.finish(sink);
    return true;
}

// What a line that opens a message says before its text.
struct Stamp
{
    Raw raw;
    qsizetype bodyStart = 0;
};

std::optional<Stamp> stampOf(QStringView line, bool loose)
{
    // Only a line opening with "[" can be an iPhone line and only one opening with a digit an Android
    // line, so at most one pattern is tried; most continuation lines try none.
    if (!loose) {
        const QChar lead = line.isEmpty() ? QChar() : line.front();
        const QRegularExpression* pattern = lead == u'[' ? &iphoneLine() : lead.isDigit() ? &androidLine() : nullptr;
        if (pattern) {
            if (const QRegularExpressionMatch m = pattern->match(line); m.hasMatch())
                return Stamp{fromMatch(m, false), m.capturedStart(8)};
        }
        return std::nullopt;
    }
    for (const Loose& candidate : looseLines()) {
        if (const QRegularExpressionMatch m = candidate.pattern.match(line); m.hasMatch())
            return Stamp{fromMatch(m, candidate.yearFirst), m.capturedStart(8)};
    }
    return std::nullopt;
}

// The first two numbers of a line that may open a message, read without the patterns: a line whose
// numbers are both 12 or less cannot tell the order of day and month, and is not worth matching.
std::optional<std::pair<int, int>> leadingNumbers(QStringView line)
{
    qsizetype i = !line.isEmpty() && line.front() == u'[' ? 1 : 0;
    const auto digits = [&]() -> std::optional<int> {
        int value = 0;
        int count = 0;
        while (i < line.size() && count < 2 && line[i].isDigit()) {
            value = value * 10 + line[i].digitValue();
            ++i;
            ++count;
        }
        return count > 0 ? std::optional<int>(value) : std::nullopt;
    };
    const std::optional<int> a = digits();
    if (!a || i >= line.size() || (line[i] != u'/' && line[i] != u'.'))
        return std::nullopt;
    ++i;
    const std::optional<int> b = digits();
    if (!b)
        return std::nullopt;
    return std::pair(*a, *b);
}

// What a first reading finds out about a file: whether its lines follow the usual layouts, and how
// many of them can only be day-first or only month-first.
struct Survey
{
    bool found = false;
    qsizetype dayOver12 = 0;
    qsizetype secondOver12 = 0;

    /// The order of day and month is one decision for the whole file, the one most lines need; lines
    /// in the other order are kept as text.
    bool dayFirst() const { return dayOver12 >= secondOver12; }
};

template <typename Lines>
Survey survey(Lines&& forEach, bool loose)
{
    Survey result;
    forEach([&](QStringView line) {
        if (!loose) {
            const std::optional<std::pair<int, int>> numbers = leadingNumbers(line);
            if (!numbers || (result.found && numbers->first <= 12 && numbers->second <= 12))
                return true;
        }
        if (const std::optional<Stamp> stamp = stampOf(line, loose)) {
            result.found = true;
            result.dayOver12 += stamp->raw.a > 12;
            result.secondOver12 += stamp->raw.b > 12;
        }
        return true;
    });
    return result;
}

// Local wall-clock times to instants, read in the system's time zone and kept in UTC: a date in UTC
// lives inside its QDateTime, where one in a zone takes an allocation of its own per message. Asking
// the zone for every message costs more than all the rest of the parsing, so the offset is kept per
// date and hour, except in an hour where it changes (a daylight-saving switch), converted exactly.
class LocalClock
{
public:
    QDateTime at(QDate date, QTime time)
    {
        const qint64 key = date.toJulianDay() * 24 + time.hour();
        auto cached = m_offsets.constFind(key);
        if (cached == m_offsets.cend()) {
            const int start = QDateTime(date, QTime(time.hour(), 0), m_zone).offsetFromUtc();
            const int end = QDateTime(date, QTime(time.hour(), 59, 59), m_zone).offsetFromUtc();
            cached = m_offsets.insert(key, start == end ? std::optional<int>(start) : std::nullopt);
        }
        if (!cached.value())
            return QDateTime(date, time, m_zone).toUTC();
        const qint64 localMSecs =
            (date.toJulianDay() - QDate(1970, 1, 1).toJulianDay()) * 86'400'000 + time.msecsSinceStartOfDay();
        return utcFromMSecsSinceEpoch(localMSecs - qint64(*cached.value()) * 1000);
    }

private:
    QTimeZone m_zone = QTimeZone::systemTimeZone();
    QHash<qint64, std::optional<int>> m_offsets;
};

// The wall-clock time a stamp stands for, or nothing when it names no real date or time.
std::optional<QDateTime> dateOf(const Raw& raw, bool dayFirst, LocalClock& clock)
{
    const bool monthFirst = raw.yearFirst || !dayFirst;
    const int day = monthFirst ? raw.b : raw.a;
    const int month = monthFirst ? raw.a : raw.b;
    const int year = raw.y <= 99 ? raw.y + 2000 : raw.y;
    int hour = raw.h;
    if (raw.marker == u'p' && hour < 12)
        hour += 12;
    else if (raw.marker == u'a' && hour == 12)
        hour = 0;
    const QDate date(year, month, day);
    const QTime time(hour, raw.mi, raw.s);
    if (!date.isValid() || !time.isValid())
        return std::nullopt;
    return clock.at(date, time);
}

// Builds the conversation message by message as the lines come.
class Builder
{
public:
    Builder(bool dayFirst, bool loose)
        : m_dayFirst(dayFirst)
        , m_loose(loose)
    {}

    bool line(QStringView line)
    {
        if (std::optional<Stamp> stamp = stampOf(line, m_loose)) {
            close();
            m_stamp = stamp->raw;
            // The whole line is kept: a line whose date turns out unreadable is kept as written.
            m_text = line.toString();
            m_bodyStart = stamp->bodyStart;
        } else if (m_stamp || !line.trimmed().isEmpty() || !m_text.isEmpty()) {
            // Text before the first message is kept too, as a message of unknown time.
            if (m_stamp || !m_text.isEmpty())
                m_text += u'\n';
            m_text += line;
        }
        return true;
    }

    std::optional<ChatTranscript> finish(const QString& fallbackTitle)
    {
        close();
        if (m_transcript.messages.isEmpty())
            return std::nullopt;
        const QString name =
            !m_senders.isEmpty() && m_senders.size() <= 3 ? m_senders.join(QStringLiteral(" / ")) : fallbackTitle;
        m_transcript.title = L("WhatsApp : ") + name;
        return std::move(m_transcript);
    }

private:
    void close()
    {
        if (!m_stamp && m_text.isEmpty())
            return;
        const std::optional<QDateTime> date = m_stamp ? dateOf(*m_stamp, m_dayFirst, m_clock) : std::nullopt;
        if (date)
            addDated(*date);
        else
            keepUndated();
        m_stamp.reset();
        m_text.clear();
        m_bodyStart = 0;
    }

    void addDated(const QDateTime& date)
    {
        ChatMessage message;
        message.date = date;
        const QStringView body = QStringView(m_text).sliced(m_bodyStart);
        const qsizetype colon = body.indexOf(QStringLiteral(": "));
        if (colon >= 0 && colon <= 60 && !body.first(colon).contains(u'\n')) {
            message.sender = sender(body.first(colon));
            message.text = trimmedText(body.sliced(colon + 2));
        } else {
            message.sender = m_system;
            message.text = trimmedText(body);
        }
        m_transcript.messages.append(std::move(message));
    }

    // A line whose date cannot be (31/02, or day and month in the minority's order) is kept whole, as
    // written, in the message before it; nothing anyone wrote may vanish.
    void keepUndated()
    {
        ++m_transcript.undatedLines;
        const QString whole = trimmedText(m_text);
        if (!m_transcript.messages.isEmpty()) {
            QString& text = m_transcript.messages.last().text;
            text += text.isEmpty() ? whole : u'\n' + whole;
            return;
        }
        m_transcript.messages.append(ChatMessage{QDateTime(), m_system, whole, {}});
    }

    // One shared copy of each name, however many messages it signs.
    QString sender(QStringView name)
    {
        const QString key = name.toString();
        auto found = m_senderNames.constFind(key);
        if (found == m_senderNames.cend()) {
            found = m_senderNames.insert(key, key);
            if (key != m_system)
                m_senders.append(key);
        }
        return found.value();
    }

    const bool m_dayFirst;
    const bool m_loose;
    const QString m_system = L("Système");
    LocalClock m_clock;
    ChatTranscript m_transcript;
    QHash<QString, QString> m_senderNames;
    QStringList m_senders; ///< in order of appearance
    std::optional<Raw> m_stamp;
    QString m_text;            ///< the message's lines as written, its first line whole
    qsizetype m_bodyStart = 0; ///< where, in m_text, the first line's text follows its date
};

// Reads the lines twice: once to learn the file's layout and order, then to build the conversation.
QString fileName(const QIODevice& device)
{
    const auto* file = qobject_cast<const QFileDevice*>(&device);
    return file ? file->fileName() : QString();
}

template <typename Lines>
std::optional<ChatTranscript> parseLines(Lines&& forEach, const QString& fallbackTitle)
{
    bool loose = false;
    Survey found = survey(forEach, false);
    if (!found.found) {
        loose = true;
        found = survey(forEach, true);
        if (!found.found)
            return std::nullopt;
    }
    Builder builder(found.dayFirst(), loose);
    if (!forEach([&builder](QStringView line) { return builder.line(line); }))
        return std::nullopt;
    return builder.finish(fallbackTitle);
}

} // namespace

std::optional<ChatTranscript> WhatsAppParser::parse(QStringView text, const QString& fallbackTitle)
{
    return parseLines(
        [text](auto&& sink) {
            forEachLine(text, sink);
            return true;
        },
        fallbackTitle);
}

std::optional<ChatTranscript> WhatsAppParser::parse(QIODevice& file, const QString& fallbackTitle)
{
    bool readFailed = false;
    std::optional<ChatTranscript> transcript = parseLines(
        [&file, &readFailed](auto&& sink) {
            readFailed = !forEachLine(file, sink);
            return !readFailed;
        },
        fallbackTitle);
    if (readFailed)
        throw ConversationError::file(FileError::fromErrno(FileError::Operation::Read, errno, fileName(file)));
    return transcript;
}

} // namespace nuvrel
