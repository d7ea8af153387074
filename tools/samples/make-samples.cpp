// Writes sample backup folders, shaped like the ones the phone's sync service writes, for the demo
// and for trying Nuvrel on a machine without an iPhone: nuvrel-make-samples <folder>

#include "support/BackupFixture.h"

#include <QCoreApplication>
#include <QDir>
#include <QTextStream>
#include <QTimeZone>

using namespace nuvrel::test;

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QTextStream err(stderr);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 2) {
        err << "usage: nuvrel-make-samples <folder>\n";
        return 2;
    }
    const QString root = arguments[1];
    if (!QDir().mkpath(root)) {
        err << "cannot create " << root << '\n';
        return 1;
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
