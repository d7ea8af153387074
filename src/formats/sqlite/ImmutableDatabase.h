#pragma once

#include <QString>

struct sqlite3;

namespace nuvrel {

/// A database file we must never touch (a backup's index), opened read-only and immutable: SQLite
/// then takes no lock and writes nothing beside it, no journal, no -wal, no -shm. Use it from one
/// thread at a time.
class ImmutableDatabase final
{
public:
    /// Opens `path`; throws SqlError::unreadable when it does not open.
    explicit ImmutableDatabase(const QString& path);
    ~ImmutableDatabase();
    Q_DISABLE_COPY_MOVE(ImmutableDatabase)

    sqlite3* handle() const { return m_db; }

private:
    sqlite3* m_db = nullptr;
};

} // namespace nuvrel
