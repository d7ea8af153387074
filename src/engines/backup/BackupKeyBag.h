#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>
#include <QString>

#include <atomic>
#include <optional>

namespace nuvrel {

/// The key bag of an encrypted backup: the password unlocks the class keys, which unwrap the key of
/// the index database and of every file.
class BackupKeyBag final
{
public:
    using Record = QHash<QByteArray, QByteArray>; ///< 4-letter tag to value

    /// The most rounds a bag may ask for; phones use 10,000,000 (DPIC) and 10,000 (ITER).
    static constexpr quint64 maxFirstIterations = 100'000'000;
    static constexpr quint64 maxIterations = 10'000'000;

    /// Parses the "BackupKeyBag" value of Manifest.plist; nothing when the item sequence is malformed,
    /// the header lacks "SALT" or "ITER", or a round count is 0 or beyond the bounds above.
    static std::optional<BackupKeyBag> parse(QByteArrayView data);

    /// Derives the password key and unwraps the class keys. False for a wrong password, and when `cancel`
    /// was raised during the (deliberately slow) derivation. Run it off the GUI thread.
    bool unlock(const QString& password, const std::atomic<bool>* cancel = nullptr);

    const Record& attrs() const { return m_attrs; }
    const QList<Record>& classes() const { return m_classes; }
    const QMap<quint64, QByteArray>& classKeys() const { return m_classKeys; }

    /// A key stored as a 4-byte little-endian protection class followed by the wrapped key.
    struct WrappedKey
    {
        quint32 protectionClass = 0;
        QByteArrayView wrapped;
        /// Nothing when the value is too short to hold a class and a key.
        static std::optional<WrappedKey> split(QByteArrayView value);
    };

    /// The AES key inside a wrapped key, unwrapped with its class key. Nothing when the class has no key,
    /// the unwrap fails, or the result is no AES key length (an asymmetric class key, say).
    std::optional<QByteArray> unwrap(const WrappedKey& key) const;

    /// A value read as a big-endian unsigned integer over all its bytes (its low 64 bits); 0 when empty.
    static quint64 intValue(QByteArrayView bytes);

private:
    Record m_attrs;
    QList<Record> m_classes;
    QMap<quint64, QByteArray> m_classKeys;
};

} // namespace nuvrel
