#include "engines/conversations/WhatsAppParser.h"

#include "l10n/L.h"

#include <QHash>
#include <QRegularExpression>
#include <QTimeZone>

namespace nuvrel {

namespace {

// One message line as written: the date numbers, the time, the am/pm marker and the rest.
struct Raw
{
    int a = 1;
    int b = 1;
    int y = 2000;
    int h = 0;
    int mi = 0;
    int s = 0;
    char16_t marker = 0;     ///< 'a', 'p' or 0: all the rules need of the am/pm marker
    QStringView first;       ///< the rest of the message line
    QList<QStringView> more; ///< continuation lines
    bool yearFirst = false;

    QString rest() const
    {
        QString joined = first.toString();
        for (QStringView line : more)
            joined += u'\n' + line;
        return joined;
    }
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
    raw.first = match.capturedView(8);
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

QList<QStringView> lines(QStringView text)
{
    QList<QStringView> result;
    qsizetype start = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (!isLineEnd(text[i]))
            continue;
        result.append(text.sliced(start, i - start));
        if (text[i] == u'\r' && i + 1 < text.size() && text[i + 1] == u'\n')
            ++i;
        start = i + 1;
    }
    result.append(text.sliced(start));
    return result;
}

// Lines that match start a message; the others continue the one before (dropped before the first).
QList<Raw> records(const QList<QStringView>& allLines, bool loose)
{
    QList<Raw> found;
    for (QStringView line : allLines) {
        std::optional<Raw> raw;
        // Only a line opening with "[" can be an iPhone line and only one opening with a digit an Android
        // line, so at most one pattern is tried; most continuation lines try none.
        const QChar lead = line.isEmpty() ? QChar() : line.front();
        if (!loose) {
            const QRegularExpression* pattern = lead == u'['     ? &iphoneLine()
                                                : lead.isDigit() ? &androidLine()
                                                                 : nullptr;
            if (pattern) {
                if (const QRegularExpressionMatch m = pattern->match(line); m.hasMatch())
                    raw = fromMatch(m, false);
            }
        } else {
            for (const Loose& candidate : looseLines()) {
                if (const QRegularExpressionMatch m = candidate.pattern.match(line); m.hasMatch()) {
                    raw = fromMatch(m, candidate.yearFirst);
                    break;
                }
            }
        }
        if (raw)
            found.append(std::move(*raw));
        else if (!found.isEmpty())
            found.last().more.append(line);
    }
    return found;
}

// Local wall-clock times to instants in the system's time zone. Asking the zone for every message
// costs more than all the rest of the parsing, so the offset is kept per date and hour, except in an
// hour where it changes (a daylight-saving switch), which is converted exactly.
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
            return QDateTime(date, time, m_zone);
        const qint64 localMSecs =
            (date.toJulianDay() - QDate(1970, 1, 1).toJulianDay()) * 86'400'000 + time.msecsSinceStartOfDay();
        return QDateTime::fromMSecsSinceEpoch(localMSecs - qint64(*cached.value()) * 1000, m_zone);
    }

private:
    QTimeZone m_zone = QTimeZone::systemTimeZone();
    QHash<qint64, std::optional<int>> m_offsets;
};

} // namespace

std::optional<ChatTranscript> WhatsAppParser::parse(QStringView text, const QString& fallbackTitle)
{
    QString cleaned = text.toString();
    cleaned.remove(QChar(0x200E)).remove(QChar(0x200F)).remove(QChar(0xFEFF));
    const QList<QStringView> allLines = lines(cleaned);
    QList<Raw> raws = records(allLines, false);
    if (raws.isEmpty())
        raws = records(allLines, true);

    // The order of day and month is one decision for the whole file.
    bool dayFirst = true;
    if (!std::any_of(raws.cbegin(), raws.cend(), [](const Raw& r) { return r.a > 12; }) &&
        std::any_of(raws.cbegin(), raws.cend(), [](const Raw& r) { return r.b > 12; }))
        dayFirst = false;

    const QString system = L("Système");
    LocalClock clock;
    ChatTranscript transcript;
    QStringList senders;
    for (const Raw& raw : std::as_const(raws)) {
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
            continue;

        ChatMessage message;
        message.date = clock.at(date, time);
        const QString rest = raw.rest();
        const qsizetype colon = rest.indexOf(QStringLiteral(": "));
        if (colon >= 0 && colon <= 60 && !QStringView(rest).first(colon).contains(u'\n')) {
            message.sender = rest.first(colon);
            message.text = trimmedText(QStringView(rest).sliced(colon + 2));
            if (!senders.contains(message.sender))
                senders.append(message.sender);
        } else {
            message.sender = system;
            message.text = trimmedText(rest);
        }
        transcript.messages.append(std::move(message));
    }
    if (transcript.messages.isEmpty())
        return std::nullopt;
    senders.removeAll(system);
    const QString name =
        !senders.isEmpty() && senders.size() <= 3 ? senders.join(QStringLiteral(" / ")) : fallbackTitle;
    transcript.title = L("WhatsApp : ") + name;
    return transcript;
}

} // namespace nuvrel
