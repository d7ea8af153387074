#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace nuvrel::test {

/// The fields of a manifest file record, as the phone's backup service archives them.
struct FileRecord
{
    QString relativePath = QStringLiteral("Library/SMS/sms.db");
    qint64 size = 0;
    qint64 protectionClass = 3;
    qint64 mode = 0100644;
    std::optional<qint64> lastModified = 1700000000; ///< left out of the record when unset
    std::optional<QByteArray> encryptionKey;
    bool keyAsNSData = true;      ///< wrapped in {"NS.data": …} as NSKeyedArchiver does, else plain data
    bool sizeByReference = false; ///< "Size" stored as a uid into "$objects"
};

/// A keyed archive of an MBFile record, written as a binary property list by libplist.
QByteArray makeFileRecordBlob(const FileRecord& record);

} // namespace nuvrel::test
