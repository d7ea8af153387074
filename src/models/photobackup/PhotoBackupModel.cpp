#include "models/photobackup/PhotoBackupModel.h"

#include "engines/backup/BackupLocator.h"
#include "engines/photobackup/CopyHistory.h"
#include "engines/photobackup/FolderSource.h"
#include "ground/Job.h"
#include "ground/SystemError.h"
#include "l10n/L.h"
#include "platform/Volumes.h"
#include "platform/Workspace.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QPointer>
#include <QSettings>

namespace nuvrel {

namespace {

QString shownName(const QString& name)
{
    return name.isEmpty() ? QStringLiteral("iPhone") : name;
}

} // namespace

PhotoBackupModel::PhotoBackupModel(Services services, QString historyPath, QObject* parent)
    : QObject(parent)
    , m_services(services)
    , m_historyPath(std::move(historyPath))
    , m_job(new Job(this))
{
    const QString chosen = QSettings().value(QLatin1StringView(photoBackupFolderKey)).toString();
    m_destination = chosen.isEmpty() ? defaultPhotoBackupFolder() : chosen;
    connect(&m_services.phones, &PhoneWatcher::stateChanged, this, &PhotoBackupModel::followPhone);
    connect(m_job, &Job::failed, this, [this] {
        m_error = [] { return L("L'opération a été interrompue par une erreur interne."); };
        setState(State::Error);
    });
}

PhotoBackupModel::~PhotoBackupModel() = default;

QString PhotoBackupModel::title() const
{
    switch (m_state) {
    case State::Searching: return L("Recherche de ton iPhone…");
    case State::NoDevice: return L("Aucun iPhone trouvé");
    case State::Connecting: return L("Connexion à « %@ »…", shownName(m_deviceName));
    case State::Locked: return L("« %@ » est verrouillé", shownName(m_deviceName));
    case State::NothingReadable:
        return L("« %@ » est connecté, mais aucune photo n'est lisible", shownName(m_deviceName));
    case State::Ready: return L("« %@ » est prêt", shownName(m_deviceName));
    case State::Copying: return L("Copie en cours…");
    case State::Error: return L("Un problème est survenu");
    }
    return {};
}

QString PhotoBackupModel::hint() const
{
    switch (m_state) {
    case State::Searching: return L("Branche ton iPhone au Mac avec le câble.");
    case State::NoDevice: return L("Branche ton iPhone avec le câble, déverrouille-le, puis touche Actualiser.");
    case State::Connecting: return L("Quelques secondes. Garde l'iPhone déverrouillé.");
    case State::Locked:
        return L("Déverrouille ton iPhone et touche « Se fier à cet ordinateur ». Ensuite, touche Actualiser.");
    case State::NothingReadable:
        return L("Garde l'iPhone déverrouillé, attends quelques secondes puis touche Actualiser. Si tes photos sont "
                 "seulement dans iCloud et pas sur l'iPhone, elles ne peuvent pas être copiées d'ici.");
    case State::Ready: return L("Choisis ce que tu veux sauvegarder.");
    case State::Copying: return m_stoppedByUser ? L("Arrêt en cours… (fin du fichier en cours)") : m_progressText;
    case State::Error: return m_error ? m_error() : QString();
    }
    return {};
}

void PhotoBackupModel::setIncludePhotos(bool include)
{
    if (include == m_choices.photos)
        return;
    m_choices.photos = include;
    Q_EMIT choicesChanged();
}

void PhotoBackupModel::setIncludeVideos(bool include)
{
    if (include == m_choices.videos)
        return;
    m_choices.videos = include;
    Q_EMIT choicesChanged();
}

void PhotoBackupModel::setPeriod(Period period)
{
    if (period == m_choices.period)
        return;
    m_choices.period = period;
    Q_EMIT choicesChanged();
}

void PhotoBackupModel::setFromDate(const QDate& day)
{
    if (day == m_choices.from)
        return;
    m_choices.from = day;
    Q_EMIT choicesChanged();
}

void PhotoBackupModel::setToDate(const QDate& day)
{
    if (day == m_choices.to)
        return;
    m_choices.to = day;
    Q_EMIT choicesChanged();
}

QString PhotoBackupModel::selectionSummary() const
{
    if (m_files.isEmpty())
        return {};
    const QList<CameraFile> selected = selectedFiles();
    qint64 bytes = 0;
    for (const CameraFile& file : selected)
        bytes += file.size;
    return L("%@ éléments · %@. Seules les nouveautés seront copiées.", Localizer::locale().toString(selected.size()),
             Localizer::formatByteCount(bytes));
}

QString PhotoBackupModel::lastError() const
{
    return m_lastError.isEmpty() ? QString() : L("Dernier problème : %@", m_lastError);
}

QString PhotoBackupModel::result() const
{
    if (!m_outcome)
        return {};
    QString text = m_outcome->summary();
    if (!m_outcome->endMessage.isEmpty())
        text += u'\n' + m_outcome->endMessage;
    return text;
}

void PhotoBackupModel::start()
{
    m_services.phones.start();
    followPhone();
}

void PhotoBackupModel::followPhone()
{
    if (!m_folder.isEmpty() || m_job->isRunning())
        return;  // a folder is the source, or a run holds its source until its end
    ++m_listing; // whatever was being listed is not what the page shows any more
    const PhoneWatcher& phones = m_services.phones;
    m_deviceName = phones.deviceName();
    switch (phones.state()) {
    case PhoneWatcher::State::Searching:
        m_files.clear();
        setState(State::Searching);
        break;
    case PhoneWatcher::State::NoDevice:
        m_files.clear();
        m_source.reset();
        setState(State::NoDevice);
        break;
    case PhoneWatcher::State::Connecting: setState(State::Connecting); break;
    case PhoneWatcher::State::Locked: setState(State::Locked); break;
    case PhoneWatcher::State::Refused:
        m_error = [name = shownName(m_deviceName)] {
            return L("« %@ » a refusé de se fier à cet ordinateur. Débranche-le, rebranche-le, puis touche « Se fier » "
                     "quand l'iPhone le demande.",
                     name);
        };
        setState(State::Error);
        break;
    case PhoneWatcher::State::Failed:
        m_error = [name = shownName(m_deviceName)] {
            return L("« %@ » ne répond pas comme un iPhone. Débranche-le, rebranche-le, puis touche Actualiser.", name);
        };
        setState(State::Error);
        break;
    case PhoneWatcher::State::Ready: list([phones = &m_services.phones] { return phones->camera(); }); break;
    }
}

void PhotoBackupModel::stop()
{
    m_services.phones.stop();
}

void PhotoBackupModel::restart()
{
    if (m_job->isRunning())
        return;
    setNotice({});
    if (!m_folder.isEmpty())
        useFolder(m_folder);
    else
        m_services.phones.refresh();
}

void PhotoBackupModel::useFolder(const QString& folder)
{
    if (m_job->isRunning())
        return;
    m_folder = QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
    const std::optional<Volume> volume = m_services.volumes.volumeOf(m_folder);
    const QString label = volume && FolderSource::isRemovableMountPoint(volume->root + u'/') ? volume->name : QString();
    m_deviceName = FolderSource::nameForFolder(m_folder, m_services.phones.nameOfMountedPhone(m_folder), label);
    list([source = std::make_shared<FolderSource>(m_folder, m_deviceName)] { return source; });
}

void PhotoBackupModel::usePhone()
{
    if (m_job->isRunning() || m_folder.isEmpty())
        return;
    m_folder.clear();
    m_files.clear();
    m_source.reset();
    ++m_listing;
    Q_EMIT choicesChanged();
    followPhone();
}

void PhotoBackupModel::list(std::function<std::shared_ptr<CameraSource>()> open)
{
    m_source.reset();
    m_files.clear();
    setState(State::Connecting);
    Q_EMIT choicesChanged();
    // Opening and listing talk to the phone: off the GUI thread. A listing that hangs is not waited
    // for; any later change of source or state makes its answer stale, and it is dropped.
    const quint64 listing = ++m_listing;
    QPointer<PhotoBackupModel> self(this);
    Job::pool().start([open = std::move(open), self, listing] {
        std::shared_ptr<CameraSource> source = open();
        QList<CameraFile> files;
        std::function<QString()> failure;
        if (source) {
            try {
                files = source->mediaFiles(Job::quittingFlag());
            } catch (const LocalizedError& error) {
                failure = [message = error.message()] { return message; };
            }
        }
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [self, listing, source = std::move(source), files = std::move(files), failure] {
                if (!self || self->m_listing != listing || self->m_job->isRunning())
                    return;
                if (!source) {
                    // Ready, but its camera roll could not be opened; if it went, the watcher says so next.
                    self->m_error = [name = shownName(self->m_deviceName)] {
                        return L("« %@ » ne répond pas comme un iPhone. Débranche-le, rebranche-le, puis touche "
                                 "Actualiser.",
                                 name);
                    };
                    self->setState(State::Error);
                    return;
                }
                if (failure) {
                    self->m_error = failure;
                    self->setState(State::Error);
                    return;
                }
                self->m_source = source;
                self->m_files = files;
                self->setState(files.isEmpty() ? State::NothingReadable : State::Ready);
                Q_EMIT self->choicesChanged();
            },
            Qt::QueuedConnection);
    });
}

void PhotoBackupModel::setDestination(const QString& folder)
{
    const QString absolute = QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
    if (absolute == m_destination || m_job->isRunning())
        return;
    m_destination = absolute;
    QSettings().setValue(QLatin1StringView(photoBackupFolderKey), absolute);
    Q_EMIT destinationChanged();
}

QList<CameraFile> PhotoBackupModel::selectedFiles() const
{
    return selectFiles(m_files, m_choices, QDateTime::currentDateTime());
}

void PhotoBackupModel::begin(bool everything)
{
    if (m_state != State::Ready || !m_source || m_job->isRunning())
        return;
    const QList<CameraFile> queue = everything ? allFilesInOrder(m_files) : selectedFiles();
    if (queue.isEmpty()) {
        setNotice([] { return L("Rien ne correspond à ta sélection."); });
        return;
    }
    setNotice({});
    m_outcome.reset();
    m_refusedBySource = 0;
    m_failedCount = 0;
    m_lastError.clear();
    m_stoppedByUser = false;
    m_progress = 0;
    m_progressText = L("Copie en cours…");
    Q_EMIT resultChanged();
    Q_EMIT progressChanged();
    setState(State::Copying);

    QPointer<PhotoBackupModel> self(this);
    m_job->start(
        [source = m_source, queue, destination = m_destination, historyPath = m_historyPath,
         self](JobContext& context) {
            CopyHistory history(historyPath);
            history.load();
            PhotoImportOptions options;
            options.abort = Job::quittingFlag();
            QElapsedTimer clock;
            clock.start();
            return PhotoImport::run(
                source, queue, destination, history,
                [&](const ImportProgress& state) {
                    if (clock.elapsed() < progressIntervalMs)
                        return;
                    clock.restart();
                    context.publish([self, state] {
                        if (!self)
                            return;
                        const double fileShare =
                            state.fileBytes > 0 ? double(state.fileBytesDone) / double(state.fileBytes) : 0;
                        self->m_progress = (state.position - 1 + fileShare) / std::max(1, state.total);
                        self->m_progressText =
                            L("%@ sur %@ · %@", state.position, state.total, state.fileName) + u'\n' +
                            L("%@ copiés, %@ déjà présents, %@ échecs.", state.copied, state.skipped, state.failed);
                        self->m_failedCount = state.failed;
                        Q_EMIT self->progressChanged();
                        Q_EMIT self->stateChanged();
                    });
                },
                context.token().flag(), options);
        },
        [this](const ImportOutcome& outcome) {
            m_outcome = outcome;
            m_failedCount = outcome.failed;
            m_lastError = outcome.lastError;
            m_refusedBySource = m_source && m_source->kind() == CameraSource::Kind::Phone ? outcome.refusedBySource : 0;
            m_stoppedByUser = false;
            m_progress = 1;
            Q_EMIT progressChanged();
            Q_EMIT resultChanged();
            const bool stoppedEarly = outcome.end == ImportOutcome::End::SourceSilent ||
                                      outcome.end == ImportOutcome::End::SourceGone ||
                                      outcome.end == ImportOutcome::End::DestinationFailed;
            if (stoppedEarly) {
                m_error = [message = outcome.endMessage] { return message; };
                setState(State::Error);
            } else {
                setState(State::Ready);
            }
            // A source that went away is listed again when it is back ("Actualiser"), not before: the
            // page keeps saying what happened.
            if (outcome.end == ImportOutcome::End::SourceGone) {
                m_files.clear();
                Q_EMIT choicesChanged();
            } else if (m_folder.isEmpty() && m_services.phones.state() != PhoneWatcher::State::Ready) {
                followPhone(); // the phone changed while the run held it
            }
        });
}

void PhotoBackupModel::cancel()
{
    if (!m_job->isRunning() || m_stoppedByUser)
        return;
    m_stoppedByUser = true;
    m_job->cancel();
    Q_EMIT progressChanged();
    Q_EMIT stateChanged();
}

void PhotoBackupModel::forgetHistory()
{
    if (m_job->isRunning())
        return;
    CopyHistory history(m_historyPath);
    if (!history.forget())
        setNotice(
            [] { return L("Impossible d'oublier l'historique des copies : son fichier ne peut pas être écrit."); });
}

void PhotoBackupModel::openDestination()
{
    QDir().mkpath(m_destination);
    m_services.workspace.open(m_destination);
}

QString PhotoBackupModel::backupsFolder() const
{
    return BackupLocator::root();
}

void PhotoBackupModel::openBackupsFolder()
{
    QDir().mkpath(backupsFolder());
    m_services.workspace.open(backupsFolder());
}

void PhotoBackupModel::setState(State state)
{
    m_state = state;
    Q_EMIT stateChanged();
}

void PhotoBackupModel::setNotice(Text notice)
{
    m_notice = std::move(notice);
    Q_EMIT noticeChanged();
}

} // namespace nuvrel
