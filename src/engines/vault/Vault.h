#pragma once

#include "engines/vault/VaultStore.h"

#include <QStringList>

#include <memory>

namespace nuvrel {

class SecretStore;
class Trash;

/// Why a vault did not open.
enum class VaultOpenError {
    CannotCreateFolder, ///< the vault folder cannot be made
    CannotCreateKey,    ///< the keyring refused a new key
    KeyMissing,         ///< encrypted files exist, their key does not
    UnreadableIndex,    ///< neither the index nor the one before it opens
};

/// What putting files in did, file by file.
struct VaultAddReport
{
    QList<VaultEntry> added; ///< in the vault, their originals in the trash
    QStringList failed;      ///< could not be encrypted (or the batch could not be recorded): left in place
    QStringList notMoved;    ///< encrypted, but the original could not go to the trash: left in place,
                             ///< its encrypted copy removed
    bool cancelled = false;  ///< stopped: the files not reached are in neither list
};

/// An unlocked vault: its key, its entries, and every change to them, each recorded on the disk before
/// the next step relies on it. Not thread-safe: one caller at a time. The key is wiped when the vault
/// is destroyed, which is what locking is.
class Vault final
{
public:
    /// Files of the vault decrypted for viewing live here, and only while it is unlocked.
    static constexpr char openedFolderName[] = "Nuvrel-coffre-ouvert";
    /// The plain files of the earliest vault recorded their folder of origin here.
    static constexpr char legacyOriginsName[] = ".origines.json";

    struct Opening
    {
        std::unique_ptr<Vault> vault; ///< none on failure
        VaultOpenError error = VaultOpenError::UnreadableIndex;
        bool fromPreviousIndex = false; ///< "index.nvv" did not open: the list is the one before it
        int recovered = 0;              ///< encrypted files no index named, listed again
        int migrated = 0;               ///< plain files of an older vault, now encrypted
        bool migrationFailed = false;   ///< some could not be: left in place
    };
    /// Opens the vault in `folder` (made when missing), under the key of `secrets` (made on first use),
    /// lists again the encrypted files a crash left unnamed, and encrypts the plain files of an older
    /// layout, their originals going to `trash`. Blocks on the keyring and the disk.
    static Opening open(const QString& folder, SecretStore& secrets, Trash& trash,
                        const std::atomic<bool>* cancel = nullptr);

    ~Vault() = default;
    Vault(const Vault&) = delete;
    Vault& operator=(const Vault&) = delete;

    const QList<VaultEntry>& entries() const { return m_entries; }
    const VaultStore& store() const { return m_store; }
    /// The entry with this id, or none.
    const VaultEntry* find(const QUuid& id) const;

    /// Progress over a batch: plaintext bytes done of all.
    using Progress = std::function<void(qint64 done, qint64 total)>;

    /// Encrypts each file, records the batch once, then moves each original to the trash. An
    /// original that changed while it was read, or that the trash refuses, stays; its encrypted copy
    /// goes.
    VaultAddReport add(const QStringList& files, Trash& trash, const Progress& progress = {},
                       const std::atomic<bool>* cancel = nullptr);

    /// Decrypts an entry into its folder of origin (the Documents folder when that is gone), under a
    /// free name, then takes it out of the vault. Where it now lies; throws VaultFailure, and then the
    /// vault is unchanged.
    QString restore(const QUuid& id, const VaultCrypto::Progress& progress = {},
                    const std::atomic<bool>* cancel = nullptr);
    /// The same into `folder`.
    QString restoreTo(const QUuid& id, const QString& folder, const VaultCrypto::Progress& progress = {},
                      const std::atomic<bool>* cancel = nullptr);

    /// Removes an entry and its encrypted file for good; false (and nothing changed) when the list
    /// cannot be recorded.
    bool remove(const QUuid& id);

    /// Decrypts an entry into the folder of opened copies; the copy's path. Throws VaultFailure.
    QString openCopy(const QUuid& id, const VaultCrypto::Progress& progress = {},
                     const std::atomic<bool>* cancel = nullptr);

    /// The folder of opened copies: in the user's private runtime folder where there is one, else in
    /// the temporary folder; made owner-only and checked to be ours. Nothing when it cannot be.
    static std::optional<QString> openedCopiesFolder();
    /// Removes every opened copy; false when some remain.
    static bool removeOpenedCopies();

private:
    Vault(const QString& folder, const QByteArray& key, QList<VaultEntry> entries);
    int indexOf(const QUuid& id) const;
    /// Applies `change` to the list on the disk, under the vault's change lock, and records it; the
    /// list in memory follows. False, and nothing changed, when it cannot be read or recorded.
    bool update(const std::function<void(QList<VaultEntry>&)>& change);
    VaultAddReport addFiles(const QStringList& files, Trash& trash, const Progress& progress,
                            const std::atomic<bool>* cancel, const std::function<QString(const QString&)>& originOf);
    /// Encrypts the plain files of the earliest layout; false when some stay plain.
    bool migrateLegacy(Trash& trash, int& migrated, const std::atomic<bool>* cancel);

    VaultStore m_store; ///< holds the key
    QList<VaultEntry> m_entries;
};

} // namespace nuvrel
