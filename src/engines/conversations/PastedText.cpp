#include "engines/conversations/PastedText.h"

#include "engines/conversations/ChatFilters.h"
#include "engines/conversations/WhatsAppParser.h"
#include "l10n/L.h"

#include <QRegularExpression>

#include <algorithm>

namespace nuvrel {

namespace {

// "[12/03/2024 10:04] Ana : texte", with the date in one of the orders people's tools write.
const QRegularExpression& bracketedLine()
{
    static const QRegularExpression line(QStringLiteral("^\\[([^\\]]{4,40})\\]\\s*([^:\\n]{1,60}?)\\s?:\\s(.*)$"));
    return line;
}

// "Ana : texte" or "Ana: texte": a short name without brackets or digits alone.
const QRegularExpression& namedLine()
{
    static const QRegularExpression line(QStringLiteral("^([^:\\[\\]\\n]{1,40}?)\\s?:\\s+(.*)$"));
    return line;
}

QDateTime dateOf(const QString& written)
{
    static const char* const formats[] = {"dd/MM/yyyy HH:mm:ss", "dd/MM/yyyy HH:mm",  "dd/MM/yyyy, HH:mm:ss",
                                          "dd/MM/yyyy, HH:mm",   "dd/MM/yy HH:mm",    "dd/MM/yy, HH:mm",
                                          "dd.MM.yyyy HH:mm:ss", "dd.MM.yyyy HH:mm",  "dd.MM.yy HH:mm",
                                          "yyyy-MM-dd HH:mm:ss", "yyyy-MM-dd HH:mm",  "yyyy-MM-ddTHH:mm:ss",
                                          "dd/MM/yyyy à HH:mm",  "dd/MM/yyyy HH'h'mm"};
    const QString trimmed = written.simplified();
    for (const char* format : formats) {
        const QString pattern = QString::fromLatin1(format);
        QDateTime date = QDateTime::fromString(trimmed, pattern);
        if (date.isValid()) {
            // Two digits of a year are read in the 1900s: a pasted chat is of this century.
            return pattern.contains(QLatin1StringView("yyyy")) ? date : date.addYears(100);
        }
    }
    return {};
}

QString titleFor(const ChatTranscript& transcript)
{
    const QStringList senders = sendersOf(transcript);
    return !senders.isEmpty() && senders.size() <= 3 ? senders.join(QStringLiteral(" / ")) : L("Conversation collée");
}

// Lines of `text` made into messages by `start`, which reads a line that begins one, or says it does not.
template <typename Start>
ChatTranscript byLines(const QString& text, Start&& start)
{
    ChatTranscript transcript;
    const QStringList lines = text.split(u'\n');
    for (const QString& raw : lines) {
        const QString line = raw.endsWith(u'\r') ? raw.chopped(1) : raw;
        // Read as the first line was: without the spaces around it.
        if (std::optional<ChatMessage> message = start(line.trimmed())) {
            if (!message->date.isValid())
                ++transcript.undatedLines;
            transcript.messages.append(std::move(*message));
        } else if (!transcript.messages.isEmpty()) {
            QString& body = transcript.messages.last().text;
            body += u'\n' + line;
        }
    }
    for (ChatMessage& message : transcript.messages)
        message.text = trimmedText(message.text);
    transcript.undatedLines = 0; // a layout without dates is no damage: nothing was left unread
    return transcript;
}

QString firstLine(const QString& text)
{
    for (const QStringView line : QStringView(text).split(u'\n')) {
        if (!line.trimmed().isEmpty())
            return line.trimmed().toString();
    }
    return {};
}

} // namespace

std::optional<PastedText::Result> PastedText::parse(const QString& text)
{
    const QString first = firstLine(text);
    if (first.isEmpty())
        return std::nullopt;

    // Lines that begin with a date: WhatsApp's, or "[date] Name : text"; where both read the first line,
    // the one that dates more messages wins (WhatsApp's reader knows fewer ways of writing a date).
    std::optional<Result> dated;
    if (std::optional<ChatTranscript> whatsApp = WhatsAppParser::parse(first, QString());
        whatsApp && !whatsApp->messages.isEmpty() && whatsApp->messages.constFirst().date.isValid()) {
        if (std::optional<ChatTranscript> whole = WhatsAppParser::parse(text, QString())) {
            // Typed by hand, "Ana : texte" leaves a space the phone's own lines never have.
            for (ChatMessage& message : whole->messages)
                message.sender = message.sender.trimmed();
            dated = Result{std::move(*whole), Layout::WhatsApp};
        }
    }
    if (bracketedLine().match(first).hasMatch()) {
        ChatTranscript transcript = byLines(text, [](const QString& line) -> std::optional<ChatMessage> {
            const QRegularExpressionMatch match = bracketedLine().match(line);
            if (!match.hasMatch())
                return std::nullopt;
            return ChatMessage{dateOf(match.captured(1)), match.captured(2).trimmed(), match.captured(3), {}};
        });
        const auto datedCount = [](const ChatTranscript& chat) {
            return std::count_if(chat.messages.cbegin(), chat.messages.cend(),
                                 [](const ChatMessage& message) { return message.date.isValid(); });
        };
        if (!dated || datedCount(transcript) > datedCount(dated->transcript))
            dated = Result{std::move(transcript), Layout::Bracketed};
    }
    if (dated && !dated->transcript.messages.isEmpty()) {
        dated->transcript.title = titleFor(dated->transcript);
        return dated;
    }

    if (namedLine().match(first).hasMatch()) {
        ChatTranscript transcript = byLines(text, [](const QString& line) -> std::optional<ChatMessage> {
            const QRegularExpressionMatch match = namedLine().match(line);
            if (!match.hasMatch())
                return std::nullopt;
            return ChatMessage{QDateTime(), match.captured(1).trimmed(), match.captured(2), {}};
        });
        if (!transcript.messages.isEmpty()) {
            transcript.title = titleFor(transcript);
            return Result{std::move(transcript), Layout::Named};
        }
    }

    ChatTranscript transcript;
    transcript.messages.append(ChatMessage{QDateTime(), L("Contact"), trimmedText(text), {}});
    transcript.title = L("Conversation collée");
    return Result{std::move(transcript), Layout::Block};
}

} // namespace nuvrel
