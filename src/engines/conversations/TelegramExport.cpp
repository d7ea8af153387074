#include "engines/conversations/TelegramExport.h"

#include "engines/conversations/ConversationError.h"
#include "ground/RegularFile.h"
#include "l10n/L.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>

#include <rapidjson/reader.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace nuvrel {

namespace {

// RapidJSON's input stream over a file, read in pieces: the parser never sees more than one buffer.
class FileStream
{
public:
    using Ch = char;

    explicit FileStream(QFile& file)
        : m_file(file)
    {
        fill();
    }

    Ch Peek() const { return m_position < m_end ? m_buffer[m_position] : '\0'; }
    Ch Take()
    {
        if (m_position >= m_end)
            return '\0';
        const Ch c = m_buffer[m_position++];
        ++m_taken;
        if (m_position == m_end)
            fill();
        return c;
    }
    size_t Tell() const { return m_taken; }
    // Write half of the stream concept, never used by a reader.
    Ch* PutBegin() { return nullptr; }
    void Put(Ch) {}
    void Flush() {}
    size_t PutEnd(Ch*) { return 0; }

    /// errno of a failed read, 0 when every read succeeded.
    int readError() const { return m_readError; }

private:
    void fill()
    {
        const qint64 read = m_file.read(m_buffer.data(), qint64(m_buffer.size()));
        if (read < 0)
            m_readError = errno != 0 ? errno : EIO;
        m_position = 0;
        m_end = size_t(std::max<qint64>(read, 0));
    }

    QFile& m_file;
    std::array<Ch, size_t(256) * 1024> m_buffer{};
    size_t m_position = 0;
    size_t m_end = 0;
    size_t m_taken = 0;
    int m_readError = 0;
};

// The keys the reader acts on; every other key's value is skipped.
enum class Field : quint8 {
    Other,
    Name,
    Type,
    Messages,
    Chats,
    LeftChats,
    List,
    PersonalInformation,
    UserId,
    Id,
    Date,
    DateUnixtime,
    From,
    FromId,
    Actor,
    Action,
    Text,
    Photo,
    File,
    MediaType,
    StickerEmoji,
    ForwardedFrom,
    ReplyToMessageId,
    Members,
    Title,
    Href,
};

Field fieldOf(std::string_view name)
{
    static const QHash<QByteArray, Field> fields{
        {"name", Field::Name},
        {"type", Field::Type},
        {"messages", Field::Messages},
        {"chats", Field::Chats},
        {"left_chats", Field::LeftChats},
        {"list", Field::List},
        {"personal_information", Field::PersonalInformation},
        {"user_id", Field::UserId},
        {"id", Field::Id},
        {"date", Field::Date},
        {"date_unixtime", Field::DateUnixtime},
        {"from", Field::From},
        {"from_id", Field::FromId},
        {"actor", Field::Actor},
        {"action", Field::Action},
        {"text", Field::Text},
        {"photo", Field::Photo},
        {"file", Field::File},
        {"media_type", Field::MediaType},
        {"sticker_emoji", Field::StickerEmoji},
        {"forwarded_from", Field::ForwardedFrom},
        {"reply_to_message_id", Field::ReplyToMessageId},
        {"members", Field::Members},
        {"title", Field::Title},
        {"href", Field::Href},
    };
    return fields.value(QByteArray::fromRawData(name.data(), qsizetype(name.size())), Field::Other);
}

// Where the parser stands: the meaning of the object or array just opened.
enum class Frame : quint8 { Root, Section, ChatList, Chat, Messages, Message, Text, TextPart, Members, Personal, Skip };

// Far deeper than any export; a hostile file nested without end is refused instead.
constexpr size_t maxDepth = 64;

// One message as the file gives it, before it becomes a ChatMessage.
struct RawMessage
{
    qint64 id = 0;
    bool service = false;
    qint64 unixTime = -1;
    std::string date;            ///< bytes as read: made a date only when the message has no Unix time
    std::optional<QString> from; ///< absent, or null: a channel's post
    QString fromId;
    QString actor;
    QString action;
    QString text;
    QString photo;
    QString file;
    QString mediaType;
    QString stickerEmoji;
    QString forwardedFrom;
    qint64 replyTo = 0;
    QStringList members;
    QString title;
    QString partText; ///< the text part being read, with its link
    QString partHref;
};

struct ChatState
{
    qint64 number = 0;
    QString name;
    bool named = false;
    qint64 count = 0;
    qint64 last = std::numeric_limits<qint64>::min(); ///< seconds since 1970 of the newest message
};

QDateTime dateOf(const RawMessage& raw)
{
    if (raw.unixTime >= 0)
        return QDateTime::fromSecsSinceEpoch(raw.unixTime);
    // Older exports: the local time of the computer that made them.
    QDateTime date = QDateTime::fromString(QString::fromUtf8(raw.date.data(), qsizetype(raw.date.size())), Qt::ISODate);
    if (date.isValid())
        date.setTimeSpec(Qt::LocalTime);
    return date;
}

qint64 digits(std::string_view text)
{
    if (text.empty() || text.size() > 15)
        return -1;
    qint64 value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9')
            return -1;
        value = value * 10 + (c - '0');
    }
    return value;
}

QString fromUtf8(std::string_view text)
{
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

// The SAX handler: follows the frames and keeps what the listing or the one chat asked for needs.
class Handler : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Handler>
{
public:
    Handler(QString folder, qint64 wanted)
        : m_folder(std::move(folder))
        , m_wanted(wanted)
    {}

    // Events.
    bool StartObject()
    {
        Frame frame = Frame::Skip;
        if (m_frames.empty()) {
            frame = Frame::Root;
        } else {
            switch (top()) {
            case Frame::Root:
                if (m_key == Field::Chats || m_key == Field::LeftChats)
                    frame = Frame::Section;
                else if (m_key == Field::PersonalInformation)
                    frame = Frame::Personal;
                break;
            case Frame::ChatList:
                frame = Frame::Chat;
                beginChat();
                break;
            case Frame::Messages:
                frame = Frame::Message;
                resetMessage();
                break;
            case Frame::Text:
                frame = Frame::TextPart;
                m_message.partText.clear();
                m_message.partHref.clear();
                break;
            default: break;
            }
        }
        return push(frame);
    }
    bool EndObject(rapidjson::SizeType)
    {
        const Frame frame = top();
        m_frames.pop_back();
        m_key = Field::Other;
        switch (frame) {
        case Frame::Chat: endChat(); break;
        case Frame::Root:
            if (m_rootChat)
                endChat();
            break;
        case Frame::Message: endMessage(); break;
        case Frame::TextPart:
            if (reading()) {
                m_message.text += m_message.partText;
                if (!m_message.partHref.isEmpty() && m_message.partHref != m_message.partText)
                    m_message.text += QStringLiteral(" (") + m_message.partHref + u')';
            }
            break;
        default: break;
        }
        return !m_done;
    }
    bool StartArray()
    {
        Frame frame = Frame::Skip;
        if (!m_frames.empty()) {
            switch (top()) {
            case Frame::Section:
                if (m_key == Field::List)
                    frame = Frame::ChatList;
                break;
            case Frame::Root:
                // A single chat's export: the root is the chat.
                if (m_key == Field::Messages && !m_rootChat) {
                    m_rootChat = true;
                    beginChat();
                    m_chat.name = m_rootName;
                    m_chat.named = m_rootNamed;
                    frame = Frame::Messages;
                }
                break;
            case Frame::Chat:
                if (m_key == Field::Messages)
                    frame = Frame::Messages;
                break;
            case Frame::Message:
                if (m_key == Field::Text)
                    frame = Frame::Text;
                else if (m_key == Field::Members)
                    frame = Frame::Members;
                break;
            default: break;
            }
        }
        return push(frame);
    }
    bool EndArray(rapidjson::SizeType)
    {
        m_frames.pop_back();
        m_key = Field::Other;
        return !m_done;
    }
    bool Key(const char* text, rapidjson::SizeType length, bool)
    {
        switch (top()) {
        case Frame::Root:
        case Frame::Section:
        case Frame::Chat:
        case Frame::Message:
        case Frame::TextPart:
        case Frame::Personal: m_key = fieldOf({text, length}); break;
        default: m_key = Field::Other; break;
        }
        return true;
    }
    bool String(const char* text, rapidjson::SizeType length, bool)
    {
        scalar({text, length}, std::nullopt);
        return true;
    }
    bool Int(int value) { return Int64(value); }
    bool Uint(unsigned value) { return Int64(qint64(value)); }
    bool Int64(int64_t value)
    {
        scalar({}, qint64(value));
        return true;
    }
    bool Uint64(uint64_t value) { return Int64(qint64(std::min<uint64_t>(value, uint64_t(INT64_MAX)))); }
    bool Null()
    {
        if (top() == Frame::Message && m_key == Field::From)
            m_message.from = QString(); // a channel's post: the chat speaks
        m_key = Field::Other;
        return true;
    }
    bool Default() // booleans and doubles: nothing the reader needs
    {
        m_key = Field::Other;
        return true;
    }

    /// The chat asked for is read: the parser was stopped on purpose.
    bool done() const { return m_done; }

    // Results.
    QList<MessagesChatInfo> chats;
    ChatTranscript transcript;
    bool found = false;

private:
    bool reading() const { return m_wanted > 0 && m_chat.number == m_wanted; }
    Frame top() const { return m_frames.empty() ? Frame::Skip : m_frames.back(); }
    bool push(Frame frame)
    {
        if (m_frames.size() >= maxDepth)
            return false;
        m_frames.push_back(frame);
        m_key = Field::Other;
        return true;
    }

    void scalar(std::string_view text, std::optional<qint64> number)
    {
        const Field key = std::exchange(m_key, Field::Other);
        switch (top()) {
        case Frame::Root:
            if (key == Field::Name && !number) {
                m_rootName = fromUtf8(text);
                m_rootNamed = true;
                if (m_rootChat) { // written after the messages
                    m_chat.name = m_rootName;
                    m_chat.named = true;
                }
            }
            break;
        case Frame::Personal:
            if (key == Field::UserId)
                m_ownerId = QStringLiteral("user") + (number ? QString::number(*number) : fromUtf8(text));
            break;
        case Frame::Chat:
            if (key == Field::Name && !number) {
                m_chat.name = fromUtf8(text);
                m_chat.named = true;
            }
            break;
        case Frame::Message: messageField(key, text, number); break;
        case Frame::Text:
            if (reading() && !number)
                m_message.text += fromUtf8(text);
            break;
        case Frame::TextPart:
            if (reading() && key == Field::Text && !number)
                m_message.partText = fromUtf8(text);
            else if (reading() && key == Field::Href && !number)
                m_message.partHref = fromUtf8(text);
            break;
        case Frame::Members:
            if (reading() && !number)
                m_message.members.append(fromUtf8(text));
            break;
        default: break;
        }
    }

    void messageField(Field key, std::string_view text, std::optional<qint64> number)
    {
        // The listing needs only the dates: everything else is read for the one chat asked for.
        if (key == Field::DateUnixtime) {
            m_message.unixTime = number ? *number : digits(text);
            return;
        }
        if (key == Field::Date && !number) {
            m_message.date.assign(text);
            return;
        }
        if (!reading())
            return;
        const QString value = number ? QString::number(*number) : fromUtf8(text);
        switch (key) {
        case Field::Id: m_message.id = number.value_or(0); break;
        case Field::Type: m_message.service = value == u"service"; break;
        case Field::From: m_message.from = value; break;
        case Field::FromId: m_message.fromId = value; break;
        case Field::Actor: m_message.actor = value; break;
        case Field::Action: m_message.action = value; break;
        case Field::Text: m_message.text = value; break;
        case Field::Photo: m_message.photo = value; break;
        case Field::File: m_message.file = value; break;
        case Field::MediaType: m_message.mediaType = value; break;
        case Field::StickerEmoji: m_message.stickerEmoji = value; break;
        case Field::ForwardedFrom: m_message.forwardedFrom = value; break;
        case Field::ReplyToMessageId: m_message.replyTo = number.value_or(0); break;
        case Field::Title: m_message.title = value; break;
        default: break;
        }
    }

    // Cleared field by field: the buffers are kept from one message to the next.
    void resetMessage()
    {
        RawMessage& raw = m_message;
        raw.id = 0;
        raw.service = false;
        raw.unixTime = -1;
        raw.date.clear();
        raw.from.reset();
        for (QString* text : {&raw.fromId, &raw.actor, &raw.action, &raw.text, &raw.photo, &raw.file, &raw.mediaType,
                              &raw.stickerEmoji, &raw.forwardedFrom, &raw.title})
            text->clear();
        raw.replyTo = 0;
        raw.members.clear();
    }

    void beginChat()
    {
        m_chat = ChatState{};
        m_chat.number = ++m_chatCount;
        if (reading())
            found = true;
    }

    QString chatName() const { return m_chat.named && !m_chat.name.isEmpty() ? m_chat.name : L("Conversation"); }

    void endChat()
    {
        if (m_wanted <= 0) {
            chats.append({m_chat.number, L("Telegram : ") + chatName(), m_chat.count,
                          m_chat.count > 0 && m_chat.last != std::numeric_limits<qint64>::min()
                              ? QDateTime::fromSecsSinceEpoch(m_chat.last)
                              : QDateTime()});
        } else if (reading()) {
            transcript.title = L("Telegram : ") + chatName();
            // The chat's name may come after its messages: those that speak as the chat get it now.
            for (const qsizetype index : std::as_const(m_speakAsChat))
                transcript.messages[index].sender = chatName();
            m_done = true; // the rest of the file is not needed
        }
    }

    void endMessage()
    {
        ++m_chat.count;
        if (!reading()) {
            // The listing needs the newest second only: a QDateTime per message would cost more than
            // the parsing.
            if (m_message.unixTime >= 0) {
                m_chat.last = std::max(m_chat.last, m_message.unixTime);
            } else if (const QDateTime date = dateOf(m_message); date.isValid()) {
                m_chat.last = std::max(m_chat.last, date.toSecsSinceEpoch());
            }
            return;
        }
        const QDateTime date = dateOf(m_message);
        if (date.isValid())
            m_chat.last = std::max(m_chat.last, date.toSecsSinceEpoch());
        bool asChat = false;
        ChatMessage message = build(date, &asChat);
        if (!message.text.isEmpty() || !message.images.isEmpty()) {
            if (asChat)
                m_speakAsChat.append(transcript.messages.size());
            if (!message.date.isValid())
                ++transcript.undatedLines;
            m_replies.insert(m_message.id, {asChat ? chatName() : message.sender, message.text});
            transcript.messages.append(std::move(message));
        }
    }

    ChatMessage build(const QDateTime& date, bool* asChat) const
    {
        const RawMessage& raw = m_message;
        ChatMessage message;
        message.date = date;
        if (raw.service) {
            message.sender = L("Système");
            message.text = serviceText();
            if (!raw.text.isEmpty())
                message.text += u'\n' + raw.text;
            message.text = trimmedText(message.text);
            return message;
        }
        if (!m_ownerId.isEmpty() && raw.fromId == m_ownerId)
            message.sender = ownerName();
        else if (raw.from && !raw.from->isEmpty() && *raw.from != ownerName())
            message.sender = *raw.from;
        else
            *asChat = true; // a channel's post, or a name that would pass for the owner's

        QStringList lines;
        if (!raw.forwardedFrom.isEmpty())
            lines << L("Transféré de %@", raw.forwardedFrom);
        if (raw.replyTo != 0) {
            const auto replied = m_replies.constFind(raw.replyTo);
            if (replied == m_replies.cend()) {
                lines << L("En réponse à un message");
            } else {
                QString excerpt = replied->second.simplified();
                if (excerpt.size() > 60)
                    excerpt = excerpt.left(59) + u'…';
                lines << L("En réponse à %@ : « %@ »", replied->first, excerpt);
            }
        }
        if (!raw.photo.isEmpty()) {
            const QString image = inFolder(raw.photo);
            if (image.isEmpty())
                lines << L("[photo]");
            else
                message.images.append(image);
        }
        if (!raw.stickerEmoji.isEmpty())
            lines << raw.stickerEmoji;
        else if (raw.mediaType == u"voice_message" || raw.mediaType == u"audio_file")
            lines << L("[message vocal]");
        else if (raw.mediaType == u"video_file" || raw.mediaType == u"video_message")
            lines << L("[vidéo]");
        else if (!raw.file.isEmpty())
            lines << L("[fichier : %@]", QFileInfo(raw.file).fileName());
        if (!raw.text.isEmpty())
            lines << raw.text;
        message.text = trimmedText(lines.join(u'\n'));
        return message;
    }

    QString serviceText() const
    {
        const RawMessage& raw = m_message;
        const QString actor = raw.actor.isEmpty() ? chatName() : raw.actor;
        const QString members = raw.members.join(QStringLiteral(", "));
        if (raw.action == u"create_group" || raw.action == u"create_channel")
            return L("%@ a créé « %@ »", actor, raw.title);
        if (raw.action == u"invite_members")
            return L("%@ a ajouté %@", actor, members);
        if (raw.action == u"remove_members")
            return L("%@ a retiré %@", actor, members);
        if (raw.action == u"join_group_by_link")
            return L("%@ a rejoint le groupe par un lien", actor);
        if (raw.action == u"pin_message")
            return L("%@ a épinglé un message", actor);
        if (raw.action == u"edit_group_title")
            return L("%@ a renommé le groupe en « %@ »", actor, raw.title);
        if (raw.action == u"edit_group_photo")
            return L("%@ a changé la photo du groupe", actor);
        if (raw.action == u"phone_call")
            return L("Appel de %@", actor);
        // Telegram's own name of the event: better than nothing, and rare.
        return L("%@ : %@", actor, raw.action);
    }

    // A file the export names, when it lies inside the export's folder: never a path that leads out.
    QString inFolder(const QString& relative) const
    {
        if (m_folder.isEmpty() || QDir::isAbsolutePath(relative))
            return {};
        const QFileInfo info(QDir(m_folder).filePath(relative));
        QString resolved = info.canonicalFilePath();
        if (resolved.isEmpty() || !resolved.startsWith(m_folder + u'/') || !QFileInfo(resolved).isFile())
            return {};
        return resolved;
    }

    QString m_folder; ///< canonical
    qint64 m_wanted;  ///< the chat to read whole; 0 to list them all
    std::vector<Frame> m_frames;
    Field m_key = Field::Other;
    QString m_rootName;
    bool m_rootNamed = false;
    bool m_rootChat = false;
    QString m_ownerId;
    qint64 m_chatCount = 0;
    ChatState m_chat;
    RawMessage m_message;
    QHash<qint64, std::pair<QString, QString>> m_replies; ///< id → sender and text, of the chat read
    QList<qsizetype> m_speakAsChat;                       ///< messages whose sender is the chat's name
    bool m_done = false;
};

void parse(const QString& path, Handler& handler)
{
    QFile file;
    if (!openRegularFile(file, path))
        throw ConversationError::file(FileError::fromErrno(FileError::Operation::Read, errno, path));
    FileStream stream(file);
    rapidjson::Reader reader;
    // The recursive parser calls the handler as each object or array opens, before going down into it:
    // the handler's refusal past maxDepth bounds the recursion. (The iterative parser of RapidJSON 1.1
    // offsets a null pointer on its first push.)
    const rapidjson::ParseResult result = reader.Parse<rapidjson::kParseStopWhenDoneFlag>(stream, handler);
    if (stream.readError() != 0)
        throw ConversationError::file(FileError::fromErrno(FileError::Operation::Read, stream.readError(), path));
    if (!result && !handler.done())
        throw ConversationError::unreadable();
}

QString folderOf(const QString& file)
{
    return QFileInfo(QFileInfo(file).absolutePath()).canonicalFilePath();
}

} // namespace

QList<MessagesChatInfo> TelegramExport::listChats(const QString& file)
{
    Handler handler(folderOf(file), 0);
    parse(file, handler);
    return handler.chats;
}

ChatTranscript TelegramExport::transcript(const QString& file, qint64 number)
{
    if (number <= 0)
        throw ConversationError::empty();
    Handler handler(folderOf(file), number);
    parse(file, handler);
    if (!handler.found || handler.transcript.messages.isEmpty())
        throw ConversationError::empty();
    return std::move(handler.transcript);
}

} // namespace nuvrel
