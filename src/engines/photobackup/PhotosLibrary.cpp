#include "engines/photobackup/PhotosLibrary.h"

#include "formats/plist/PropertyList.h"
#include "formats/sqlite/PrivateDatabase.h"
#include "formats/sqlite/SqlError.h"
#include "formats/sqlite/SqlStatement.h"
#include "ground/Dates.h"
#include "ground/FreeName.h"
#include "l10n/L.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>

#include <cmath>
#include <sqlite3.h>

namespace nuvrel {

namespace {

const QString databasePath = QStringLiteral("database/Photos.sqlite");

bool isSet(const std::atomic<bool>* flag)
{
    return flag && flag->load(std::memory_order_relaxed);
}

QSet<QString> tablesOf(sqlite3* db)
{
    QSet<QString> tables;
    SqlStatement statement = SqlStatement::prepare(db, "SELECT name FROM sqlite_master WHERE type = 'table'");
    while (statement.next())
        tables.insert(statement.text(0).value_or(QString()));
    return tables;
}

QSet<QString> columnsOf(sqlite3* db, const QString& table)
{
    QSet<QString> columns;
    // The table's name comes from our own list of two, never from the database.
    const QByteArray sql = "PRAGMA table_info(" + table.toLatin1() + ")";
    SqlStatement statement = SqlStatement::prepare(db, sql.constData());
    while (statement.next())
        columns.insert(statement.text(1).value_or(QString()));
    return columns;
}

qint64 modelVersion(sqlite3* db)
{
    std::optional<SqlStatement> statement = SqlStatement::tryPrepare(db, "SELECT Z_PLIST FROM Z_METADATA");
    if (!statement)
        return -1;
    while (statement->next()) {
        const QVariantMap metadata = PropertyList::fromData(statement->blob(0)).toMap();
        const QVariant version = metadata.value(QStringLiteral("PLModelVersion"));
        if (version.canConvert<qint64>() && version.isValid())
            return version.toLongLong();
    }
    return -1;
}

// A UUID as Photos writes them; anything else never names a file.
bool isUuid(const QString& text)
{
    static const QRegularExpression form(QStringLiteral("^[0-9A-Fa-f]{8}(-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}$"));
    return form.match(text).hasMatch();
}

QString withSuffix(const QString& name, const QString& suffix)
{
    const qsizetype dot = name.lastIndexOf(u'.');
    return nameWithTail(dot > 0 ? name.left(dot) : name, u'.' + suffix);
}

// "IMG_0001.HEIC" → "IMG_0001-modifiee.HEIC": an edited version never takes the original's name.
QString editedName(const QString& name)
{
    const qsizetype dot = name.lastIndexOf(u'.');
    if (dot <= 0)
        return nameWithTail(name, QStringLiteral("-modifiee"));
    return nameWithTail(name.left(dot), QStringLiteral("-modifiee.") + name.mid(dot + 1));
}

QString firstExisting(const QStringList& candidates)
{
    for (const QString& candidate : candidates) {
        if (QFileInfo(candidate).isFile())
            return candidate;
    }
    return candidates.value(0);
}

} // namespace

QString PhotosLibraryError::message() const
{
    switch (m_kind) {
    case Kind::NotALibrary:
        return L("Ce dossier n'est pas une photothèque Photos : il ne contient pas « database/Photos.sqlite ».");
    case Kind::Unreadable:
        return L("Impossible de lire la base de données de cette photothèque. Vérifie que tu as le droit de lire son "
                 "dossier.");
    case Kind::Unsupported:
        return L("Cette photothèque vient d'une version de Photos que Nuvrel ne sait pas lire (%@). Ouvre-la une fois "
                 "avec Photos sous macOS 10.15 ou plus récent, puis réessaie.",
                 m_detail);
    }
    return {};
}

QString LibraryAsset::key(const LibraryResource& resource) const
{
    return localIdentifier() + u'|' + QString::number(int(resource.type));
}

bool PhotosLibrary::isLibrary(const QString& path)
{
    return QFileInfo(QDir(path).filePath(databasePath)).isFile();
}

QList<LibraryAsset> PhotosLibrary::readAssets(const QString& package, const std::atomic<bool>* cancel)
{
    const QString root = QDir::cleanPath(QDir(package).absolutePath());
    const QString database = QDir(root).filePath(databasePath);
    if (!QFileInfo(database).isFile()) {
        // Photos 4 and before kept "database/photos.db" and a "Masters" folder.
        if (QFileInfo(QDir(root).filePath(QStringLiteral("database/photos.db"))).isFile())
            throw PhotosLibraryError(PhotosLibraryError::Kind::Unsupported, QStringLiteral("Photos ≤ 4"));
        throw PhotosLibraryError(PhotosLibraryError::Kind::NotALibrary);
    }
    try {
        PrivateDatabase copy(database);
        sqlite3* db = copy.handle();
        // Reading the schema first tells a database that is no database from one of another kind.
        const QSet<QString> tables = tablesOf(db);
        const qint64 version = tables.contains(QStringLiteral("Z_METADATA")) ? modelVersion(db) : -1;
        if (version < firstModelVersion || version >= endModelVersion)
            throw PhotosLibraryError(PhotosLibraryError::Kind::Unsupported,
                                     version < 0 ? QStringLiteral("?") : QString::number(version));
        const QString assetTable = tables.contains(QStringLiteral("ZASSET"))          ? QStringLiteral("ZASSET")
                                   : tables.contains(QStringLiteral("ZGENERICASSET")) ? QStringLiteral("ZGENERICASSET")
                                                                                      : QString();
        const QSet<QString> needed = {
            QStringLiteral("Z_PK"),         QStringLiteral("ZUUID"),           QStringLiteral("ZDIRECTORY"),
            QStringLiteral("ZFILENAME"),    QStringLiteral("ZDATECREATED"),    QStringLiteral("ZKIND"),
            QStringLiteral("ZKINDSUBTYPE"), QStringLiteral("ZHASADJUSTMENTS"), QStringLiteral("ZTRASHEDSTATE"),
        };
        if (assetTable.isEmpty() || !columnsOf(db, assetTable).contains(needed))
            throw PhotosLibraryError(PhotosLibraryError::Kind::Unsupported, QString::number(version));
        const bool hasNames = tables.contains(QStringLiteral("ZADDITIONALASSETATTRIBUTES")) &&
                              columnsOf(db, QStringLiteral("ZADDITIONALASSETATTRIBUTES"))
                                  .contains({QStringLiteral("ZASSET"), QStringLiteral("ZORIGINALFILENAME")});
        const QByteArray sql =
            "SELECT a.ZUUID, a.ZDIRECTORY, a.ZFILENAME, a.ZDATECREATED, a.ZKIND, a.ZKINDSUBTYPE, a.ZHASADJUSTMENTS, " +
            QByteArray(hasNames ? "n.ZORIGINALFILENAME" : "NULL") + " FROM " + assetTable.toLatin1() + " a " +
            QByteArray(hasNames ? "LEFT JOIN ZADDITIONALASSETATTRIBUTES n ON n.ZASSET = a.Z_PK " : "") +
            "WHERE COALESCE(a.ZTRASHEDSTATE, 0) = 0 ORDER BY a.ZDATECREATED, a.Z_PK";
        SqlStatement rows = SqlStatement::prepare(db, sql.constData());
        QList<LibraryAsset> assets;
        while (rows.next()) {
            if (isSet(cancel))
                return {};
            LibraryAsset asset;
            asset.uuid = rows.text(0).value_or(QString());
            if (!isUuid(asset.uuid))
                continue;
            if (!rows.isNull(3) && std::isfinite(rows.real(3)))
                asset.created = utcFromSecsSinceEpoch(qint64(std::floor(rows.real(3))) + appleEpochOffsetSeconds);
            // Names from the database are cleaned into one component each: none can climb out of the
            // package or into another folder of it.
            QString directory = cleanFileName(rows.text(1).value_or(QString()));
            const QString subfolder = asset.uuid.left(1).toUpper();
            if (directory.isEmpty())
                directory = subfolder;
            const QString stored = cleanFileName(rows.text(2).value_or(QString()));
            QString original = cleanFileName(rows.text(7).value_or(QString()));
            if (original.isEmpty())
                original = stored.isEmpty() ? asset.uuid : stored;
            const bool video = rows.int64(4) == 1;
            const QDir originals(QDir(root).filePath(QStringLiteral("originals/") + directory));
            const QDir renders(QDir(root).filePath(QStringLiteral("resources/renders/") + subfolder));
            asset.resources.append({video ? ResourceType::Video : ResourceType::Photo,
                                    originals.filePath(stored.isEmpty() ? asset.uuid : stored), original});
            if (!video && rows.int64(5) == 2) {
                asset.resources.append({ResourceType::PairedVideo,
                                        QDir(QDir(root).filePath(QStringLiteral("originals/") + subfolder))
                                            .filePath(asset.uuid + QStringLiteral("_3.mov")),
                                        withSuffix(original, QStringLiteral("MOV"))});
            }
            if (rows.int64(6) != 0) {
                const QString render =
                    video ? renders.filePath(asset.uuid + QStringLiteral("_2_0_a.mov"))
                          : firstExisting({renders.filePath(asset.uuid + QStringLiteral("_1_201_a.jpeg")),
                                           renders.filePath(asset.uuid + QStringLiteral("_1_201_a.heic"))});
                asset.resources.append({video ? ResourceType::FullSizeVideo : ResourceType::FullSizePhoto, render,
                                        editedName(withSuffix(original, QFileInfo(render).suffix()))});
            }
            assets.append(std::move(asset));
        }
        return assets;
    } catch (const SqlError&) {
        throw PhotosLibraryError(PhotosLibraryError::Kind::Unreadable);
    }
}

} // namespace nuvrel
