#pragma once

// The vault at rest. What it protects against: a stolen disk, a copy of the home folder, another user
// of the machine. Files are sealed with AES-256-GCM under a 256-bit key kept in the user's keyring;
// what it does not protect against: any program running in the user's own session can ask the
// keyring for that key, and the owner check guards our window, not the keyring.

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QPair>
#include <QString>
#include <QUuid>

#include <atomic>
#include <functional>
#include <optional>

namespace nuvrel {

/// One file in the vault, as its sealed index lists it.
struct VaultEntry
{
    QUuid id;        ///< names the encrypted file: the UUID's text + ".nvv"
    QString name;    ///< the original name, shown and used on restore
    qint64 size = 0; ///< of the plaintext
    QDateTime added;
    QString origin;    ///< the folder it came from; empty in older entries
    QByteArray sha256; ///< of the plaintext, 32 bytes; empty in older entries

    /// "0C1D…-….nvv"
    QString fileName() const;
    friend bool operator==(const VaultEntry&, const VaultEntry&) = default;
};

/// Why the vault refused a file or an index.
struct VaultFailure
{
    enum class Kind {
        BadMagic,       ///< not "NVV1", or shorter than it
        ShortHeader,    ///< the chunk count is cut
        ChunkLength,    ///< a box longer than a chunk or too short to hold a byte
        ShortRead,      ///< the file ends inside a record
        TrailingData,   ///< bytes after the last chunk
        Authentication, ///< a box does not open: another key, another place, any changed bit
        CannotCreate,   ///< the destination cannot be made
        CannotRead,     ///< the source cannot be opened
        WriteFailed,    ///< the disk refused a write or a flush (full, gone)
        Cancelled,
        DigestMismatch, ///< opens, but is not the file its entry names: moved or swapped
    };
    Kind kind;
};

/// The encrypted file format "NVV1" and the sealed index. Every integer is big-endian:
///   "NVV1" | chunk count (8) | { box length (4) | nonce (12) ciphertext tag (16) } × count
/// Each chunk holds 4 MiB of plaintext (the last one the rest, at least a byte), sealed with a fresh
/// nonce and its index as 8 bytes of additional data, so that chunks cannot be reordered, dropped or
/// copied between places within a file; the count and the end-of-file check stop truncation and
/// appended bytes. Nothing binds a chunk to its file, hence the plaintext digest in each index entry.
namespace VaultCrypto {

constexpr char magic[] = "NVV1";
constexpr qint64 chunkSize = qint64(4) * 1024 * 1024;
constexpr qint64 headerSize = 12;

/// Progress in plaintext bytes done.
using Progress = std::function<void(qint64 done)>;

/// Streams `source` into a new file at `destination` (created 0600, never replacing one), flushed
/// to the disk before it returns; the SHA-256 of the plaintext, computed in the same pass. Throws
/// VaultFailure; a destination left half-written is removed.
QByteArray encryptFile(const QString& source, const QString& destination, const QByteArray& key,
                       const Progress& progress = {}, const std::atomic<bool>* cancel = nullptr);

/// The reverse, with every check in its order: the magic, exact reads, each box's length bounded
/// before it is read, each box opened with its index, nothing after the last. The SHA-256 of the
/// plaintext; throws VaultFailure, and then removes what it wrote. With `expectedSha256`, a plaintext
/// of another digest is refused (DigestMismatch) before `destination` appears.
QByteArray decryptFile(const QString& source, const QString& destination, const QByteArray& key,
                       const Progress& progress = {}, const std::atomic<bool>* cancel = nullptr,
                       const QByteArray& expectedSha256 = {});

/// Checks a whole encrypted file as decryptFile does, writing nothing; the plaintext's size and
/// SHA-256.
QPair<qint64, QByteArray> verifyFile(const QString& source, const QByteArray& key,
                                     const std::atomic<bool>* cancel = nullptr);

/// The entries as JSON, sealed whole (random nonce, no additional data).
QByteArray sealIndex(const QList<VaultEntry>& entries, const QByteArray& key);
/// The entries of a sealed index; nothing when it does not open or does not decode.
std::optional<QList<VaultEntry>> openIndex(const QByteArray& sealed, const QByteArray& key);

/// `name` when no file of `folder` has it, else "base-2.ext", "base-3.ext"…
QString uniqueName(const QString& folder, const QString& name);

/// `value` as `count` bytes, most significant first; and back, for 4 or 8 bytes.
QByteArray bigEndian(quint64 value, int count);
quint64 number(QByteArrayView bytes);

/// Writes `data` to a new file at `path` (0600), flushed to the disk with its folder; false on any
/// failure, with nothing left at `path`.
bool writeDurably(const QString& path, const QByteArray& data);
/// Flushes a folder's entries (a rename, a new file) to the disk.
bool syncFolder(const QString& folder);

} // namespace VaultCrypto

} // namespace nuvrel
