#include "engines/backup/ManifestMbdb.h"

#include "ground/Dates.h"

#include <QCryptographicHash>
#include <QtEndian>

namespace nuvrel {

namespace {

// A cursor that refuses to read past the end instead of reading garbage.
class Reader
{
public:
    explicit Reader(QByteArrayView data)
        : m_data(data)
    {}

    bool atEnd() const { return m_at >= m_data.size(); }

    template <typename T>
    bool number(T& value)
    {
        if (m_data.size() - m_at < qsizetype(sizeof(T)))
            return false;
        value = qFromBigEndian<T>(m_data.data() + m_at);
        m_at += sizeof(T);
        return true;
    }

    // A 16-bit length then the bytes; 0xFFFF stands for "no value".
    bool string(std::optional<QByteArray>& value)
    {
        quint16 length = 0;
        if (!number(length))
            return false;
        if (length == 0xFFFF) {
            value.reset();
            return true;
        }
        if (m_data.size() - m_at < length)
            return false;
        value = m_data.sliced(m_at, length).toByteArray();
        m_at += length;
        return true;
    }

    bool skip(qsizetype count)
    {
        if (m_data.size() - m_at < count)
            return false;
        m_at += count;
        return true;
    }

private:
    QByteArrayView m_data;
    qsizetype m_at = 0;
};

constexpr quint16 fileTypeMask = 0xF000;
constexpr quint16 regularFile = 0x8000;

} // namespace

QList<BackupEntry> ManifestMbdb::parse(QByteArrayView data)
{
    QList<BackupEntry> entries;
    Reader reader(data);
    // The file opens with "mbdb" and a two-byte version.
    if (data.startsWith("mbdb") && !reader.skip(6))
        return entries;

    while (!reader.atEnd()) {
        std::optional<QByteArray> domain, path, target, hash, key;
        quint16 mode = 0;
        quint64 inode = 0, size = 0;
        quint32 uid = 0, gid = 0, mtime = 0, atime = 0, ctime = 0;
        quint8 protectionClass = 0, properties = 0;
        if (!reader.string(domain) || !reader.string(path) || !reader.string(target) || !reader.string(hash) ||
            !reader.string(key) || !reader.number(mode) || !reader.number(inode) || !reader.number(uid) ||
            !reader.number(gid) || !reader.number(mtime) || !reader.number(atime) || !reader.number(ctime) ||
            !reader.number(size) || !reader.number(protectionClass) || !reader.number(properties))
            break;
        bool complete = true;
        for (int i = 0; i < properties && complete; ++i) {
            std::optional<QByteArray> name, value;
            complete = reader.string(name) && reader.string(value);
        }
        if (!complete)
            break;
        if ((mode & fileTypeMask) != regularFile)
            continue;

        BackupEntry entry;
        entry.domain = QString::fromUtf8(domain.value_or(QByteArray()));
        entry.path = QString::fromUtf8(path.value_or(QByteArray()));
        const QByteArray name = domain.value_or(QByteArray()) + '-' + path.value_or(QByteArray());
        entry.fileID = QString::fromLatin1(QCryptographicHash::hash(name, QCryptographicHash::Sha1).toHex());
        MBFileInfo info;
        info.size = static_cast<qint64>(size);
        info.protectionClass = protectionClass;
        info.mode = mode;
        info.mtime = utcFromSecsSinceEpoch(mtime);
        info.encKey = key;
        entry.preMeta = MBFileInfoBox{info};
        entries.append(std::move(entry));
    }
    return entries;
}

} // namespace nuvrel
