#include "models/explorer/ExplorerModel.h"

#include "engines/backup/BackupLocator.h"
#include "engines/backup/BackupPasswordStore.h"
#include "engines/backup/BackupReadError.h"
#include "engines/backup/IPhoneBackupReader.h"
#include "l10n/L.h"
#include "media/Thumbnailer.h"
#include "platform/Workspace.h"
#include "sessions/backup/PasswordSheet.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QPointer>

#include <algorithm>

namespace nuvrel {

namespace {

// A photo larger than this is not read into memory for its thumbnail; an encrypted video larger than
// this is not decrypted for a frame. The grid shows a tile instead.
constexpr qint64 maxPhotoBytes = 128LL * 1024 * 1024;
constexpr qint64 maxDecryptedVideoBytes = 300LL * 1024 * 1024;
constexpr int maxThumbnailQueue = 400;

// The reader's last owner, whoever it is, deletes its temporary folder; the model hands its share to a
// worker, so that the GUI thread never waits for a folder of copies to go.
std::shared_ptr<IPhoneBackupReader> sharedReader(std::unique_ptr<IPhoneBackupReader> reader)
{
    return std::shared_ptr<IPhoneBackupReader>(reader.release(), [](IPhoneBackupReader* last) {
        last->cleanup();
        delete last;
    });
}

// Runs `task` on the application's pool and hands its result to `model` on the GUI thread, unless the
// model is gone by then.
template <typename Task, typename Done>
void runBeside(ExplorerModel* model, Task task, Done done)
{
    Job::pool().start(
        [guard = QPointer<ExplorerModel>(model), task = std::move(task), done = std::move(done)]() mutable {
            auto result = task();
            QMetaObject::invokeMethod(
                QCoreApplication::instance(),
                [guard, done = std::move(done), result = std::move(result)]() mutable {
                    if (guard)
                        done(std::move(result));
                },
                Qt::QueuedConnection);
        });
}

QString openingFailure()
{
    return L("Impossible de lire la sauvegarde. Vérifie l'accès complet au disque pour Nuvrel.");
}

} // namespace

ExplorerModel::ExplorerModel(PhoneBackup backup, Services services, QObject* parent)
    : QObject(parent)
    , m_backup(std::move(backup))
    , m_services(services)
    , m_job(new Job(this))
    , m_keychainJob(new Job(this))
    , m_thumbnailThreads(std::clamp(QThread::idealThreadCount(), 2, 4))
    , m_phase(m_backup.isEncrypted ? Phase::AskPassword : Phase::Loading)
{
    m_thumbs.setMaxCost(defaultThumbnailCacheBytes);
    connect(m_job, &Job::progressChanged, this, [this](qint64 done, qint64 total) {
        m_progressDone = done;
        m_progressTotal = total;
        if (m_progressText)
            setBusy(m_progressText(done, total), total > 0 ? double(done) / double(total) : -1);
    });
    connect(m_job, &Job::failed, this, [this] {
        setBusy({});
        setErrorNotice([] { return L("Une erreur inattendue a interrompu l'opération."); });
    });
    connect(m_job, &Job::runningChanged, this, [this] {
        if (!m_job->isRunning() && m_chatsPending) {
            m_chatsPending = false;
            loadChats();
        }
    });
}

ExplorerModel::~ExplorerModel()
{
    // Nothing waits here: the job sees its cancel (the Job goes with this object), the thumbnails theirs,
    // and the reader's temporary folder goes with its last owner, on a worker.
    m_thumbnailsCancel.cancel();
    if (m_reader)
        Job::pool().start([reader = std::move(m_reader)]() mutable { reader.reset(); });
    for (const QString& sheet : std::as_const(m_sheets))
        QFile::remove(sheet);
}

void ExplorerModel::stop()
{
    if (!canStop())
        return;
    m_job->cancel();
    Q_EMIT busyChanged();
}

QString ExplorerModel::interruptionNotice() const
{
    if (!m_job->isRunning() || !m_stoppable)
        return {};
    const QLocale locale = Localizer::locale();
    return L("Travail arrêté en quittant la sauvegarde : %@ sur %@ fait. Ce qui était déjà enregistré est gardé.",
             locale.toString(m_progressDone), locale.toString(m_progressTotal));
}

void ExplorerModel::start()
{
    if (m_phase == Phase::Loading) {
        openBackup();
        return;
    }
    // The keychain may take a moment (or ask the user): never on the GUI thread.
    const QString id = m_backup.id;
    SecretStore* secrets = &m_services.secrets;
    m_keychainJob->start([secrets, id](JobContext&) { return BackupPasswordStore(*secrets).load(id); },
                         [this](const std::optional<QString>& kept) {
                             if (!kept || m_phase != Phase::AskPassword)
                                 return;
                             m_savedPassword = true;
                             m_provenPassword = *kept;
                             if (m_password.isEmpty())
                                 m_password = *kept;
                             Q_EMIT passwordChanged();
                         });
}

void ExplorerModel::setPassword(const QString& password)
{
    if (password == m_password)
        return;
    m_password = password;
    Q_EMIT passwordChanged();
}

void ExplorerModel::setRememberPassword(bool remember)
{
    if (remember == m_rememberPassword)
        return;
    m_rememberPassword = remember;
    Q_EMIT passwordChanged();
}

void ExplorerModel::setPhase(Phase phase, Text failure)
{
    m_phase = phase;
    m_failureMessage = std::move(failure);
    Q_EMIT phaseChanged();
}

void ExplorerModel::setBusy(const QString& busy, double progress)
{
    if (busy == m_busy && progress == m_progress)
        return;
    m_busy = busy;
    m_progress = progress;
    Q_EMIT busyChanged();
}

void ExplorerModel::setNotice(Text notice)
{
    m_notice = std::move(notice);
    m_errorNotice = nullptr;
    Q_EMIT noticeChanged();
}

void ExplorerModel::setErrorNotice(Text notice)
{
    m_errorNotice = std::move(notice);
    m_notice = nullptr;
    Q_EMIT noticeChanged();
}

// Opening

void ExplorerModel::openBackup()
{
    if (m_phase == Phase::Ready || workRunning())
        return;
    if (m_backup.isEncrypted && m_password.isEmpty()) {
        setPhase(Phase::AskPassword, [] { return BackupReadError::needsPassword().message(); });
        return;
    }

    struct Outcome
    {
        std::optional<LoadResult> result;
        std::optional<BackupReadError> error;
    };
    const PhoneBackup backup = m_backup;
    const QString password = m_password;
    const bool started = startJob(
        [backup, password](JobContext& context) -> Outcome {
            try {
                auto reader =
                    sharedReader(std::make_unique<IPhoneBackupReader>(backup, password, context.token().flag()));
                QList<BackupEntry> entries = reader->loadEntries();
                // Everything works from the entries in memory from here on.
                reader->closeDatabase();
                return {LoadResult{std::move(reader), BackupCatalogue::organize(std::move(entries))}, std::nullopt};
            } catch (const BackupReadError& error) {
                return {std::nullopt, error};
            } catch (const std::exception&) {
                return {std::nullopt, std::nullopt};
            }
        },
        [this](Outcome outcome) {
            setBusy({});
            if (outcome.result) {
                if (m_backup.isEncrypted)
                    m_provenPassword = m_password;
                publish(std::move(*outcome.result));
                if (m_rememberPassword && m_backup.isEncrypted)
                    keepPassword();
                return;
            }
            if (!outcome.error) {
                setPhase(Phase::Failed, &openingFailure);
                return;
            }
            const auto kind = outcome.error->kind();
            const bool askAgain =
                kind == BackupReadError::Kind::NeedsPassword || kind == BackupReadError::Kind::WrongPassword;
            setPhase(askAgain ? Phase::AskPassword : Phase::Failed,
                     [error = *outcome.error] { return error.message(); });
        });
    if (!started)
        return;
    setPhase(Phase::Loading);
    setBusy(L("Lecture de la sauvegarde… une grosse sauvegarde peut prendre une minute."));
}

void ExplorerModel::publish(LoadResult result)
{
    m_reader = std::move(result.reader);
    m_photos = std::move(result.catalogue.photos);
    m_byDomain = std::move(result.catalogue.byDomain);
    m_domains = std::move(result.catalogue.domains);
    m_smsEntry = std::move(result.catalogue.messagesDatabase);
    m_waEntry = std::move(result.catalogue.whatsAppDatabase);
    m_photoByID.clear();
    m_photoByID.reserve(m_photos.size());
    for (const BackupPhoto& photo : std::as_const(m_photos))
        m_photoByID.insert(photo.entry.fileID, photo);
    Q_EMIT contentsChanged();
    setPhase(Phase::Ready);
}

void ExplorerModel::keepPassword()
{
    if (m_password.isEmpty())
        return;
    const QString id = m_backup.id;
    const QString password = m_password;
    SecretStore* secrets = &m_services.secrets;
    m_keychainJob->start(
        [secrets, id, password](JobContext&) { return BackupPasswordStore(*secrets).save(password, id); },
        [this](bool saved) {
            if (!saved) {
                setErrorNotice([] { return L("Le Trousseau a refusé de garder le mot de passe."); });
                return;
            }
            m_savedPassword = true;
            Q_EMIT passwordChanged();
            setNotice([] { return L("Mot de passe gardé dans le Trousseau de ce Mac."); });
        });
}

void ExplorerModel::forgetPassword()
{
    const QString id = m_backup.id;
    SecretStore* secrets = &m_services.secrets;
    m_keychainJob->start([secrets, id](JobContext&) { return BackupPasswordStore(*secrets).remove(id); },
                         [this](bool removed) {
                             if (!removed) {
                                 setErrorNotice(
                                     [] { return L("Le Trousseau a refusé de supprimer le mot de passe."); });
                                 return;
                             }
                             m_savedPassword = false;
                             m_rememberPassword = false;
                             Q_EMIT passwordChanged();
                             setNotice([] { return L("Mot de passe supprimé du Trousseau."); });
                         });
}

QString ExplorerModel::printRescueSheet()
{
    // Only a password that opened the backup (or the kept one) goes on paper: a typo there would be
    // worse than no sheet at all.
    if (!canPrintRescueSheet())
        return {};
    QString sheet = PasswordSheet::make(m_backup.deviceName, m_provenPassword);
    if (!sheet.isEmpty())
        m_sheets.append(sheet);
    if (sheet.isEmpty() || !m_services.workspace.open(sheet))
        setErrorNotice([] { return L("Impossible de créer la fiche de secours."); });
    return sheet;
}

// Photos

void ExplorerModel::setTab(int tab)
{
    tab = std::clamp(tab, int(PhotosTab), int(ConversationsTab));
    if (tab == m_tab)
        return;
    m_tab = tab;
    Q_EMIT tabChanged();
    if (m_tab == ConversationsTab && m_phase == Phase::Ready && m_chats.isEmpty() && !m_chatsLoading && !m_chatsMessage)
        loadChats();
}

void ExplorerModel::toggleSelected(const QString& fileID)
{
    if (!m_photoByID.contains(fileID))
        return;
    if (!m_selected.remove(fileID))
        m_selected.insert(fileID);
    Q_EMIT selectedChanged();
}

void ExplorerModel::clearSelection()
{
    if (m_selected.isEmpty())
        return;
    m_selected.clear();
    Q_EMIT selectedChanged();
}

void ExplorerModel::showMorePhotos()
{
    if (m_shownPhotos >= m_photos.size())
        return;
    m_shownPhotos = int(std::min<qsizetype>(m_shownPhotos + photoPage, m_photos.size()));
    Q_EMIT shownPhotosChanged();
}

QString ExplorerModel::photosHeader() const
{
    if (m_photos.isEmpty())
        return L("Aucune photo dans cette sauvegarde (elles sont peut-être dans iCloud Photos, qui n'est pas inclus "
                 "dans les sauvegardes du Mac).");
    qint64 videos = 0;
    qint64 bytes = 0;
    for (const BackupPhoto& photo : m_photos) {
        videos += photo.isVideo ? 1 : 0;
        bytes += photo.size;
    }
    const QLocale locale = Localizer::locale();
    return L("%@ photos · %@ vidéos · %@. Clique sur les photos à extraire.", locale.toString(m_photos.size() - videos),
             locale.toString(videos), Localizer::formatByteCount(bytes));
}

void ExplorerModel::extractSelectedPhotos(const QString& destination)
{
    QList<Extraction::Item> items;
    for (const BackupPhoto& photo : std::as_const(m_photos)) {
        if (m_selected.contains(photo.entry.fileID))
            items.append(Extraction::photo(photo.entry));
    }
    extract(std::move(items), destination);
}

void ExplorerModel::extractAllPhotos(const QString& destination)
{
    QList<Extraction::Item> items;
    items.reserve(m_photos.size());
    for (const BackupPhoto& photo : std::as_const(m_photos))
        items.append(Extraction::photo(photo.entry));
    extract(std::move(items), destination);
}

bool ExplorerModel::isInsideBackup(const QString& destination) const
{
    return Extraction::isForbiddenDestination(destination, m_backup, BackupLocator::root());
}

void ExplorerModel::extract(QList<Extraction::Item> items, const QString& destination)
{
    if (destination.isEmpty() || items.isEmpty() || !m_reader || workRunning())
        return;
    if (isInsideBackup(destination)) {
        setErrorNotice([] { return L("Choisis un autre dossier : Nuvrel n'écrit jamais dans une sauvegarde."); });
        return;
    }
    std::shared_ptr<const IPhoneBackupReader> reader = m_reader;
    const qsizetype total = items.size();
    const bool started = startJob(
        [reader, items = std::move(items), destination](JobContext& context) {
            Extraction::Options options;
            options.stop = context.token().flag();
            options.abort = Job::quittingFlag();
            options.progress = [&context](qsizetype done, qsizetype all) { context.progress(done, all); };
            return Extraction::run(*reader, items, destination, options);
        },
        [this](const Extraction::Report& report) {
            setBusy({});
            m_lastFolder = report.destination;
            Q_EMIT lastFolderChanged();
            Text text = [report] {
                const QLocale numbers = Localizer::locale();
                const auto count = [&](Extraction::Failure why) { return numbers.toString(report.failures(why)); };
                QString line = report.stopped ? L("Extraction arrêtée : %@ fichier(s) extraits, gardés",
                                                  numbers.toString(report.done))
                                              : L("%@ fichier(s) extraits", numbers.toString(report.done));
                if (report.failures(Extraction::Failure::Missing) > 0)
                    line += L(" · %@ impossible(s) (absents de la sauvegarde)", count(Extraction::Failure::Missing));
                if (report.failures(Extraction::Failure::Undecryptable) > 0)
                    line += L(" · %@ impossible(s) à déchiffrer", count(Extraction::Failure::Undecryptable));
                if (report.failures(Extraction::Failure::Refused) > 0)
                    line +=
                        L(" · %@ refusé(s) (nom qui sortirait du dossier choisi)", count(Extraction::Failure::Refused));
                if (report.failures(Extraction::Failure::Unwritable) > 0)
                    line += L(" · %@ non écrit(s) : %@", count(Extraction::Failure::Unwritable),
                              report.firstWriteError.value_or(QString()));
                return line;
            };
            if (report.failures(Extraction::Failure::Unwritable) > 0 && report.done == 0)
                setErrorNotice(std::move(text));
            else
                setNotice(std::move(text));
        },
        [](qint64 done, qint64 all) {
            const QLocale locale = Localizer::locale();
            return L("Extraction %@ sur %@…", locale.toString(done), locale.toString(all));
        });
    if (started)
        setBusy(L("Extraction %@ sur %@…", QStringLiteral("0"), Localizer::locale().toString(total)), 0);
}

// Thumbnails

QImage ExplorerModel::thumbnail(const QString& fileID)
{
    if (const QImage* cached = m_thumbs.object(fileID))
        return *cached;
    if (m_thumbFailed.contains(fileID) || !m_reader || !m_photoByID.contains(fileID))
        return {};
    if (!m_thumbInFlight.contains(fileID)) {
        // The newest requests are the cells on screen now: serve them first, forget the oldest.
        const auto queued = std::find(m_thumbQueue.begin(), m_thumbQueue.end(), fileID);
        if (queued != m_thumbQueue.end())
            m_thumbQueue.erase(queued);
        m_thumbQueue.push_back(fileID);
        while (m_thumbQueue.size() > maxThumbnailQueue)
            m_thumbQueue.pop_front();
        pumpThumbnails();
    }
    return {};
}

void ExplorerModel::pumpThumbnails()
{
    while (!m_thumbQueue.empty() && m_thumbInFlight.size() < m_thumbnailThreads) {
        const QString fileID = m_thumbQueue.back();
        m_thumbQueue.pop_back();
        const BackupPhoto photo = m_photoByID.value(fileID);
        m_thumbInFlight.insert(fileID);
        std::shared_ptr<const IPhoneBackupReader> reader = m_reader;
        runBeside(
            this,
            [reader, photo, token = m_thumbnailsCancel]() -> QImage {
                const std::atomic<bool>* cancel = token.flag();
                if (*cancel)
                    return {};
                try {
                    if (!photo.isVideo)
                        return Thumbnailer::image(reader->contents(photo.entry, maxPhotoBytes), thumbnailSide);
                    if (Thumbnailer::ffmpegPath().isEmpty())
                        return {};
                    if (!reader->isEncrypted()) {
                        const std::optional<QString> stored = reader->storedURL(photo.entry.fileID);
                        return stored ? Thumbnailer::videoFrame(*stored, thumbnailSide, cancel) : QImage();
                    }
                    // ffmpeg needs a file: a plain copy of this task's own, gone right after.
                    if (photo.size > maxDecryptedVideoBytes)
                        return {};
                    const QString copy =
                        reader->extract(photo.entry,
                                        QDir(reader->tempDir())
                                            .filePath(QStringLiteral("thumbs/") + photo.entry.fileID + u'.' +
                                                      QFileInfo(photo.entry.fileName()).suffix()),
                                        cancel);
                    QImage frame = Thumbnailer::videoFrame(copy, thumbnailSide, cancel);
                    QFile::remove(copy);
                    return frame;
                } catch (const std::exception&) {
                    return {};
                }
            },
            [this, fileID](const QImage& image) {
                m_thumbInFlight.remove(fileID);
                ++m_thumbsDecoded;
                if (image.isNull())
                    m_thumbFailed.insert(fileID);
                else
                    m_thumbs.insert(fileID, new QImage(image), image.sizeInBytes());
                Q_EMIT thumbnailReady(fileID);
                pumpThumbnails();
            });
    }
}

// All files

void ExplorerModel::openDomain(const QString& domain)
{
    if (!m_byDomain.contains(domain))
        return;
    m_domain = domain;
    m_folder.clear();
    refreshListing();
}

void ExplorerModel::openFolder(const QString& name)
{
    if (m_domain.isEmpty() || name.isEmpty())
        return;
    m_folder.append(name);
    refreshListing();
}

void ExplorerModel::goUp(int depth)
{
    if (depth < 0) {
        m_domain.clear();
        m_folder.clear();
        m_items.clear();
        Q_EMIT placeChanged();
        return;
    }
    if (depth < m_folder.size())
        m_folder.resize(depth);
    refreshListing();
}

void ExplorerModel::refreshListing()
{
    m_items = BackupCatalogue::listing(m_byDomain.value(m_domain), m_folder);
    Q_EMIT placeChanged();
}

void ExplorerModel::extractCurrentFolder(const QString& destination)
{
    if (m_domain.isEmpty() || destination.isEmpty())
        return;
    // The folder keeps its name and its inside: "<destination>/<folder>/<path below it>".
    const QString prefix = m_folder.isEmpty() ? QString() : m_folder.join(u'/') + u'/';
    const QString base = m_folder.isEmpty() ? m_domain : m_folder.constLast();
    QList<Extraction::Item> items;
    for (const BackupEntry& entry : m_byDomain.value(m_domain)) {
        if (entry.path.startsWith(prefix))
            items.append(Extraction::belowFolder(entry, base, entry.path.mid(prefix.size())));
    }
    extract(std::move(items), destination);
}

void ExplorerModel::openFile(const BackupEntry& entry)
{
    if (!m_reader || workRunning())
        return;
    std::shared_ptr<const IPhoneBackupReader> reader = m_reader;
    const bool started = startJob(
        [reader, entry](JobContext&) -> QString {
            try {
                return reader->openableURL(entry, entry.fileName());
            } catch (const std::exception&) {
                return {};
            }
        },
        [this](const QString& copy) {
            setBusy({});
            if (copy.isEmpty() || !m_services.workspace.open(copy))
                setErrorNotice([] { return L("Impossible d'ouvrir ce fichier."); });
        });
    if (started)
        setBusy(L("Ouverture de %@…", entry.fileName()));
}

void ExplorerModel::revealLastFolder()
{
    if (!m_lastFolder.isEmpty())
        m_services.workspace.reveal(m_lastFolder);
}

} // namespace nuvrel
