#include "support/FileRecordBlob.h"

#include "support/PlistWriter.h"

namespace nuvrel::test {

namespace {
QVariant uid(quint64 value)
{
    return QVariant::fromValue(PlistUid{value});
}
QVariant classRecord(const QString& name, const QStringList& chain)
{
    QVariantList classes;
    for (const QString& link : chain)
        classes.append(link);
    return QVariantMap{{QStringLiteral("$classname"), name}, {QStringLiteral("$classes"), classes}};
}
} // namespace

QByteArray makeFileRecordBlob(const FileRecord& record)
{
    QVariantList objects{QStringLiteral("$null")};
    const qint64 time = record.lastModified.value_or(1'600'000'000);
    QVariantMap file{
        {QStringLiteral("Birth"), time - 86400},
        {QStringLiteral("Flags"), 0},
        {QStringLiteral("GroupID"), 501},
        {QStringLiteral("InodeNumber"), 1234567},
        {QStringLiteral("LastStatusChange"), time},
        {QStringLiteral("Mode"), record.mode},
        {QStringLiteral("ProtectionClass"), record.protectionClass},
        {QStringLiteral("UserID"), 501},
    };
    if (record.lastModified)
        file.insert(QStringLiteral("LastModified"), *record.lastModified);
    objects.append(QVariant()); // the record itself, filled in below
    objects.append(record.relativePath);
    file.insert(QStringLiteral("RelativePath"), uid(2));
    if (record.sizeByReference) {
        file.insert(QStringLiteral("Size"), uid(static_cast<quint64>(objects.size())));
        objects.append(record.size);
    } else {
        file.insert(QStringLiteral("Size"), record.size);
    }
    if (record.encryptionKey) {
        file.insert(QStringLiteral("EncryptionKey"), uid(static_cast<quint64>(objects.size())));
        if (record.keyAsNSData) {
            objects.append(QVariantMap{{QStringLiteral("NS.data"), *record.encryptionKey},
                                       {QStringLiteral("$class"), uid(static_cast<quint64>(objects.size() + 1))}});
            objects.append(
                classRecord(QStringLiteral("NSMutableData"),
                            {QStringLiteral("NSMutableData"), QStringLiteral("NSData"), QStringLiteral("NSObject")}));
        } else {
            objects.append(*record.encryptionKey);
        }
    }
    file.insert(QStringLiteral("$class"), uid(static_cast<quint64>(objects.size())));
    objects.append(classRecord(QStringLiteral("MBFile"), {QStringLiteral("MBFile"), QStringLiteral("NSObject")}));
    objects[1] = file;

    const QVariantMap archive{
        {QStringLiteral("$version"), 100000},
        {QStringLiteral("$archiver"), QStringLiteral("NSKeyedArchiver")},
        {QStringLiteral("$top"), QVariantMap{{QStringLiteral("root"), uid(1)}}},
        {QStringLiteral("$objects"), objects},
    };
    return writePlist(archive, PlistFormat::Binary);
}

} // namespace nuvrel::test
