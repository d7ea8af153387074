#pragma once

#include "support/PlistWriter.h"

#include <QDateTime>
#include <QString>
#include <QVariant>

#include <optional>

namespace nuvrel::test {

/// A backup folder as the sync service lays it out, for discovery to find.
struct FakeBackup
{
    QString id;
    std::optional<QVariant> info;     ///< written as Info.plist when set
    std::optional<QVariant> manifest; ///< written as Manifest.plist when set
    PlistFormat format = PlistFormat::Binary;
};

/// The Info.plist of a backup; an unset field is left out.
QVariantMap infoPlist(const std::optional<QString>& deviceName, const std::optional<QString>& productType = {},
                      const std::optional<QString>& productVersion = {},
                      const std::optional<QDateTime>& lastBackup = {});

/// Manifest.plist with or without "IsEncrypted".
QVariantMap manifestPlist(std::optional<bool> isEncrypted);

/// Writes the backup folder under `root` and returns its path.
QString writeBackup(const QString& root, const FakeBackup& backup);

/// Writes raw bytes to a file, creating its folder; fails the program on error, since a test cannot go on.
void writeFile(const QString& path, const QByteArray& bytes);
/// The bytes of a file; empty when it cannot be read.
QByteArray readFile(const QString& path);
/// `size` bytes that compress to nothing, the same for the same seed.
QByteArray noise(qsizetype size, quint32 seed);

} // namespace nuvrel::test
