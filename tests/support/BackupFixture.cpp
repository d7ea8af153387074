#include "support/BackupFixture.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

namespace nuvrel::test {

QVariantMap infoPlist(const std::optional<QString>& deviceName, const std::optional<QString>& productType,
                      const std::optional<QString>& productVersion, const std::optional<QDateTime>& lastBackup)
{
    QVariantMap info{
        {QStringLiteral("Build Version"), QStringLiteral("21F90")},
        {QStringLiteral("GUID"), QStringLiteral("5F1B7E2A9C4D4E0F8A6B3C2D1E0F9A8B")},
        {QStringLiteral("iTunes Version"), QStringLiteral("12.13.2.3")},
    };
    if (deviceName) {
        info.insert(QStringLiteral("Device Name"), *deviceName);
        info.insert(QStringLiteral("Display Name"), *deviceName);
    }
    if (productType)
        info.insert(QStringLiteral("Product Type"), *productType);
    if (productVersion)
        info.insert(QStringLiteral("Product Version"), *productVersion);
    if (lastBackup)
        info.insert(QStringLiteral("Last Backup Date"), *lastBackup);
    return info;
}

QVariantMap manifestPlist(std::optional<bool> isEncrypted)
{
    QVariantMap manifest{
        {QStringLiteral("Version"), QStringLiteral("10.0")},
        {QStringLiteral("WasPasscodeSet"), true},
        {QStringLiteral("SystemDomainsVersion"), QStringLiteral("24.0")},
    };
    if (isEncrypted)
        manifest.insert(QStringLiteral("IsEncrypted"), *isEncrypted);
    return manifest;
}

void writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray noise(qsizetype size, quint32 seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator random(seed);
    for (char& byte : bytes)
        byte = char(random.bounded(256));
    return bytes;
}

QString writeBackup(const QString& root, const FakeBackup& backup)
{
    const QString folder = QDir(root).filePath(backup.id);
    QDir().mkpath(folder);
    if (backup.info)
        writeFile(folder + QStringLiteral("/Info.plist"), writePlist(*backup.info, backup.format));
    if (backup.manifest)
        writeFile(folder + QStringLiteral("/Manifest.plist"), writePlist(*backup.manifest, backup.format));
    return folder;
}

} // namespace nuvrel::test
