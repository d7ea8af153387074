#include "backup/ExplorerModel.h"

#include "backup/BackupPasswordStore.h"
#include "backup/BackupReadError.h"
#include "backup/IPhoneBackupReader.h"
#include "backup/PasswordSheet.h"
#include "core/AsyncTask.h"
#include "core/BackupLocator.h"
#include "core/Thumbnailer.h"
#include "l10n/L.h"
#include "platform/Workspace.h"

#include <QCollator>
#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace nuvrel {

namespace {

const QString cameraRoll = QStringLiteral("CameraRollDomain");
const QString homeDomain = QStringLiteral("HomeDomain");
const QString whatsAppGroup = QStringLiteral("AppDomainGroup-group.net.whatsapp.WhatsApp.shared");
const QString whatsAppApp = QStringLiteral("AppDomain-net.whatsapp.WhatsApp");
const QString smsPath = QStringLiteral("Library/SMS/sms.db");
const QString whatsAppPath = QStringLiteral("ChatStorage.sqlite");

// A photo larger than this is not read into memory for its thumbnail; an encrypted video larger than
// this is not decrypted for a frame. The grid shows a tile instead.
constexpr qint64 maxPhotoBytes = 128LL * 1024 * 1024;
constexpr qint64 maxDecryptedVideoBytes = 300LL * 1024 * 1024;
constexpr int maxThumbnailQueue = 400;

QCollator finderOrder()
{
    QCollator collator(Localizer::locale());
    collator.setNumericMode(true);
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    return collator;
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
    , m_phase(m_backup.isEncrypted ? Phase::AskPassword : Phase::Loading)
{
    m_work.setMaxThreadCount(1);
    m_thumbnailPool.setMaxThreadCount(std::clamp(QThread::idealThreadCount(), 2, 4));
    m_thumbs.setMaxCost(defaultThumbnailCacheBytes);
}

ExplorerModel::~ExplorerModel()
{
    m_cancel = true;
    m_thumbQueue.clear();
    m_thumbnailPool.clear();
    m_work.clear();
    m_thumbnailPool.waitForDone();
    m_work.waitForDone();
    if (m_reader)
        m_reader->cleanup();
    for (const QString& sheet : std::as_const(m_sheets))
        QFile::remove(sheet);
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
    runThenCallback(
        &m_work, [secrets, id] { return BackupPasswordStore(*secrets).load(id); }, this,
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

void ExplorerModel::postBusy(const QString& busy, double progress)
{
    QMetaObject::invokeMethod(
        this, [this, busy, progress] { setBusy(busy, progress); }, Qt::QueuedConnection);
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
    if (m_phase == Phase::Ready || (m_phase == Phase::Loading && m_workRunning))
        return;
    if (m_backup.isEncrypted && m_password.isEmpty()) {
        setPhase(Phase::AskPassword, [] { return BackupReadError::needsPassword().message(); });
        return;
    }
    setPhase(Phase::Loading);
    setBusy(L("Lecture de la sauvegarde… une grosse sauvegarde peut prendre une minute."));
    m_workRunning = true;

    struct Outcome
    {
        std::optional<LoadResult> result;
        std::optional<BackupReadError> error;
    };
    const PhoneBackup backup = m_backup;
    const QString password = m_password;
    const std::atomic<bool>* cancel = &m_cancel;
    runThenCallback(
        &m_work,
        [backup, password, cancel]() -> Outcome {
            try {
                auto reader = std::make_shared<IPhoneBackupReader>(backup, password, cancel);
                QList<BackupEntry> entries = reader->loadEntries();
                // Everything works from the entries in memory from here on.
                reader->closeDatabase();
                LoadResult result = organize(std::move(entries));
                result.reader = std::move(reader);
                return {std::move(result), std::nullopt};
            } catch (const BackupReadError& error) {
                return {std::nullopt, error};
            } catch (const std::exception&) {
                return {std::nullopt, std::nullopt};
            }
        },
        this,
        [this](Outcome outcome) {
            m_workRunning = false;
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
}

void ExplorerModel::publish(LoadResult result)
{
    m_reader = std::move(result.reader);
    m_photos = std::move(result.photos);
    m_byDomain = std::move(result.byDomain);
    m_domains = std::move(result.domains);
    m_smsEntry = std::move(result.smsEntry);
    m_waEntry = std::move(result.waEntry);
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
    runThenCallback(
        &m_work, [secrets, id, password] { return BackupPasswordStore(*secrets).save(password, id); }, this,
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
    runThenCallback(
        &m_work, [secrets, id] { return BackupPasswordStore(*secrets).remove(id); }, this,
        [this](bool removed) {
            if (!removed) {
                setErrorNotice([] { return L("Le Trousseau a refusé de supprimer le mot de passe."); });
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

// Pure steps

bool ExplorerModel::isPhotoPath(const QString& path, bool* isVideo)
{
    static const QSet<QString> photoExtensions{QStringLiteral("jpg"),  QStringLiteral("jpeg"), QStringLiteral("heic"),
                                               QStringLiteral("heif"), QStringLiteral("png"),  QStringLiteral("gif"),
                                               QStringLiteral("tif"),  QStringLiteral("tiff"), QStringLiteral("dng"),
                                               QStringLiteral("webp")};
    static const QSet<QString> videoExtensions{QStringLiteral("mov"), QStringLiteral("mp4"), QStringLiteral("m4v")};
    if (!path.startsWith(QLatin1StringView("Media/DCIM/")))
        return false;
    const qsizetype dot = path.lastIndexOf(u'.');
    if (dot < 0 || path.indexOf(u'/', dot) >= 0)
        return false;
    const QString extension = path.mid(dot + 1).toLower();
    const bool video = videoExtensions.contains(extension);
    if (isVideo)
        *isVideo = video;
    return video || photoExtensions.contains(extension);
}

QString ExplorerModel::friendly(const QString& domain)
{
    if (domain == cameraRoll)
        return L("Photos et vidéos");
    if (domain == homeDomain)
        return L("Messages, contacts, notes et réglages");
    if (domain == u"MediaDomain")
        return L("Médias (pièces jointes, mémos vocaux)");
    if (domain == whatsAppApp || domain == whatsAppGroup)
        return L("WhatsApp (conversations et médias)");
    if (domain == u"AppDomain-ph.telegra.Telegraph")
        return L("Telegram");
    if (domain == u"AppDomain-com.burbn.instagram")
        return L("Instagram");
    if (domain == u"AppDomain-com.apple.mobilesafari")
        return L("Safari");
    if (domain == u"KeychainDomain")
        return L("Trousseau (données protégées)");
    if (domain == u"SystemPreferencesDomain")
        return L("Réglages du système");
    if (domain == u"HealthDomain")
        return L("Santé");
    const auto rest = [&domain](QLatin1StringView prefix) { return domain.mid(prefix.size()); };
    if (domain.startsWith(QLatin1StringView("AppDomainGroup-")))
        return L("App partagée : ") + rest(QLatin1StringView("AppDomainGroup-"));
    if (domain.startsWith(QLatin1StringView("AppDomainPlugin-")))
        return L("Extension : ") + rest(QLatin1StringView("AppDomainPlugin-"));
    if (domain.startsWith(QLatin1StringView("AppDomain-")))
        return L("App : ") + rest(QLatin1StringView("AppDomain-"));
    if (domain.startsWith(QLatin1StringView("SysSharedContainerDomain-")))
        return L("Système : ") + rest(QLatin1StringView("SysSharedContainerDomain-"));
    if (domain.startsWith(QLatin1StringView("SysContainerDomain-")))
        return L("Système : ") + rest(QLatin1StringView("SysContainerDomain-"));
    return domain;
}

int ExplorerModel::domainRank(const QString& domain)
{
    if (domain == cameraRoll)
        return 0;
    if (domain == whatsAppGroup)
        return 1;
    if (domain == whatsAppApp)
        return 2;
    if (domain == homeDomain)
        return 3;
    if (domain == u"MediaDomain")
        return 4;
    return 99;
}

ExplorerModel::LoadResult ExplorerModel::organize(QList<BackupEntry> entries)
{
    LoadResult result;
    QStringList domainOrder;
    for (BackupEntry& entry : entries) {
        if (entry.domain == cameraRoll) {
            bool video = false;
            if (isPhotoPath(entry.path, &video)) {
                const MBFileInfo meta = entry.meta();
                result.photos.append(BackupPhoto{entry, meta.size, meta.mtime, video});
            }
        } else if (entry.domain == homeDomain && entry.path == smsPath) {
            result.smsEntry = entry;
        } else if (entry.domain == whatsAppGroup && entry.path == whatsAppPath) {
            result.waEntry = entry;
        }
        auto slot = result.byDomain.find(entry.domain);
        if (slot == result.byDomain.end()) {
            domainOrder.append(entry.domain);
            slot = result.byDomain.insert(entry.domain, {});
        }
        slot->append(std::move(entry));
    }

    // Newest first; undated photos go last, in index order.
    std::stable_sort(result.photos.begin(), result.photos.end(), [](const BackupPhoto& a, const BackupPhoto& b) {
        if (!a.date || !b.date)
            return a.date.has_value() && !b.date.has_value();
        return *a.date > *b.date;
    });

    result.domains.reserve(domainOrder.size());
    for (const QString& domain : std::as_const(domainOrder))
        result.domains.append(DomainRow{domain, friendly(domain), result.byDomain.value(domain).size()});
    std::stable_sort(result.domains.begin(), result.domains.end(), [](const DomainRow& a, const DomainRow& b) {
        const int rankA = domainRank(a.domain);
        const int rankB = domainRank(b.domain);
        if (rankA != rankB)
            return rankA < rankB;
        return a.count > b.count;
    });
    return result;
}

QList<FolderItem> ExplorerModel::listing(const QList<BackupEntry>& entries, const QStringList& folder)
{
    const QString prefix = folder.isEmpty() ? QString() : folder.join(u'/') + u'/';
    QList<FolderItem> folders;
    QHash<QString, qsizetype> folderIndex;
    QList<FolderItem> files;
    for (const BackupEntry& entry : entries) {
        if (!entry.path.startsWith(prefix) || entry.path.size() == prefix.size())
            continue;
        const QStringView rest = QStringView(entry.path).mid(prefix.size());
        const qsizetype slash = rest.indexOf(u'/');
        const qint64 size = entry.meta().size;
        if (slash < 0) {
            files.append(FolderItem{entry.fileID, rest.toString(), false, 0, size, entry});
            continue;
        }
        const QString name = rest.left(slash).toString();
        // Empty, "." and ".." components lead nowhere a person could browse; extraction still cleans them.
        if (name.isEmpty() || name == u"." || name == u"..")
            continue;
        auto found = folderIndex.constFind(name);
        if (found == folderIndex.constEnd()) {
            found = folderIndex.insert(name, folders.size());
            folders.append(FolderItem{QStringLiteral("dir:") + name, name, true, 0, 0, std::nullopt});
        }
        FolderItem& item = folders[*found];
        item.count += 1;
        item.size += size;
    }
    const QCollator collator = finderOrder();
    const auto byName = [&collator](const FolderItem& a, const FolderItem& b) {
        return collator.compare(a.name, b.name) < 0;
    };
    std::stable_sort(folders.begin(), folders.end(), byName);
    std::stable_sort(files.begin(), files.end(), byName);
    folders.append(files);
    return folders;
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
    QList<ExtractJob> jobs;
    for (const BackupPhoto& photo : std::as_const(m_photos)) {
        if (m_selected.contains(photo.entry.fileID))
            jobs.append({photo.entry, QDir(destination).filePath(photo.entry.fileName())});
    }
    extract(std::move(jobs), destination);
}

void ExplorerModel::extractAllPhotos(const QString& destination)
{
    QList<ExtractJob> jobs;
    jobs.reserve(m_photos.size());
    for (const BackupPhoto& photo : std::as_const(m_photos))
        jobs.append({photo.entry, QDir(destination).filePath(photo.entry.fileName())});
    extract(std::move(jobs), destination);
}

bool ExplorerModel::isInsideBackup(const QString& destination) const
{
    // The folder may not exist yet: its nearest existing parent says where it would be.
    QString existing = QDir::cleanPath(QDir(destination).absolutePath());
    while (!QFileInfo::exists(existing)) {
        const QString parent = QFileInfo(existing).absolutePath();
        if (parent == existing)
            break;
        existing = parent;
    }
    const QString place = QFileInfo(existing).canonicalFilePath();
    for (const QString& backupFolder : {m_backup.url, BackupLocator::root()}) {
        const QString guarded = QFileInfo(backupFolder).canonicalFilePath();
        if (!guarded.isEmpty() && !place.isEmpty() && (place == guarded || place.startsWith(guarded + u'/')))
            return true;
    }
    return false;
}

void ExplorerModel::extract(QList<ExtractJob> jobs, const QString& destination)
{
    if (destination.isEmpty() || jobs.isEmpty() || !m_reader || m_workRunning)
        return;
    if (isInsideBackup(destination)) {
        setErrorNotice([] { return L("Choisis un autre dossier : Nuvrel n'écrit jamais dans une sauvegarde."); });
        return;
    }
    m_workRunning = true;
    const QLocale locale = Localizer::locale();
    const QString total = locale.toString(jobs.size());
    setBusy(L("Extraction %@ sur %@…", QStringLiteral("0"), total), 0);
    std::shared_ptr<const IPhoneBackupReader> reader = m_reader;
    runThenCallback(
        &m_work,
        [this, reader, jobs = std::move(jobs), total, locale]() {
            ExtractOutcome outcome;
            for (qsizetype i = 0; i < jobs.size() && !m_cancel; ++i) {
                postBusy(L("Extraction %@ sur %@…", locale.toString(i + 1), total), double(i) / double(jobs.size()));
                try {
                    reader->extract(jobs[i].entry, jobs[i].destination, &m_cancel);
                    ++outcome.done;
                } catch (const BackupReadError& error) {
                    if (error.kind() == BackupReadError::Kind::WriteFailed) {
                        // A full disk or a refused folder fails every file that follows.
                        outcome.failure = error;
                        break;
                    }
                    ++outcome.missing;
                } catch (const std::exception&) {
                    ++outcome.missing;
                }
            }
            return outcome;
        },
        this,
        [this, destination](const ExtractOutcome& outcome) {
            m_workRunning = false;
            setBusy({});
            m_lastFolder = destination;
            Q_EMIT lastFolderChanged();
            Text text = [outcome] {
                const QLocale numbers = Localizer::locale();
                QString line = L("%@ fichier(s) extraits", numbers.toString(outcome.done));
                if (outcome.missing > 0)
                    line += L(" · %@ impossible(s) (absents de la sauvegarde)", numbers.toString(outcome.missing));
                if (outcome.failure)
                    line += QStringLiteral(" · ") + outcome.failure->message();
                return line;
            };
            if (outcome.failure)
                setErrorNotice(std::move(text));
            else
                setNotice(std::move(text));
        });
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
    while (!m_thumbQueue.empty() && m_thumbInFlight.size() < m_thumbnailPool.maxThreadCount()) {
        const QString fileID = m_thumbQueue.back();
        m_thumbQueue.pop_back();
        const BackupPhoto photo = m_photoByID.value(fileID);
        m_thumbInFlight.insert(fileID);
        std::shared_ptr<const IPhoneBackupReader> reader = m_reader;
        const std::atomic<bool>* cancel = &m_cancel;
        runThenCallback(
            &m_thumbnailPool,
            [reader, photo, cancel]() -> QImage {
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
            this,
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
    m_items = listing(m_byDomain.value(m_domain), m_folder);
    Q_EMIT placeChanged();
}

void ExplorerModel::extractCurrentFolder(const QString& destination)
{
    if (m_domain.isEmpty() || destination.isEmpty())
        return;
    // The folder keeps its name and its inside: "<destination>/<folder>/<path below it>".
    const QString prefix = m_folder.isEmpty() ? QString() : m_folder.join(u'/') + u'/';
    // Names from the index: "..", "." or a separator must not lead outside the chosen folder.
    QString base = m_folder.isEmpty() ? m_domain : m_folder.constLast();
    base.replace(u'/', u'_').replace(u'\\', u'_');
    if (base.isEmpty() || base == u"." || base == u"..")
        base = QStringLiteral("Nuvrel-extraction");
    const QDir root(QDir(destination).filePath(base));
    QList<ExtractJob> jobs;
    for (const BackupEntry& entry : m_byDomain.value(m_domain)) {
        if (!entry.path.startsWith(prefix))
            continue;
        BackupEntry below = entry;
        below.path = entry.path.mid(prefix.size());
        const QString relative = below.safeRelativePath();
        if (!relative.isEmpty())
            jobs.append({entry, root.filePath(relative)});
    }
    extract(std::move(jobs), destination);
}

void ExplorerModel::openFile(const BackupEntry& entry)
{
    if (!m_reader || m_workRunning)
        return;
    m_workRunning = true;
    setBusy(L("Ouverture de %@…", entry.fileName()));
    std::shared_ptr<const IPhoneBackupReader> reader = m_reader;
    runThenCallback(
        &m_work,
        [reader, entry]() -> QString {
            try {
                return reader->openableURL(entry, entry.fileName());
            } catch (const std::exception&) {
                return {};
            }
        },
        this,
        [this](const QString& copy) {
            m_workRunning = false;
            setBusy({});
            if (copy.isEmpty() || !m_services.workspace.open(copy))
                setErrorNotice([] { return L("Impossible d'ouvrir ce fichier."); });
        });
}

void ExplorerModel::revealLastFolder()
{
    if (!m_lastFolder.isEmpty())
        m_services.workspace.reveal(m_lastFolder);
}

} // namespace nuvrel
