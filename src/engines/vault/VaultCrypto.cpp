#include "engines/vault/VaultCrypto.h"

#include "formats/crypto/AesGcm.h"
#include "ground/FileScan.h"
#include "ground/FreeName.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimeZone>
#include <QUuid>

#include <openssl/evp.h>

#include <cerrno>
#include <condition_variable>
#include <deque>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace nuvrel {

namespace {

using Kind = VaultFailure::Kind;

// Swift's JSON dates, which older indexes hold: seconds since 1 January 2001, UTC.
const QDateTime referenceDate(QDate(2001, 1, 1), QTime(0, 0), QTimeZone::utc());

struct DigestDeleter
{
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

class Sha256
{
public:
    Sha256()
        : m_context(EVP_MD_CTX_new())
    {
        if (!m_context || EVP_DigestInit_ex(m_context.get(), EVP_sha256(), nullptr) != 1)
            throw std::bad_alloc();
    }
    void add(QByteArrayView bytes) { EVP_DigestUpdate(m_context.get(), bytes.data(), size_t(bytes.size())); }
    QByteArray result()
    {
        QByteArray digest(EVP_MAX_MD_SIZE, Qt::Uninitialized);
        unsigned int length = 0;
        EVP_DigestFinal_ex(m_context.get(), reinterpret_cast<unsigned char*>(digest.data()), &length);
        digest.truncate(int(length));
        return digest;
    }

private:
    std::unique_ptr<EVP_MD_CTX, DigestDeleter> m_context;
};

// A file being written: under a temporary name beside its destination, flushed, then linked to its
// name, which is never taken from a file already there. Removed unless it was completed, so that
// neither a failure nor a crash leaves a partial file under the final name.
class SealedOutput
{
public:
    SealedOutput(const QString& path, mode_t mode)
        : m_path(path)
        , m_temporary(QFileInfo(path).absoluteDir().filePath(
              QStringLiteral(".nuvrel-%1.part").arg(QUuid::createUuid().toString(QUuid::Id128))))
    {
        if (QFileInfo::exists(path) || QFileInfo(path).isSymLink())
            throw VaultFailure{Kind::CannotCreate};
        m_fd = ::open(QFile::encodeName(m_temporary).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        if (m_fd < 0)
            throw VaultFailure{Kind::CannotCreate};
    }
    ~SealedOutput()
    {
        if (m_fd >= 0)
            ::close(m_fd);
        ::unlink(QFile::encodeName(m_temporary).constData());
    }
    SealedOutput(const SealedOutput&) = delete;
    SealedOutput& operator=(const SealedOutput&) = delete;

    void write(QByteArrayView bytes)
    {
        const char* data = bytes.data();
        qsizetype left = bytes.size();
        while (left > 0) {
            const ssize_t written = ::write(m_fd, data, size_t(left));
            if (written < 0 && errno == EINTR)
                continue;
            if (written <= 0)
                throw VaultFailure{Kind::WriteFailed};
            data += written;
            left -= written;
        }
    }
    /// On the disk, with its name, before anyone relies on it.
    void complete()
    {
        if (::fsync(m_fd) != 0 || ::close(std::exchange(m_fd, -1)) != 0)
            throw VaultFailure{Kind::WriteFailed};
        // link() refuses a name that exists, where rename() would replace it.
        if (::link(QFile::encodeName(m_temporary).constData(), QFile::encodeName(m_path).constData()) != 0)
            throw VaultFailure{errno == EEXIST ? Kind::CannotCreate : Kind::WriteFailed};
        ::unlink(QFile::encodeName(m_temporary).constData());
        if (!VaultCrypto::syncFolder(QFileInfo(m_path).absolutePath()))
            throw VaultFailure{Kind::WriteFailed};
    }

private:
    QString m_path;
    QString m_temporary;
    int m_fd = -1;
};

void check(const std::atomic<bool>* cancel)
{
    if (cancel && cancel->load(std::memory_order_relaxed))
        throw VaultFailure{Kind::Cancelled};
}

QString hex(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toHex());
}

// Two cores on one file: this thread produces chunks (reads, checks, hashes or opens them) while a
// helper consumes them in order (seals, writes). At most two wait between them, so memory stays
// near four chunks whatever the file's size. What the consumer throws comes back from finish().
class Pipeline
{
public:
    explicit Pipeline(std::function<void(QByteArray&)> consume)
        : m_consume(std::move(consume))
        , m_thread([this] { run(); })
    {}
    ~Pipeline()
    {
        if (m_thread.joinable()) {
            stop();
            m_thread.join();
        }
    }
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    /// Hands a chunk on; false when the consumer has failed, and producing should stop.
    bool push(QByteArray chunk)
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_waiting.size() < 2 || m_failure; });
        if (m_failure)
            return false;
        m_waiting.push_back(std::move(chunk));
        lock.unlock();
        m_changed.notify_all();
        return true;
    }
    /// Waits for every chunk handed on to be consumed; throws what the consumer threw.
    void finish()
    {
        stop();
        m_thread.join();
        if (m_failure)
            throw VaultFailure{*m_failure};
    }

private:
    void stop()
    {
        {
            const std::lock_guard guard(m_mutex);
            m_ended = true;
        }
        m_changed.notify_all();
    }
    void run()
    {
        try {
            for (;;) {
                QByteArray chunk;
                {
                    std::unique_lock lock(m_mutex);
                    m_changed.wait(lock, [this] { return !m_waiting.empty() || m_ended; });
                    if (m_waiting.empty())
                        return;
                    chunk = std::move(m_waiting.front());
                    m_waiting.pop_front();
                }
                m_changed.notify_all();
                m_consume(chunk);
            }
        } catch (const VaultFailure& failure) {
            fail(failure.kind);
        } catch (...) { // out of memory: the file is not written, and says so
            fail(Kind::WriteFailed);
        }
    }
    void fail(Kind kind)
    {
        {
            const std::lock_guard guard(m_mutex);
            m_failure = kind;
            m_waiting.clear();
        }
        m_changed.notify_all();
    }

    std::function<void(QByteArray&)> m_consume;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<QByteArray> m_waiting;
    bool m_ended = false;
    std::optional<Kind> m_failure;
    std::thread m_thread; ///< last: it starts once the rest is ready
};

} // namespace

QString VaultEntry::fileName() const
{
    return id.toString(QUuid::WithoutBraces).toUpper() + QStringLiteral(".nvv");
}

namespace VaultCrypto {

QByteArray bigEndian(quint64 value, int count)
{
    QByteArray bytes(count, Qt::Uninitialized);
    for (int i = count - 1; i >= 0; --i, value >>= 8)
        bytes[i] = char(value & 0xFF);
    return bytes;
}

quint64 number(QByteArrayView bytes)
{
    quint64 value = 0;
    for (const char byte : bytes)
        value = value << 8 | quint8(byte);
    return value;
}

QByteArray encryptFile(const QString& source, const QString& destination, const QByteArray& key,
                       const Progress& progress, const std::atomic<bool>* cancel)
{
    const FileReader input(source);
    const std::optional<EntryStatus> status = input.isOpen() ? entryStatus(source) : std::nullopt;
    if (!status)
        throw VaultFailure{Kind::CannotRead};
    const qint64 size = status->size;
    const quint64 count = quint64((size + chunkSize - 1) / chunkSize);

    SealedOutput output(destination, 0600);
    output.write(QByteArrayView(magic, 4));
    output.write(bigEndian(count, 8));
    Sha256 digest;

    // This thread reads and hashes; the helper seals and writes.
    quint64 sealed = 0;
    Pipeline pipeline([&](QByteArray& chunk) {
        const QByteArray box = AesGcm::seal(key, chunk, bigEndian(sealed++, 8));
        if (box.isEmpty())
            throw VaultFailure{Kind::WriteFailed};
        output.write(bigEndian(quint64(box.size()), 4));
        output.write(box);
    });
    for (quint64 i = 0; i < count; ++i) {
        check(cancel);
        const qint64 offset = qint64(i) * chunkSize;
        QByteArray chunk(std::min(chunkSize, size - offset), Qt::Uninitialized);
        if (!input.readAt(offset, chunk.data(), chunk.size()))
            throw VaultFailure{Kind::CannotRead}; // shorter than it was a moment ago
        digest.add(chunk);
        if (!pipeline.push(std::move(chunk)))
            break; // finish() says why
        if (progress)
            progress(offset + std::min(chunkSize, size - offset));
    }
    pipeline.finish();
    // A file that grew while it was read would lose its end with its original: refused.
    char extra = 0;
    if (input.readAt(size, &extra, 1))
        throw VaultFailure{Kind::CannotRead};
    output.complete();
    return digest.result();
}

namespace {

// Every check of a decryption, in its order; each plaintext chunk goes to `sink`.
QByteArray decryptInto(const QString& source, const QByteArray& key, const std::function<void(QByteArrayView)>& sink,
                       const VaultCrypto::Progress& progress, const std::atomic<bool>* cancel)
{
    const FileReader input(source);
    if (!input.isOpen())
        throw VaultFailure{Kind::CannotRead};
    qint64 offset = 0;
    const auto read = [&](qint64 length, Kind shortKind) {
        QByteArray bytes(length, Qt::Uninitialized);
        if (!input.readAt(offset, bytes.data(), length))
            throw VaultFailure{shortKind};
        offset += length;
        return bytes;
    };
    if (read(4, Kind::BadMagic) != QByteArrayView(magic, 4))
        throw VaultFailure{Kind::BadMagic};
    const quint64 count = number(read(8, Kind::ShortHeader));
    // This thread reads, checks and opens; the helper hashes and writes.
    Sha256 digest;
    Pipeline pipeline([&](QByteArray& plain) {
        digest.add(plain);
        sink(plain);
    });
    qint64 done = 0;
    for (quint64 i = 0; i < count; ++i) {
        check(cancel);
        const quint64 length = number(read(4, Kind::ShortRead));
        // Bounded before a byte of the box is read: at least one plaintext byte, at most a chunk.
        if (length - quint64(AesGcm::overhead + 1) >= quint64(chunkSize))
            throw VaultFailure{Kind::ChunkLength};
        std::optional<QByteArray> plain = AesGcm::open(key, read(qint64(length), Kind::ShortRead), bigEndian(i, 8));
        if (!plain)
            throw VaultFailure{Kind::Authentication};
        done += plain->size();
        if (!pipeline.push(std::move(*plain)))
            break;
        if (progress)
            progress(done);
    }
    pipeline.finish();
    char extra = 0;
    if (input.readAt(offset, &extra, 1))
        throw VaultFailure{Kind::TrailingData};
    return digest.result();
}

} // namespace

QByteArray decryptFile(const QString& source, const QString& destination, const QByteArray& key,
                       const Progress& progress, const std::atomic<bool>* cancel, const QByteArray& expectedSha256)
{
    SealedOutput output(destination, 0666);
    QByteArray digest = decryptInto(
        source, key, [&output](QByteArrayView plain) { output.write(plain); }, progress, cancel);
    // Checked before the file takes its name: a file that is not the one expected never appears.
    if (!expectedSha256.isEmpty() && digest != expectedSha256)
        throw VaultFailure{Kind::DigestMismatch};
    output.complete();
    return digest;
}

QPair<qint64, QByteArray> verifyFile(const QString& source, const QByteArray& key, const std::atomic<bool>* cancel)
{
    qint64 size = 0;
    const QByteArray digest = decryptInto(
        source, key, [&size](QByteArrayView plain) { size += plain.size(); }, {}, cancel);
    return {size, digest};
}

QByteArray sealIndex(const QList<VaultEntry>& entries, const QByteArray& key)
{
    QJsonArray list;
    for (const VaultEntry& entry : entries) {
        QJsonObject object{{QStringLiteral("id"), entry.id.toString(QUuid::WithoutBraces).toUpper()},
                           {QStringLiteral("name"), entry.name},
                           {QStringLiteral("size"), entry.size},
                           {QStringLiteral("added"), double(referenceDate.msecsTo(entry.added)) / 1000.0}};
        if (!entry.origin.isEmpty())
            object.insert(QStringLiteral("origin"), entry.origin);
        // Beyond the format's own keys: what binds an encrypted file to its entry.
        if (!entry.sha256.isEmpty())
            object.insert(QStringLiteral("sha256"), hex(entry.sha256));
        list.append(object);
    }
    return AesGcm::seal(key, QJsonDocument(list).toJson(QJsonDocument::Compact));
}

std::optional<QList<VaultEntry>> openIndex(const QByteArray& sealed, const QByteArray& key)
{
    const std::optional<QByteArray> json = AesGcm::open(key, sealed);
    if (!json)
        return std::nullopt;
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(*json, &error);
    if (error.error != QJsonParseError::NoError || !document.isArray())
        return std::nullopt;
    QList<VaultEntry> entries;
    const QJsonArray list = document.array();
    for (const auto& value : list) {
        const QJsonObject object = value.toObject();
        VaultEntry entry;
        entry.id = QUuid::fromString(object.value(QStringLiteral("id")).toString());
        entry.name = object.value(QStringLiteral("name")).toString();
        const QJsonValue size = object.value(QStringLiteral("size"));
        const QJsonValue added = object.value(QStringLiteral("added"));
        // The name is used on restore: it must be a plain name, never a path.
        if (entry.id.isNull() || entry.name.isEmpty() || entry.name.contains(u'/') || entry.name == u"." ||
            entry.name == u".." || !size.isDouble() || size.toDouble() < 0 || !added.isDouble())
            return std::nullopt;
        entry.size = size.toInteger();
        entry.added = referenceDate.addMSecs(qint64(added.toDouble() * 1000.0));
        entry.origin = object.value(QStringLiteral("origin")).toString();
        const QString sha256 = object.value(QStringLiteral("sha256")).toString();
        entry.sha256 = QByteArray::fromHex(sha256.toLatin1());
        if (!sha256.isEmpty() && entry.sha256.size() != 32)
            return std::nullopt;
        entries.append(entry);
    }
    return entries;
}

QString uniqueName(const QString& folder, const QString& name)
{
    return QFileInfo(freeName(QDir(folder).filePath(name), FreeNameStyle::Hyphenated)).fileName();
}

bool writeDurably(const QString& path, const QByteArray& data)
{
    try {
        SealedOutput file(path, 0600);
        file.write(data);
        file.complete();
        return true;
    } catch (const VaultFailure&) {
        return false;
    }
}

bool syncFolder(const QString& folder)
{
    const int fd = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool synced = ::fsync(fd) == 0;
    ::close(fd);
    return synced;
}

} // namespace VaultCrypto

} // namespace nuvrel
