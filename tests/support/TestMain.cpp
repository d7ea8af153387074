// Every test binary runs inside a QCoreApplication, with settings and standard paths pointed at a
// scratch folder so that no test reads or writes the developer's own configuration.

#include <QCoreApplication>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

int main(int argc, char* argv[])
{
    testing::InitGoogleTest(&argc, argv);
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("NuvrelTests"));
    QCoreApplication::setApplicationName(QStringLiteral("NuvrelTests"));
    QStandardPaths::setTestModeEnabled(true);

    QTemporaryDir settingsHome;
    if (!settingsHome.isValid())
        return 2;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, settingsHome.path());
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, settingsHome.path());
    qunsetenv("NUVREL_BACKUP_ROOT");
    return RUN_ALL_TESTS();
}
