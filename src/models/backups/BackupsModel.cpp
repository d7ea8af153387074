#include "models/backups/BackupsModel.h"

#include "engines/backup/BackupLocator.h"
#include "ground/Job.h"
#include "l10n/L.h"

#include <QDir>
#include <QSettings>

#include <utility>

namespace nuvrel {

BackupsModel::BackupsModel(Scanner scanner, QObject* parent)
    : QObject(parent)
    , m_scanner(scanner ? std::move(scanner) : Scanner([] { return BackupLocator::scan(); }))
    , m_job(new Job(this))
{
    connect(m_job, &Job::failed, this, [this] { publish(BackupScan::empty()); });
}

BackupsModel::~BackupsModel() = default;

QString BackupsModel::root() const
{
    return QDir::toNativeSeparators(BackupLocator::root());
}

void BackupsModel::refresh()
{
    if (m_scanning) {
        m_rescan = true; // what is being scanned may no longer be what was asked for
        return;
    }
    m_scanning = true;
    Q_EMIT scanningChanged();
    m_job->start([scanner = m_scanner](JobContext&) { return scanner(); },
                 [this](const BackupScan& scan) { publish(scan); });
}

void BackupsModel::chooseRoot(const QString& folder)
{
    if (folder.isEmpty())
        return;
    QSettings().setValue(BackupLocator::settingsKey, QDir::cleanPath(folder));
    refresh();
}

void BackupsModel::publish(const BackupScan& scan)
{
    switch (scan.status()) {
    case BackupScan::Status::Found: m_state = State::Found; break;
    case BackupScan::Status::Empty: m_state = State::Empty; break;
    case BackupScan::Status::NeedsFullDiskAccess: m_state = State::NeedsFullDiskAccess; break;
    }
    m_backups = scan.backups();
    m_scanning = false;
    Q_EMIT stateChanged();
    Q_EMIT scanningChanged();
    if (std::exchange(m_rescan, false))
        refresh();
}

QString BackupsModel::detailLine(const PhoneBackup& backup)
{
    QStringList pieces;
    if (!backup.iosVersion.isEmpty())
        pieces << L("iOS ") + backup.iosVersion;
    if (backup.lastBackup)
        pieces << L("dernière sauvegarde le ") + Localizer::formatDateTime(*backup.lastBackup);
    return pieces.join(QStringLiteral(" · "));
}

QString BackupsModel::fullDiskAccessSettingsUrl()
{
#ifdef Q_OS_MACOS
    return QStringLiteral("x-apple.systempreferences:com.apple.preference.security?Privacy_AllFiles");
#else
    return {};
#endif
}

} // namespace nuvrel
