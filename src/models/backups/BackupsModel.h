#pragma once

#include "engines/backup/PhoneBackup.h"

#include <QObject>

#include <functional>

namespace nuvrel {

class Job;

/// The backups screen: the last scan of the backup folder, redone on request off the GUI thread.
class BackupsModel final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(nuvrel::BackupsModel::State state READ state NOTIFY stateChanged)
    Q_PROPERTY(QList<nuvrel::PhoneBackup> backups READ backups NOTIFY stateChanged)
    Q_PROPERTY(bool scanning READ isScanning NOTIFY scanningChanged)
    Q_PROPERTY(QString root READ root NOTIFY stateChanged)

public:
    /// Before the first scan ends the state is Scanning; then one of the scan's outcomes.
    enum class State { Scanning, Found, Empty, NeedsFullDiskAccess };
    Q_ENUM(State)

    using Scanner = std::function<BackupScan()>;

    /// `scanner` replaces the real scan in tests.
    explicit BackupsModel(Scanner scanner = {}, QObject* parent = nullptr);
    ~BackupsModel() override;

    State state() const { return m_state; }
    const QList<PhoneBackup>& backups() const { return m_backups; }
    bool isScanning() const { return m_scanning; }
    QString root() const;

    /// Scans again; during a scan, once more when it ends.
    Q_INVOKABLE void refresh();
    /// Keeps `folder` as the place to look for backups (the "backupRoot" setting) and scans it.
    Q_INVOKABLE void chooseRoot(const QString& folder);

    /// The row's second line: "iOS 17.5 · dernière sauvegarde le 3 mars 2026 à 10:04", either part alone, or empty.
    static QString detailLine(const PhoneBackup& backup);
    /// The system settings page that grants the permission, where the system has one.
    static QString fullDiskAccessSettingsUrl();

Q_SIGNALS:
    void stateChanged();
    void scanningChanged();

private:
    void publish(const BackupScan& scan);

    Scanner m_scanner;
    Job* m_job;
    State m_state = State::Scanning;
    QList<PhoneBackup> m_backups;
    bool m_scanning = false;
    bool m_rescan = false;
};

} // namespace nuvrel
