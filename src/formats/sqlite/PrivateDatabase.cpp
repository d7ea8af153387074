#include "formats/sqlite/PrivateDatabase.h"

#include "formats/sqlite/SqlError.h"
#include "ground/RegularFile.h"
#include "ground/WorkFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sqlite3.h>

#include <cerrno>

namespace nuvrel {

namespace {

// Copies a regular file only: a FIFO or a device in place of a database would block or never end.
// Returns which side failed and why.
std::optional<FileError> copyRegularFile(const QString& source, const QString& target)
{
    using Op = FileError::Operation;
    QFile input;
    if (!openRegularFile(input, source))
        return FileError::fromErrno(Op::Read, errno, source);
    QFile output(target);
    if (!output.open(QIODevice::WriteOnly | QIODevice::NewOnly))
        return FileError::fromErrno(Op::Write, errno, target);
    QByteArray buffer(1 << 20, Qt::Uninitialized);
    while (true) {
        const qint64 read = input.read(buffer.data(), buffer.size());
        if (read < 0)
            return FileError::fromErrno(Op::Read, errno, source);
        if (read == 0)
            break;
        if (output.write(buffer.constData(), read) != read)
            return FileError::fromErrno(Op::Write, errno, target);
    }
    if (!output.flush())
        return FileError::fromErrno(Op::Write, errno, target);
    return std::nullopt;
}

// The companions SQLite reads beside a database: the write-ahead log, and the rollback journal of a
// transaction that never finished. The log's index (-shm) stays behind: copied at another moment than
// the log, it could disagree with it, and SQLite rebuilds it from the log alone.
constexpr const char* companions[] = {"-wal", "-journal"};

} // namespace

bool hasCompanions(const QString& file)
{
    return QFileInfo(file + QLatin1StringView("-journal")).exists() ||
           QFileInfo(file + QLatin1StringView("-wal")).size() > 0;
}

void copyWithCompanions(const QString& file, const QString& copy)
{
    if (std::optional<FileError> failure = copyRegularFile(file, copy))
        throw SqlError::copyFailed(std::move(*failure));
    for (const char* suffix : companions) {
        const QString source = file + QLatin1StringView(suffix);
        if (!QFileInfo::exists(source))
            continue;
        if (std::optional<FileError> failure = copyRegularFile(source, copy + QLatin1StringView(suffix)))
            throw SqlError::copyFailed(std::move(*failure));
    }
}

void settleCopy(const QString& copy)
{
    sqlite3* db = nullptr;
    // Read-write, so that SQLite may replay the log's committed transactions into the copy and roll an
    // unfinished one back; then the copy is made one file again, as an immutable open needs.
    const bool settled =
        sqlite3_open_v2(copy.toUtf8().constData(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK &&
        sqlite3_exec(db, "SELECT count(*) FROM sqlite_master", nullptr, nullptr, nullptr) == SQLITE_OK &&
        sqlite3_exec(db, "PRAGMA journal_mode=DELETE", nullptr, nullptr, nullptr) == SQLITE_OK;
    sqlite3_close(db);
    if (!settled)
        throw SqlError::unreadable();
}

PrivateDatabase::PrivateDatabase(const QString& file)
{
    try {
        m_work = std::make_unique<WorkFolder>(QStringLiteral("chatdb"));
    } catch (const FileError& error) {
        throw SqlError::copyFailed(error);
    }
    const QString copy = QDir(m_work->path()).filePath(QStringLiteral("chat.db"));
    try {
        // The write-ahead log comes along: the newest messages may not be in the main file yet.
        copyWithCompanions(file, copy);
    } catch (const SqlError&) {
        removeFolder();
        throw;
    }
    // Read-write, so that SQLite may replay the log into the copy.
    if (sqlite3_open_v2(copy.toUtf8().constData(), &m_db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
        sqlite3_close(m_db);
        m_db = nullptr;
        removeFolder();
        throw SqlError::unreadable();
    }
}

PrivateDatabase::~PrivateDatabase()
{
    sqlite3_close(m_db);
    removeFolder();
}

void PrivateDatabase::removeFolder()
{
    m_work->remove();
}

QString PrivateDatabase::folder() const
{
    return m_work->path();
}

} // namespace nuvrel
