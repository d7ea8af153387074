#include "engines/conversations/ConversationSource.h"

#include "engines/conversations/ChatDatabase.h"
#include "engines/conversations/ConversationError.h"
#include "engines/conversations/MessagesReader.h"
#include "engines/conversations/PastedText.h"
#include "engines/conversations/TelegramExport.h"
#include "engines/conversations/WhatsAppArchive.h"
#include "engines/conversations/WhatsAppParser.h"
#include "engines/conversations/WhatsAppReader.h"
#include "ground/RegularFile.h"
#include "l10n/L.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>

namespace nuvrel {

namespace {

// A database read by one of the readers, which share their shape: a listing and one conversation.
// Its private copy is made once and serves every call, so that saving all its conversations copies
// the database once, not once per conversation.
template <typename Reader, ConvSource Kind>
class Database final : public ConversationSource
{
public:
    explicit Database(QString file)
        : m_database(std::move(file))
    {}
    std::optional<ConvSource> kind() const override { return Kind; }
    QList<MessagesChatInfo> listChats() const override
    {
        return m_database.with([](sqlite3* db) { return Reader::listChats(db); });
    }
    ChatTranscript transcript(const MessagesChatInfo& chat) const override
    {
        ChatTranscript transcript =
            m_database.with([&chat](sqlite3* db) { return Reader::messages(db, chat.id, chat.title); });
        if (transcript.messages.isEmpty())
            throw ConversationError::empty();
        return transcript;
    }
    qint64 messageCount() const override
    {
        if constexpr (Kind == ConvSource::Messages)
            return m_database.with([](sqlite3* db) { return MessagesReader::messageCount(db); });
        else
            return -1;
    }

private:
    KeptChatDatabase m_database;
};

using MessagesDatabase = Database<MessagesReader, ConvSource::Messages>;
using WhatsAppDatabase = Database<WhatsAppReader, ConvSource::WhatsApp>;

// An export is parsed once, when it is first asked for, and streamed from the file; the conversation
// it makes stays in memory, so a file far beyond the largest real ones (tens of megabytes) is refused.
constexpr qint64 maxExportSize = qint64(512) * 1024 * 1024;
class WhatsAppExport final : public ConversationSource
{
public:
    explicit WhatsAppExport(QString file)
        : m_file(std::move(file))
    {}
    std::optional<ConvSource> kind() const override { return ConvSource::WhatsApp; }
    QList<MessagesChatInfo> listChats() const override
    {
        const ChatTranscript& chat = parsed();
        return {MessagesChatInfo{1, chat.title, chat.messages.size(),
                                 chat.messages.isEmpty() ? QDateTime() : chat.messages.constLast().date}};
    }
    ChatTranscript transcript(const MessagesChatInfo& chat) const override
    {
        if (chat.id != 1)
            throw ConversationError::empty();
        const ChatTranscript& whole = parsed();
        if (whole.messages.isEmpty())
            throw ConversationError::empty();
        return whole;
    }

private:
    const ChatTranscript& parsed() const
    {
        if (!m_parsed) {
            QFile file;
            if (!openRegularFile(file, m_file, {maxExportSize})) {
                if (errno == EFBIG)
                    throw ConversationError::tooLarge(m_file, maxExportSize);
                throw ConversationError::file(FileError::fromErrno(FileError::Operation::Read, errno, m_file));
            }
            // The export's own name ("WhatsApp Chat with Ana") names a conversation that lists no sender.
            std::optional<ChatTranscript> transcript =
                WhatsAppParser::parse(file, QFileInfo(m_file).completeBaseName());
            if (!transcript)
                throw ConversationError::unreadable();
            m_parsed = std::move(transcript);
        }
        return *m_parsed;
    }

    QString m_file;
    mutable std::optional<ChatTranscript> m_parsed;
};

// A Telegram Desktop export: read as a stream at each call, never held whole.
class TelegramSource final : public ConversationSource
{
public:
    explicit TelegramSource(QString file)
        : m_file(std::move(file))
    {}
    std::optional<ConvSource> kind() const override { return ConvSource::Telegram; }
    QList<MessagesChatInfo> listChats() const override { return TelegramExport::listChats(m_file); }
    ChatTranscript transcript(const MessagesChatInfo& chat) const override
    {
        return TelegramExport::transcript(m_file, chat.id);
    }

private:
    QString m_file;
};

// Text the user pasted: one conversation, number 1.
class PastedSource final : public ConversationSource
{
public:
    explicit PastedSource(const QString& text)
    {
        if (std::optional<PastedText::Result> parsed = PastedText::parse(text))
            m_transcript = std::move(parsed->transcript);
    }
    std::optional<ConvSource> kind() const override { return std::nullopt; }
    QList<MessagesChatInfo> listChats() const override
    {
        if (m_transcript.messages.isEmpty())
            return {};
        return {MessagesChatInfo{1, m_transcript.title, m_transcript.messages.size(),
                                 m_transcript.messages.constLast().date}};
    }
    ChatTranscript transcript(const MessagesChatInfo& chat) const override
    {
        if (chat.id != 1 || m_transcript.messages.isEmpty())
            throw ConversationError::empty();
        return m_transcript;
    }

private:
    ChatTranscript m_transcript;
};

} // namespace

QString ConversationSource::label() const
{
    const std::optional<ConvSource> source = kind();
    return source ? title(*source) : L("Texte collé");
}

std::unique_ptr<ConversationSource> ConversationSource::pastedText(const QString& text)
{
    return std::make_unique<PastedSource>(text);
}

std::unique_ptr<ConversationSource> ConversationSource::whatsAppArchive(QString file)
{
    return std::make_unique<WhatsAppArchive>(std::move(file));
}

std::unique_ptr<ConversationSource> ConversationSource::telegramExport(QString file)
{
    return std::make_unique<TelegramSource>(std::move(file));
}

std::unique_ptr<ConversationSource> ConversationSource::messagesDatabase(QString file)
{
    return std::make_unique<MessagesDatabase>(std::move(file));
}

std::unique_ptr<ConversationSource> ConversationSource::whatsAppDatabase(QString file)
{
    return std::make_unique<WhatsAppDatabase>(std::move(file));
}

std::unique_ptr<ConversationSource> ConversationSource::whatsAppExport(QString file)
{
    return std::make_unique<WhatsAppExport>(std::move(file));
}

std::unique_ptr<ConversationSource> ConversationSource::forFile(QString file)
{
    const QString name = QFileInfo(file).fileName();
    if (name.startsWith(QLatin1StringView("ChatStorage")))
        return whatsAppDatabase(std::move(file));
    if (name.endsWith(QLatin1StringView(".txt"), Qt::CaseInsensitive))
        return whatsAppExport(std::move(file));
    if (name.endsWith(QLatin1StringView(".json"), Qt::CaseInsensitive))
        return telegramExport(std::move(file));
    if (name.endsWith(QLatin1StringView(".zip"), Qt::CaseInsensitive) || WhatsAppArchive::looksLikeZip(file))
        return whatsAppArchive(std::move(file));
    return messagesDatabase(std::move(file));
}

} // namespace nuvrel
