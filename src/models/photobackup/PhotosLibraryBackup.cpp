#include "models/photobackup/PhotosLibraryBackup.h"

#include "engines/photobackup/ImportRules.h"
#include "engines/photobackup/PhotosLibrary.h"
#include "ground/Job.h"
#include "l10n/L.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QPointer>
#include <QSettings>

#include <variant>

namespace nuvrel {

namespace {

// What a run hands back: the library's refusal, or what the backup did.
struct LibraryRun
{
    std::variant<QString, LibraryOutcome> result;
    int assets = 0;
    bool cancelled = false; ///< stopped while the library was read
};

QString destinationFolder()
{
    const QString chosen = QSettings().value(QLatin1StringView(photoBackupFolderKey)).toString();
    return chosen.isEmpty() ? defaultPhotoBackupFolder() : chosen;
}

} // namespace

PhotosLibraryBackup::PhotosLibraryBackup(Services services, QObject* parent)
    : QObject(parent)
    , m_services(services)
    , m_job(new Job(this))
{
    connect(m_job, &Job::runningChanged, this, &PhotosLibraryBackup::stateChanged);
    connect(m_job, &Job::failed, this, [this] {
        setState(State::Failed, [] { return L("L'opération a été interrompue par une erreur interne."); });
    });
}

PhotosLibraryBackup::~PhotosLibraryBackup() = default;

bool PhotosLibraryBackup::busy() const
{
    return m_job->isRunning();
}

void PhotosLibraryBackup::setPackage(const QString& package)
{
    if (m_job->isRunning())
        return;
    m_package = QDir::cleanPath(QFileInfo(package).absoluteFilePath());
    m_progress = 0;
    setState(State::Idle, {});
}

void PhotosLibraryBackup::checkAndStart()
{
    if (m_job->isRunning() || m_package.isEmpty())
        return;
    m_progress = 0;
    setState(State::Checking, [] { return L("Vérification de ta photothèque…"); });
    QPointer<PhotosLibraryBackup> self(this);
    m_job->start(
        [package = m_package, destination = destinationFolder(), self](JobContext& context) {
            LibraryRun run;
            QList<LibraryAsset> assets;
            try {
                assets = PhotosLibrary::readAssets(package, context.token().flag());
            } catch (const LocalizedError& error) {
                run.result = error.message();
                return run;
            }
            run.assets = int(assets.size());
            run.cancelled = context.isCancelled();
            if (assets.isEmpty()) {
                run.result = LibraryOutcome();
                return run;
            }
            LibraryBackupOptions options;
            options.abort = Job::quittingFlag();
            QElapsedTimer clock;
            clock.start();
            run.result = LibraryBackup::run(
                package, assets, destination,
                [&](const LibraryProgress& state) {
                    if (clock.elapsed() < progressIntervalMs)
                        return;
                    clock.restart();
                    context.publish([self, state] {
                        if (!self)
                            return;
                        self->m_progress = double(state.done) / std::max(1, state.total);
                        self->setState(State::Running,
                                       [state] { return L("%@ sur %@ · %@", state.done, state.total, state.item); });
                    });
                },
                context.token().flag(), options);
            return run;
        },
        [this](const LibraryRun& run) {
            if (const QString* refusal = std::get_if<QString>(&run.result)) {
                setState(State::Failed, [message = *refusal] { return message; });
                return;
            }
            if (run.cancelled) {
                setState(State::Idle, [] { return L("Arrêté."); });
                return;
            }
            if (run.assets == 0) {
                setState(State::EmptyLibrary, [] { return L("Cette photothèque ne contient aucune photo ni vidéo."); });
                return;
            }
            const LibraryOutcome outcome = std::get<LibraryOutcome>(run.result);
            if (outcome.end == LibraryOutcome::End::NotEnoughSpace ||
                outcome.end == LibraryOutcome::End::DestinationFailed ||
                outcome.end == LibraryOutcome::End::SourceGone) {
                setState(State::Failed, [message = outcome.endMessage] { return message; });
                return;
            }
            m_finishedAt = QDateTime::currentDateTime();
            m_progress = 1;
            setState(State::Finished, [outcome, at = m_finishedAt] {
                QString text =
                    L("Terminé à %@ : %@ copiés, %@ déjà présents, %@ échecs.", at.toString(QStringLiteral("HH:mm:ss")),
                      outcome.copied, outcome.skipped, outcome.failed);
                if (outcome.failed > 0) {
                    text += u' ' +
                            L("La liste des fichiers refusés est dans Nuvrel-echecs-photos.txt, dans ton dossier de "
                              "sauvegarde.") +
                            u'\n' + L("Dernier problème : %@", outcome.lastError);
                }
                return text;
            });
        });
}

void PhotosLibraryBackup::cancel()
{
    m_job->cancel();
}

void PhotosLibraryBackup::setState(State state, Text status)
{
    m_state = state;
    m_status = std::move(status);
    Q_EMIT stateChanged();
}

} // namespace nuvrel
