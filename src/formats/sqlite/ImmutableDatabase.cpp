#include "formats/sqlite/ImmutableDatabase.h"

#include "formats/sqlite/SqlError.h"

#include <QFileInfo>
#include <QUrl>

#include <sqlite3.h>

namespace nuvrel {

ImmutableDatabase::ImmutableDatabase(const QString& path)
{
    // The URI form carries "immutable=1"; the file's name is encoded in it, whatever characters it has.
    const QByteArray uri = QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toEncoded() + "?immutable=1";
    // No mutex: a connection serves one thread at a time, and a listing calls SQLite millions of times.
    if (sqlite3_open_v2(uri.constData(), &m_db, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK) {
        sqlite3_close(m_db);
        m_db = nullptr;
        throw SqlError::unreadable();
    }
}

ImmutableDatabase::~ImmutableDatabase()
{
    sqlite3_close(m_db);
}

} // namespace nuvrel
