#pragma once

#include "engines/backup/BackupEntry.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace nuvrel {

/// One category of a backup's files.
struct DomainRow
{
    QString domain;
    QString title;
    qint64 count = 0; ///< files in the domain

    friend bool operator==(const DomainRow&, const DomainRow&) = default;
};

/// One line of a folder listing: a subfolder (with what lies below it) or a file.
struct FolderItem
{
    QString id;
    QString name;
    bool isFolder = false;
    qint64 count = 0; ///< files below a folder
    qint64 size = 0;
    std::optional<BackupEntry> entry; ///< for files
};

/// One camera-roll photo or video.
struct BackupPhoto
{
    BackupEntry entry;
    qint64 size = 0;
    std::optional<QDateTime> date; ///< the file's modification time
    bool isVideo = false;
};

/// What a backup holds, organised for people: its camera roll, its files by domain with the domains
/// ranked and titled, and its conversation databases. The one definition of each rule, for the window
/// and the CLI alike.
class BackupCatalogue final
{
public:
    static const QString cameraRollDomain;
    static const QString messagesDomain;
    static const QString messagesPath;
    static const QString whatsAppDomain;
    static const QString whatsAppPath;

    QList<BackupPhoto> photos;                   ///< newest first; undated ones last, in index order
    QHash<QString, QList<BackupEntry>> byDomain; ///< each domain's entries in index order
    QList<DomainRow> domains;                    ///< ranked
    std::optional<BackupEntry> messagesDatabase;
    std::optional<BackupEntry> whatsAppDatabase;

    static BackupCatalogue organize(QList<BackupEntry> entries);

    /// A camera-roll photo or video: "CameraRollDomain", below "Media/DCIM/", with a photo or video
    /// extension (a sidecar such as IMG_0001.AAE is not one).
    static bool isPhoto(const BackupEntry& entry, bool* isVideo = nullptr);
    static bool isPhotoPath(const QString& path, bool* isVideo = nullptr);
    /// A domain's title for people, in the language in force.
    static QString friendly(const QString& domain);
    /// Lower first: the camera roll, WhatsApp, the home domain, media; the rest after.
    static int domainRank(const QString& domain);
    /// The listing of `folder` inside one domain's entries: folders then files, each in the file
    /// manager's order (case-insensitive, digit runs by value).
    static QList<FolderItem> listing(const QList<BackupEntry>& entries, const QStringList& folder);
};

} // namespace nuvrel
