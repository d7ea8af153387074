// Every test binary runs inside a QCoreApplication, with its home, settings and standard paths in a
// scratch folder of its own: no test touches the developer's configuration, and test processes that
// CTest runs side by side never share a temporary folder.

#include "ground/Job.h"

#include <QCoreApplication>
#if defined(NUVREL_WIDGETS_TEST_MAIN)
#include <QApplication>
#elif defined(NUVREL_GUI_TEST_MAIN)
#include <QGuiApplication>
#endif
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

int main(int argc, char* argv[])
{
    testing::InitGoogleTest(&argc, argv);
    QTemporaryDir home;
    if (!home.isValid())
        return 2;
    qputenv("HOME", QFile::encodeName(home.path()));
    // The system temporary folder too: tests look for what readers leave there, and another test
    // process must not be seen doing its own work in it.
    const QString temp = home.filePath(QStringLiteral("tmp"));
    if (!QDir().mkpath(temp))
        return 2;
    qputenv("TMPDIR", QFile::encodeName(temp));
#if defined(NUVREL_WIDGETS_TEST_MAIN)
    // Window tests drive real widgets on the offscreen platform, unless a run asks for a real X server
    // (tools/test.sh runs them again under Xvfb with QT_QPA_PLATFORM=xcb).
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
#elif defined(NUVREL_GUI_TEST_MAIN)
    // Tests that draw (fonts, PDF pages) need the GUI application, on the offscreen platform unless a
    // run asks for another (the clipboard's test, under Xvfb).
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
#else
    QCoreApplication app(argc, argv);
#endif
    QCoreApplication::setOrganizationName(QStringLiteral("NuvrelTests"));
    QCoreApplication::setApplicationName(QStringLiteral("NuvrelTests"));
    QStandardPaths::setTestModeEnabled(true);

    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, home.path());
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, home.path());
    qunsetenv("NUVREL_BACKUP_ROOT");
    const int status = RUN_ALL_TESTS();
    // Work a test left running ends before the application does, with its threads.
    nuvrel::Job::shutdown(60'000);
    return status;
}
