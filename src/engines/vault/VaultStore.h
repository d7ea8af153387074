#pragma once

#include "engines/vault/VaultCrypto.h"

#include <QString>

namespace nuvrel {

/// The vault folder on disk, under one key: its encrypted files and its index, changed so that no
/// crash, full disk or power cut can lose a file put in. Each step is on the disk before the next
/// relies on it:
///   1. a file is encrypted into the work folder, flushed, then renamed into the vault;
///   2. the index naming it is written to the work folder, flushed, the index in place becomes
///      "index-old.nvv", and the new one takes "index.nvv";
///   3. only then may its original go to the trash.
/// An encrypted file that no index names (a crash between 1 and 2) is found again at load.
class VaultStore final
{
public:
    static constexpr char indexName[] = "index.nvv";
    static constexpr char previousIndexName[] = "index-old.nvv";
    /// Files being written live here, out of the way of anything that reads the vault folder.
    static constexpr char workFolderName[] = ".ecriture";

    VaultStore(const QString& folder, const QByteArray& key);
    /// Wipes the key from memory once no copy of the store shares it.
    ~VaultStore();
    VaultStore(const VaultStore&) = default;
    VaultStore& operator=(const VaultStore&) = default;

    /// "Nuvrel/Coffre" in the user's data folder (~/.local/share on Linux, Application Support on
    /// macOS).
    static QString defaultFolder();
    /// Makes `folder` and its missing parents, owner only (0700); false when it cannot.
    static bool makePrivateFolder(const QString& folder);
    /// Whether the folder holds encrypted files: then a missing key is a lost key, not a first use.
    static bool hasEncryptedFiles(const QString& folder);

    QString folder() const { return m_folder; }
    QString pathOf(const VaultEntry& entry) const;

    struct Contents
    {
        QList<VaultEntry> entries;
        bool fromPreviousIndex = false; ///< "index.nvv" did not open; its predecessor did
        QList<VaultEntry> recovered;    ///< encrypted files no index named, checked whole
    };
    /// The index (an empty list when there is none yet), else the previous one; nothing when an
    /// index exists and neither opens.
    std::optional<Contents> load(const std::atomic<bool>* cancel = nullptr) const;

    /// The entries of the index (none yet: an empty list), else of the previous one, telling so in
    /// `fromPrevious`; nothing when an index exists and neither opens.
    std::optional<QList<VaultEntry>> readIndex(bool* fromPrevious = nullptr) const;

    /// Writes `entries` as the index, durably, keeping the one it replaces as "index-old.nvv".
    bool commit(const QList<VaultEntry>& entries) const;

    /// Encrypts `source` into the vault: an entry named after it, with its size, its digest, its
    /// folder as origin and the time now. The index does not name it yet: commit() does. Throws
    /// VaultFailure; nothing is left behind on failure.
    VaultEntry add(const QString& source, const VaultCrypto::Progress& progress = {},
                   const std::atomic<bool>* cancel = nullptr) const;

    /// Decrypts an entry to `destination`, checked against the entry's digest when it has one: a file
    /// moved or swapped in from elsewhere opens under the key, but is not this entry. Throws
    /// VaultFailure (DigestMismatch for that case) and then leaves nothing at `destination`.
    void extract(const VaultEntry& entry, const QString& destination, const VaultCrypto::Progress& progress = {},
                 const std::atomic<bool>* cancel = nullptr) const;

    /// Removes an entry's encrypted file, durably; true when it is gone.
    bool removeFile(const VaultEntry& entry) const;

private:
    QString m_folder;
    QByteArray m_key;
};

} // namespace nuvrel
