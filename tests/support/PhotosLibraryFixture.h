#pragma once

// A Photos library package made in the test, as Photos 5 and later lay it out: the database with its
// model version and asset rows, and the files where the package keeps them.

#include "support/PlistWriter.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QVariant>

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace nuvrel::test {

// Seconds since 2001 of a local moment, as Photos stores ZDATECREATED.
inline double appleSeconds(const QDateTime& moment)
{
    return double(moment.toSecsSinceEpoch() - 978307200);
}

struct AssetRow
{
    QString uuid;
    QString directory;
    QString fileName;
    QVariant created; ///< double, or null
    int kind = 0;     ///< 0 photo, 1 video
    int subtype = 0;  ///< 2 Live Photo
    bool edited = false;
    bool trashed = false;
    QString originalName;
};

// A library package as Photos 5 and later lay it out, its asset table named `table`.
class LibraryBuilder final
{
public:
    LibraryBuilder(const QString& package, const char* table, qint64 modelVersion)
        : m_package(package)
        , m_table(table)
    {
        QDir().mkpath(package + QStringLiteral("/database"));
        sqlite3_open(QFile::encodeName(package + QStringLiteral("/database/Photos.sqlite")).constData(), &m_db);
        exec("CREATE TABLE Z_METADATA (Z_VERSION INTEGER PRIMARY KEY, Z_UUID VARCHAR(255), Z_PLIST BLOB)");
        const QByteArray plist =
            writePlist(QVariantMap{{QStringLiteral("PLModelVersion"), modelVersion}}, PlistFormat::Binary);
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(m_db, "INSERT INTO Z_METADATA VALUES (1, 'x', ?)", -1, &statement, nullptr);
        sqlite3_bind_blob(statement, 1, plist.constData(), int(plist.size()), SQLITE_TRANSIENT);
        sqlite3_step(statement);
        sqlite3_finalize(statement);
        exec("CREATE TABLE " + m_table +
             " (Z_PK INTEGER PRIMARY KEY, ZUUID VARCHAR, ZDIRECTORY VARCHAR, ZFILENAME VARCHAR, "
             "ZDATECREATED TIMESTAMP, ZKIND INTEGER, ZKINDSUBTYPE INTEGER, ZHASADJUSTMENTS INTEGER, ZTRASHEDSTATE "
             "INTEGER)");
        exec("CREATE TABLE ZADDITIONALASSETATTRIBUTES (Z_PK INTEGER PRIMARY KEY, ZASSET INTEGER, ZORIGINALFILENAME "
             "VARCHAR)");
    }
    ~LibraryBuilder() { sqlite3_close(m_db); }

    void exec(const QByteArray& sql)
    {
        ASSERT_EQ(sqlite3_exec(m_db, sql.constData(), nullptr, nullptr, nullptr), SQLITE_OK) << sql.constData();
    }

    void add(const AssetRow& row)
    {
        sqlite3_stmt* statement = nullptr;
        const QByteArray sql = "INSERT INTO " + m_table + " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)";
        sqlite3_prepare_v2(m_db, sql.constData(), -1, &statement, nullptr);
        const int key = ++m_rows;
        const QByteArray uuid = row.uuid.toUtf8(), directory = row.directory.toUtf8(), name = row.fileName.toUtf8();
        sqlite3_bind_int(statement, 1, key);
        sqlite3_bind_text(statement, 2, uuid.constData(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(statement, 3, directory.constData(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(statement, 4, name.constData(), -1, SQLITE_TRANSIENT);
        row.created.isNull() ? sqlite3_bind_null(statement, 5)
                             : sqlite3_bind_double(statement, 5, row.created.toDouble());
        sqlite3_bind_int(statement, 6, row.kind);
        sqlite3_bind_int(statement, 7, row.subtype);
        sqlite3_bind_int(statement, 8, row.edited ? 1 : 0);
        sqlite3_bind_int(statement, 9, row.trashed ? 1 : 0);
        EXPECT_EQ(sqlite3_step(statement), SQLITE_DONE);
        sqlite3_finalize(statement);
        if (!row.originalName.isNull()) {
            sqlite3_prepare_v2(m_db, "INSERT INTO ZADDITIONALASSETATTRIBUTES (ZASSET, ZORIGINALFILENAME) VALUES (?, ?)",
                               -1, &statement, nullptr);
            const QByteArray original = row.originalName.toUtf8();
            sqlite3_bind_int(statement, 1, key);
            sqlite3_bind_text(statement, 2, original.constData(), -1, SQLITE_TRANSIENT);
            EXPECT_EQ(sqlite3_step(statement), SQLITE_DONE);
            sqlite3_finalize(statement);
        }
    }

    void file(const QString& relative, const QByteArray& content)
    {
        const QString path = m_package + u'/' + relative;
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile out(path);
        EXPECT_TRUE(out.open(QIODevice::WriteOnly) && out.write(content) == content.size()) << relative.toStdString();
    }

private:
    QString m_package;
    QByteArray m_table;
    sqlite3* m_db = nullptr;
    int m_rows = 0;
};

} // namespace nuvrel::test
