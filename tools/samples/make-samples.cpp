// Writes sample backup folders, shaped like the ones the phone's sync service writes, for the demo
// and for trying Nuvrel on a machine without an iPhone:   nuvrel-make-samples <folder>
// With --blobs, writes manifest file-record blobs instead, as seeds for the fuzzer.

#include "support/BackupFixture.h"
#include "support/FileRecordBlob.h"

#include <QCoreApplication>
#include <QDir>
#include <QTextStream>
#include <QTimeZone>

using namespace nuvrel::test;

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QTextStream err(stderr);
    QStringList arguments = QCoreApplication::arguments().mid(1);
    const bool blobs = arguments.removeAll(QStringLiteral("--blobs")) > 0;
    if (arguments.size() != 1) {
        err << "usage: nuvrel-make-samples [--blobs] <folder>\n";
        return 2;
    }
    const QString root = arguments[0];
    if (!QDir().mkpath(root)) {
        err << "cannot create " << root << '\n';
        return 1;
    }
    if (blobs) {
        for (int i = 0; i < 6; ++i) {
            FileRecord record;
            record.size = qint64(1) << (i * 7);
            record.keyAsNSData = i % 2 == 0;
            record.sizeByReference = i == 3;
            if (i != 5)
                record.encryptionKey = QByteArray(40, static_cast<char>('A' + i));
            writeFile(QDir(root).filePath(QStringLiteral("record-%1.bplist").arg(i)), makeFileRecordBlob(record));
        }
        return 0;
    }
    const auto utc = [](int y, int m, int d, int h, int min) {
        return QDateTime(QDate(y, m, d), QTime(h, min), QTimeZone::utc());
    };

    writeBackup(root, {QStringLiteral("00008110-001A2B3C4D5E801E"),
                       infoPlist(QStringLiteral("iPhone de Camille"), QStringLiteral("iPhone15,2"),
                                 QStringLiteral("17.5.1"), utc(2026, 11, 20, 19, 42)),
                       manifestPlist(true)});
    writeBackup(root, {QStringLiteral("00008030-000E1D2C3B4A5968"),
                       infoPlist(QStringLiteral("iPhone SE de Louis"), QStringLiteral("iPhone12,8"),
                                 QStringLiteral("16.7.8"), utc(2025, 6, 3, 8, 15)),
                       manifestPlist(false), PlistFormat::Xml});
    writeBackup(root, {QStringLiteral("3f2a9c1e7b6d4a5f8e0c1b2a3d4e5f6a7b8c9d0e"),
                       infoPlist(QStringLiteral("Ancien iPhone"), QStringLiteral("iPhone9,3"), QStringLiteral("15.8"),
                                 std::nullopt),
                       std::nullopt});
    // What the scan must pass over: a hidden folder and a stray file.
    writeBackup(root, {QStringLiteral(".Trash-sample"), infoPlist(QStringLiteral("invisible")), std::nullopt});
    writeFile(QDir(root).filePath(QStringLiteral("README.txt")),
              "Sample iPhone backups written by nuvrel-make-samples.\n");
    QTextStream(stdout) << "Sample backups written to " << root << '\n';
    return 0;
}
