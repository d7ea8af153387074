#include "engines/conversations/WhatsAppArchive.h"

#include "engines/conversations/ConversationError.h"
#include "engines/conversations/WhatsAppParser.h"
#include "ground/NewFile.h"
#include "ground/RegularFile.h"
#include "ground/WorkFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>

#include <zip.h>

#include <cerrno>

#include <unistd.h>

namespace nuvrel {

namespace {

// One archive, open for reading only, closed with its object.
class Zip
{
public:
    explicit Zip(const QString& path)
    {
        // Opened through a descriptor of ours: a regular file, never a device or a pipe.
        QFile file;
        if (!openRegularFile(file, path))
            throw ConversationError::file(FileError::fromErrno(FileError::Operation::Read, errno, path));
        const int descriptor = ::dup(file.handle());
        if (descriptor < 0)
            throw ConversationError::file(FileError::fromErrno(FileError::Operation::Read, errno, path));
        int error = 0;
        m_zip = zip_fdopen(descriptor, ZIP_RDONLY | ZIP_CHECKCONS, &error);
        if (!m_zip) {
            ::close(descriptor);
            throw ConversationError::unreadable(); // not a zip archive, or a damaged one
        }
    }
    ~Zip()
    {
        if (m_zip)
            zip_discard(m_zip); // read only: nothing to write back
    }
    Q_DISABLE_COPY_MOVE(Zip)

    zip_t* get() const { return m_zip; }

private:
    zip_t* m_zip = nullptr;
};

struct Entry
{
    zip_uint64_t index = 0;
    QString name; ///< the entry's last name, safe to compare, never used as a path
    qint64 size = 0;
};

bool isImageName(const QString& name)
{
    static const QRegularExpression images(QStringLiteral("\\.(jpe?g|png|heic|heif|webp|gif)$"),
                                           QRegularExpression::CaseInsensitiveOption);
    return images.match(name).hasMatch();
}

// Copies an entry into `target`, never more than the size its header announced.
void copyEntry(zip_t* zip, const Entry& entry, const QString& target)
{
    zip_file_t* file = zip_fopen_index(zip, entry.index, 0);
    if (!file)
        throw ConversationError::unreadable();
    NewFile out(target, FreeNameStyle::Parenthesised, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    QByteArray buffer(qsizetype(256) * 1024, Qt::Uninitialized);
    qint64 copied = 0;
    for (;;) {
        const zip_int64_t read = zip_fread(file, buffer.data(), zip_uint64_t(buffer.size()));
        if (read < 0 || copied + read > entry.size) { // damaged, or more than announced
            zip_fclose(file);
            throw ConversationError::unreadable();
        }
        if (read == 0)
            break;
        if (out.device().write(buffer.constData(), read) != read) {
            zip_fclose(file);
            throw ConversationError::file(FileError::fromErrno(FileError::Operation::Write, errno, target));
        }
        copied += read;
    }
    // Closing checks the data against its checksum.
    if (zip_fclose(file) != 0)
        throw ConversationError::unreadable();
    out.commit();
}

// The attachment notes of both phones' exports around a file name, removed once the picture shows.
QString withoutNote(QString text, const QString& name)
{
    const QString quoted = QRegularExpression::escape(name);
    static const QString notes = QStringLiteral("\\x{200E}?<[^<>:]{1,40}:\\s*%1>|%1\\s*\\([^()]{1,40}\\)|\\x{200E}?%1");
    text.remove(QRegularExpression(notes.arg(quoted)));
    return trimmedText(text);
}

} // namespace

WhatsAppArchive::WhatsAppArchive(QString file)
    : m_file(std::move(file))
{}

WhatsAppArchive::~WhatsAppArchive()
{
    if (m_work)
        m_work->remove();
}

bool WhatsAppArchive::looksLikeZip(const QString& file)
{
    // Never a plain open: a named pipe would hold the caller until someone writes to it.
    QFile probe;
    return openRegularFile(probe, file) && probe.read(4) == QByteArrayLiteral("PK\x03\x04");
}

QList<MessagesChatInfo> WhatsAppArchive::listChats() const
{
    const ChatTranscript& chat = unpacked();
    return {MessagesChatInfo{1, chat.title, chat.messages.size(),
                             chat.messages.isEmpty() ? QDateTime() : chat.messages.constLast().date}};
}

ChatTranscript WhatsAppArchive::transcript(const MessagesChatInfo& chat) const
{
    const ChatTranscript& whole = unpacked();
    if (chat.id != 1 || whole.messages.isEmpty())
        throw ConversationError::empty();
    return whole;
}

const ChatTranscript& WhatsAppArchive::unpacked() const
{
    if (m_transcript)
        return *m_transcript;
    const Zip zip(m_file);
    const zip_int64_t count = zip_get_num_entries(zip.get(), 0);
    if (count < 0)
        throw ConversationError::unreadable();

    // The survey: sizes as the archive announces them, before a byte is unpacked.
    qint64 total = 0;
    std::optional<Entry> chatText;
    QList<Entry> otherTexts;
    QHash<QString, Entry> images;
    for (zip_uint64_t index = 0; index < zip_uint64_t(count); ++index) {
        zip_stat_t stat;
        zip_stat_init(&stat);
        if (zip_stat_index(zip.get(), index, 0, &stat) != 0 || !(stat.valid & ZIP_STAT_SIZE) ||
            !(stat.valid & ZIP_STAT_COMP_SIZE) || !(stat.valid & ZIP_STAT_NAME))
            throw ConversationError::unreadable();
        if (stat.size > zip_uint64_t(maxUnpacked) || (total += qint64(stat.size)) > maxUnpacked)
            throw ConversationError::tooLarge(m_file, maxUnpacked);
        if (stat.size > 0 && (stat.comp_size == 0 || stat.size / stat.comp_size > zip_uint64_t(maxRatio)))
            throw ConversationError::suspectArchive(m_file, maxRatio);
        const QString path = QString::fromUtf8(stat.name);
        const QString name = path.section(u'/', -1);
        if (name.isEmpty() || name == u"." || name == u".." || name.contains(QChar(0)) || name.contains(u'\\'))
            continue; // a folder, or a name no export makes
        const Entry entry{index, name, qint64(stat.size)};
        if (name == u"_chat.txt" && !chatText)
            chatText = entry;
        else if (name.endsWith(QLatin1StringView(".txt"), Qt::CaseInsensitive))
            otherTexts.append(entry);
        else if (isImageName(name) && !images.contains(name))
            images.insert(name, entry);
    }
    if (!chatText && otherTexts.size() == 1)
        chatText = otherTexts.constFirst();
    if (!chatText)
        throw ConversationError::unreadable();

    if (m_work)
        m_work->remove(); // left by an earlier try that failed
    m_work = std::make_unique<WorkFolder>(QStringLiteral("exports"));
    const QString text = QDir(m_work->path()).filePath(QStringLiteral("chat.txt"));
    copyEntry(zip.get(), *chatText, text);
    QFile file(text);
    if (!file.open(QIODevice::ReadOnly))
        throw ConversationError::file(FileError::fromErrno(FileError::Operation::Read, errno, text));
    std::optional<ChatTranscript> transcript = WhatsAppParser::parse(file, QFileInfo(m_file).completeBaseName());
    if (!transcript)
        throw ConversationError::unreadable();

    // The photos the messages name, each copied once under a name of ours.
    static const QRegularExpression fileNames(QStringLiteral("[^\\s<>:/\\\\\"]+\\.(?:jpe?g|png|heic|heif|webp|gif)"),
                                              QRegularExpression::CaseInsensitiveOption);
    QHash<QString, QString> copied;
    for (ChatMessage& message : transcript->messages) {
        QStringList named;
        for (QRegularExpressionMatchIterator it = fileNames.globalMatch(message.text); it.hasNext();) {
            const QString name = it.next().captured();
            if (images.contains(name) && !named.contains(name))
                named.append(name);
        }
        for (const QString& name : std::as_const(named)) {
            QString& copy = copied[name];
            if (copy.isEmpty()) {
                const Entry& entry = images[name];
                // A folder per entry: two photos may share a name, and the name itself goes into the
                // conversation's fingerprint.
                copy = QDir(m_work->path()).filePath(QStringLiteral("media/%1/").arg(entry.index) + name);
                try {
                    copyEntry(zip.get(), entry, copy);
                } catch (const ConversationError&) {
                    copy = QStringLiteral("-"); // a damaged photo stays a label
                    continue;
                }
            }
            if (copy == u"-")
                continue;
            message.images.append(copy);
            message.text = withoutNote(message.text, name);
        }
    }
    m_transcript = std::move(transcript);
    return *m_transcript;
}

} // namespace nuvrel
