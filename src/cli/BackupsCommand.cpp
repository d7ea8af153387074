#include "cli/BackupsCommand.h"

#include "cli/CommandLine.h"
#include "cli/TextTable.h"
#include "engines/backup/BackupLocator.h"
#include "l10n/L.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace nuvrel::cli {

namespace {

QString statusName(BackupScan::Status status)
{
    switch (status) {
    case BackupScan::Status::Found: return QStringLiteral("found");
    case BackupScan::Status::Empty: return QStringLiteral("empty");
    case BackupScan::Status::NeedsFullDiskAccess: return QStringLiteral("needsFullDiskAccess");
    }
    return {};
}

int exitCode(BackupScan::Status status)
{
    switch (status) {
    case BackupScan::Status::Found: return Found;
    case BackupScan::Status::Empty: return NothingFound;
    case BackupScan::Status::NeedsFullDiskAccess: return AccessRefused;
    }
    return NothingFound;
}

void printTable(const QString& root, const QList<PhoneBackup>& backups, QTextStream& out)
{
    out << L("Sauvegardes trouvées dans %@ :", root) << "\n\n";
    TextTable table;
    table.addRow({L("Appareil"), L("Modèle"), L("Version d'iOS"), L("Dernière sauvegarde"), L("Chiffrée")});
    for (const PhoneBackup& backup : backups) {
        table.addRow({backup.deviceName, backup.productType, backup.iosVersion,
                      backup.lastBackup ? Localizer::formatDateTime(*backup.lastBackup) : QString(),
                      backup.isEncrypted ? L("oui") : L("non")});
    }
    table.print(out);
}

} // namespace

QByteArray backupsJson(const QString& root, const BackupScan& scan)
{
    QJsonArray backups;
    for (const PhoneBackup& backup : scan.backups()) {
        backups.append(QJsonObject{
            {QStringLiteral("id"), backup.id},
            {QStringLiteral("deviceName"), backup.deviceName},
            {QStringLiteral("productType"), backup.productType},
            {QStringLiteral("iosVersion"), backup.iosVersion},
            {QStringLiteral("lastBackup"),
             backup.lastBackup ? QJsonValue(backup.lastBackup->toUTC().toString(Qt::ISODate)) : QJsonValue()},
            {QStringLiteral("isEncrypted"), backup.isEncrypted},
            {QStringLiteral("url"), backup.url},
        });
    }
    const QJsonObject document{
        {QStringLiteral("root"), root},
        {QStringLiteral("status"), statusName(scan.status())},
        {QStringLiteral("backups"), backups},
    };
    return QJsonDocument(document).toJson(QJsonDocument::Indented);
}

int runBackups(const QString& folder, bool json, QTextStream& out, QTextStream& err)
{
    const QString root = QDir::cleanPath(QDir(folder).absolutePath());
    const BackupScan scan = BackupLocator::scan(root);
    if (json) {
        out << QString::fromUtf8(backupsJson(root, scan));
        return exitCode(scan.status());
    }
    switch (scan.status()) {
    case BackupScan::Status::Found: printTable(root, scan.backups(), out); break;
    case BackupScan::Status::Empty:
        err << L("Aucune sauvegarde dans %@.", root) << '\n'
            << L("Branche ton iPhone, ouvre-le dans le Finder et choisis « Sauvegarder maintenant ». Elle apparaîtra "
                 "ici.")
            << '\n'
            << L("Tu peux indiquer un autre dossier avec %@ ou la variable %@.", QStringLiteral("--root"),
                 BackupLocator::environmentVariable.toString())
            << '\n';
        break;
    case BackupScan::Status::NeedsFullDiskAccess:
        err << L("Nuvrel n'a pas le droit de lire le dossier des sauvegardes %@. Sur un Mac, active l'accès complet au "
                 "disque pour ton terminal dans Réglages Système > Confidentialité et sécurité ; ailleurs, vérifie les "
                 "droits du dossier.",
                 root)
            << '\n';
        break;
    }
    return exitCode(scan.status());
}

} // namespace nuvrel::cli
