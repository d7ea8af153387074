#include "engines/backup/BackupKeyBag.h"

#include "formats/crypto/AesKeyWrap.h"
#include "formats/crypto/Pbkdf2.h"

#include <QtEndian>

namespace nuvrel {

namespace {

constexpr int derivedKeySize = 32;
constexpr quint64 wrapFlagPasscode = 2;
const QByteArray uuidTag = QByteArrayLiteral("UUID");

bool isClassTag(QByteArrayView tag)
{
    return tag == "CLAS" || tag == "WRAP" || tag == "WPKY" || tag == "KTYP" || tag == "PBKY";
}

bool isAesKeySize(qsizetype size)
{
    return size == 16 || size == 24 || size == 32;
}

} // namespace

quint64 BackupKeyBag::intValue(QByteArrayView bytes)
{
    quint64 value = 0;
    for (char byte : bytes)
        value = (value << 8) | static_cast<quint8>(byte);
    return value;
}

std::optional<BackupKeyBag> BackupKeyBag::parse(QByteArrayView data)
{
    BackupKeyBag bag;
    std::optional<Record> current;
    qsizetype at = 0;
    while (at < data.size()) {
        if (data.size() - at < 8)
            return std::nullopt;
        const QByteArray tag = data.sliced(at, 4).toByteArray();
        const quint32 length = qFromBigEndian<quint32>(data.data() + at + 4);
        at += 8;
        if (length > static_cast<quint64>(data.size() - at))
            return std::nullopt;
        const QByteArray value = data.sliced(at, length).toByteArray();
        at += length;

        if (tag == uuidTag && bag.m_attrs.contains(uuidTag)) {
            // Once the header has its identifier, each further one opens a class record.
            if (current)
                bag.m_classes.append(*current);
            current = Record{{tag, value}};
        } else if (current && isClassTag(tag)) {
            current->insert(tag, value);
        } else {
            // Before the first class record every tag is the header's, its own "WRAP" included.
            bag.m_attrs.insert(tag, value);
        }
    }
    if (current)
        bag.m_classes.append(*current);
    if (!bag.m_attrs.contains("SALT") || !bag.m_attrs.contains("ITER"))
        return std::nullopt;
    // Round counts far beyond any phone's would hold the unlock for hours: such a bag is damaged.
    const auto within = [&bag](const char* tag, quint64 most) {
        const quint64 rounds = intValue(bag.m_attrs.value(tag));
        return rounds >= 1 && rounds <= most;
    };
    if (!within("ITER", maxIterations) || (bag.m_attrs.contains("DPIC") && !within("DPIC", maxFirstIterations)))
        return std::nullopt;
    return bag;
}

bool BackupKeyBag::unlock(const QString& password, const std::atomic<bool>* cancel)
{
    m_classKeys.clear();
    const QByteArray secret = password.toUtf8();
    const quint64 iterations = intValue(m_attrs.value("ITER"));

    std::optional<QByteArray> key;
    if (m_attrs.contains("DPSL") && m_attrs.contains("DPIC")) {
        const quint64 firstIterations = intValue(m_attrs.value("DPIC"));
        const std::optional<QByteArray> first = Pbkdf2::derive(Pbkdf2::Hash::Sha256, secret, m_attrs.value("DPSL"),
                                                               firstIterations, derivedKeySize, cancel);
        if (!first)
            return false;
        key = Pbkdf2::derive(Pbkdf2::Hash::Sha1, *first, m_attrs.value("SALT"), iterations, derivedKeySize, cancel);
    } else {
        key = Pbkdf2::derive(Pbkdf2::Hash::Sha1, secret, m_attrs.value("SALT"), iterations, derivedKeySize, cancel);
    }
    if (!key)
        return false;

    for (const Record& record : std::as_const(m_classes)) {
        const quint64 wrap = intValue(record.value("WRAP"));
        const auto wrapped = record.constFind("WPKY");
        if (!(wrap & wrapFlagPasscode) || wrapped == record.cend())
            continue;
        const std::optional<QByteArray> classKey = AesKeyWrap::unwrap(*key, *wrapped);
        if (!classKey) {
            m_classKeys.clear();
            return false;
        }
        m_classKeys.insert(intValue(record.value("CLAS")), *classKey);
    }
    return true;
}

std::optional<BackupKeyBag::WrappedKey> BackupKeyBag::WrappedKey::split(QByteArrayView value)
{
    if (value.size() < 5)
        return std::nullopt;
    return WrappedKey{qFromLittleEndian<quint32>(value.data()), value.sliced(4)};
}

std::optional<QByteArray> BackupKeyBag::unwrap(const WrappedKey& key) const
{
    const auto classKey = m_classKeys.constFind(key.protectionClass);
    if (classKey == m_classKeys.cend())
        return std::nullopt;
    std::optional<QByteArray> plain = AesKeyWrap::unwrap(*classKey, key.wrapped);
    if (!plain || !isAesKeySize(plain->size()))
        return std::nullopt;
    return plain;
}

} // namespace nuvrel
