#pragma once

#include "engines/backup/PhoneBackup.h"

#include <QString>
#include <QTextStream>

namespace nuvrel::cli {

/// `nuvrel-cli backups`: scans the backups folder `folder` and prints what it found; returns the exit code.
int runBackups(const QString& folder, bool json, QTextStream& out, QTextStream& err);

/// The scan as a JSON document: {"root", "status", "backups": [...]}.
QByteArray backupsJson(const QString& root, const BackupScan& scan);

} // namespace nuvrel::cli
