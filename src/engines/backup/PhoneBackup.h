#pragma once

#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

namespace nuvrel {

/// One backup folder as the phone's sync service wrote it.
struct PhoneBackup
{
    QString id;          ///< the folder's own name, the device identifier
    QString deviceName;  ///< "iPhone" when Info.plist does not name it
    QString productType; ///< model code such as "iPhone14,2"; may be empty
    QString iosVersion;  ///< may be empty
    std::optional<QDateTime> lastBackup;
    bool isEncrypted = false;
    QString url; ///< the backup folder, as an absolute local path

    friend bool operator==(const PhoneBackup&, const PhoneBackup&) = default;
};

/// The outcome of looking for backups.
class BackupScan final
{
public:
    enum class Status { Found, Empty, NeedsFullDiskAccess };

    /// Backups newest first; an empty list makes an Empty scan, so Found always has something to show.
    static BackupScan found(QList<PhoneBackup> backups);
    static BackupScan empty() { return BackupScan(Status::Empty); }
    static BackupScan needsFullDiskAccess() { return BackupScan(Status::NeedsFullDiskAccess); }

    Status status() const { return m_status; }
    const QList<PhoneBackup>& backups() const { return m_backups; }

    friend bool operator==(const BackupScan&, const BackupScan&) = default;

private:
    explicit BackupScan(Status status, QList<PhoneBackup> backups = {})
        : m_status(status)
        , m_backups(std::move(backups))
    {}

    Status m_status;
    QList<PhoneBackup> m_backups;
};

} // namespace nuvrel
