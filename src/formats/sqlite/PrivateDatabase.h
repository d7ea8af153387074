#pragma once

#include <QString>

#include <memory>

struct sqlite3;

namespace nuvrel {

class WorkFolder;

/// A private copy of a conversation database, opened. The user's database and its -wal and -shm
/// companions are only read (copied), never opened: the Messages and WhatsApp applications may be
/// writing them, and a read-only open of a live WAL database can still leave files behind.
/// The copy lives in a WorkFolder of the "chatdb" group, removed with it.
class PrivateDatabase final
{
public:
    /// Copies and opens; throws SqlError::copyFailed when a copy fails, unreadable when the
    /// copy does not open. The folder is gone again on every failure.
    explicit PrivateDatabase(const QString& file);
    ~PrivateDatabase();
    Q_DISABLE_COPY_MOVE(PrivateDatabase)

    sqlite3* handle() const { return m_db; }
    QString folder() const;

private:
    void removeFolder();

    std::unique_ptr<WorkFolder> m_work;
    sqlite3* m_db = nullptr;
};

/// Whether reading `file` right needs the files beside it: a write-ahead log that holds transactions,
/// or the rollback journal of a transaction that never finished.
bool hasCompanions(const QString& file);

/// Copies `file` to `copy`, with its -wal and -journal when they exist; throws
/// SqlError::copyFailed. The original is only read.
void copyWithCompanions(const QString& file, const QString& copy);

/// Brings a copy made by copyWithCompanions to what a reader of the original sees (the log's
/// committed transactions in, an unfinished one rolled back) in one file; throws SqlError::unreadable.
void settleCopy(const QString& copy);

/// Runs `body` with the connection of a private copy of `file`, then closes and removes the copy.
template <typename Body>
auto withDatabase(const QString& file, Body&& body)
{
    PrivateDatabase database(file);
    return body(database.handle());
}

} // namespace nuvrel
