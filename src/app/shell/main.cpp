// nuvrel: the desktop application.

#include "app/shell/MainWindow.h"
#include "app/shell/UpdateChecker.h"
#include "app/shell/WindowStyler.h"
#include "ground/Job.h"
#include "ground/WorkFolder.h"
#include "platform/Workspace.h"
#include "platform/system/SystemServices.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QMessageBox>
#include <QTextStream>
#include <QTimer>

#include <cstdio>
#include <cstdlib>

namespace {

// Running work is told to stop; a copy in hand is given a few seconds to end cleanly. Work that
// still runs after that must not see the window and the libraries torn down under it: the process
// then ends at once, and what that work left under a temporary name is cleared at the next start.
int finish(int status)
{
    if (!nuvrel::Job::shutdown(3000)) {
        std::fflush(nullptr);
        std::_Exit(status);
    }
    return status;
}

} // namespace

int main(int argc, char* argv[])
{
    QElapsedTimer startUp;
    startUp.start();
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Nuvrel"));
    QApplication::setApplicationName(QStringLiteral("Nuvrel"));
    QApplication::setApplicationDisplayName(QStringLiteral("Nuvrel"));
    QApplication::setApplicationVersion(QStringLiteral(NUVREL_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("nuvrel"));

    const nuvrel::Services services = nuvrel::systemServices();
    // Light or dark as the desktop is, now and whenever it changes.
    nuvrel::WindowStyler::follow(app, services.appearance);
    nuvrel::MainWindow window(services);
    window.show();

    // NUVREL_QUIT_AFTER_SHOW: the smoke run and the start-up benchmark stop once the window is up,
    // printing how long that took.
    if (qEnvironmentVariableIsSet("NUVREL_QUIT_AFTER_SHOW")) {
        QTimer::singleShot(0, &app, [&startUp] {
            std::printf("first window shown after %.1f ms\n", double(startUp.nsecsElapsed()) / 1e6);
            std::fflush(stdout);
            QApplication::quit();
        });
        return finish(QApplication::exec());
    }

    nuvrel::UpdateChecker updates;
    QObject::connect(&updates, &nuvrel::UpdateChecker::updateAvailable, &window,
                     [&window](const QString& version, const QUrl& page) {
                         const nuvrel::AppLanguage language = nuvrel::UpdateChecker::systemLanguage();
                         QMessageBox box(QMessageBox::Information, nuvrel::UpdateChecker::alertTitle(language),
                                         nuvrel::UpdateChecker::alertText(language, version, page.toString(),
                                                                          QApplication::applicationVersion()),
                                         QMessageBox::Open | QMessageBox::Close, &window);
                         box.setDefaultButton(QMessageBox::Open);
                         if (box.exec() == QMessageBox::Open)
                             nuvrel::systemWorkspace().openUrl(page);
                     });
    updates.startIfNeeded();
    // Decrypted copies that a crash or a kill left behind; those of a running command line stay.
    nuvrel::Job::pool().start([] { nuvrel::WorkFolder::removeAbandoned(); });
    return finish(QApplication::exec());
}
