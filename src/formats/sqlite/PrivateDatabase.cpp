#include "formats/sqlite/PrivateDatabase.h"

#include "formats/sqlite/SqlError.h"
#include "ground/RegularFile.h"
#include "l10n/L.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <sqlite3.h>

namespace nuvrel {

namespace {

// Why a copy failed, in the user's language; Qt's own copy messages are English and too technical.
QString copyFailure(const QString& source)
{
    const QFileInfo info(source);
    if (!info.exists())
        return L("fichier introuvable : %@", source);
    if (!info.isReadable())
        return L("lecture refusée : %@", source);
    return L("copie impossible : %@", source);
}

// Copies a regular file only: a FIFO or a device in place of a database would block or never end.
bool copyRegularFile(const QString& source, const QString& target)
{
    QFile input;
    QFile output(target);
    if (!openRegularFile(input, source) || !output.open(QIODevice::WriteOnly | QIODevice::NewOnly))
        return false;
    QByteArray buffer(1 << 20, Qt::Uninitialized);
    while (true) {
        const qint64 read = input.read(buffer.data(), buffer.size());
        if (read < 0)
            return false;
        if (read == 0)
            return output.flush();
        if (output.write(buffer.constData(), read) != read)
            return false;
    }
}

} // namespace

PrivateDatabase::PrivateDatabase(const QString& file)
{
    m_folder = QDir(QDir::tempPath())
                   .filePath(QStringLiteral("Nuvrel-chatdb-") + QUuid::createUuid().toString(QUuid::WithoutBraces));
    if (!QDir().mkpath(m_folder))
        throw SqlError::copyFailed(L("copie impossible : %@", m_folder));
    QFile::setPermissions(m_folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);

    const QString copy = QDir(m_folder).filePath(QStringLiteral("chat.db"));
    // The write-ahead log comes along: the newest messages may not be in the main file yet.
    for (const char* suffix : {"", "-wal", "-shm"}) {
        const QString source = file + QLatin1StringView(suffix);
        if (*suffix && !QFileInfo::exists(source))
            continue;
        if (!copyRegularFile(source, copy + QLatin1StringView(suffix))) {
            const QString reason = copyFailure(source);
            removeFolder();
            throw SqlError::copyFailed(reason);
        }
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
    if (!m_folder.isEmpty())
        QDir(m_folder).removeRecursively();
}

} // namespace nuvrel
