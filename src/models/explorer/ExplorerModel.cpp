#include "models/explorer/ExplorerModel.h"

#include "engines/backup/BackupLocator.h"
#include "engines/backup/BackupReadError.h"
#include "engines/backup/IPhoneBackupReader.h"
#include "l10n/L.h"
#include "platform/Clipboard.h"
#include "platform/Workspace.h"

#include <QFileInfo>

#include <algorithm>
#include <optional>

namespace nuvrel {

ExplorerModel::ExplorerModel(PhoneBackup backup, Services services, QObject* parent)
    : QObject(parent)
    , m_session(new BackupSession(std::move(backup), services, this))
    , m_photos(new PhotoRoll(this))
    , m_files(new FileBrowser(this))
    , m_chats(new ChatList(this))
    , m_job(new Job(this))
{
    connect(m_session, &BackupSession::phaseChanged, this, &ExplorerModel::sessionPhaseChanged);
    connect(m_session, &BackupSession::passwordChanged, this, &ExplorerModel::passwordChanged);
    connect(m_session, &BackupSession::noticeRaised, this,
            [this](const Text& text, bool isError) { isError ? setErrorNotice(text) : setNotice(text); });
    connect(m_job, &Job::progressChanged, this, [this](qint64 done, qint64 total) {
        m_progressDone = done;
        m_progressTotal = total;
        if (m_progressText)
            setBusy(m_progressText(done, total), total > 0 ? double(done) / double(total) : -1);
    });
    connect(m_job, &Job::failed, this, [this] {
        setBusy({});
        m_chatsLoading = false;
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
    if (m_reader)
        Job::pool().start([reader = std::move(m_reader)]() mutable { reader.reset(); });
}

void ExplorerModel::sessionPhaseChanged()
{
    if (m_session->phase() == Phase::Ready && !m_reader) {
        m_reader = m_session->reader();
        const BackupCatalogue& catalogue = m_session->catalogue();
        m_photos->setContents(catalogue.photos, m_reader);
        m_files->setContents(catalogue.byDomain, catalogue.domains);
    }
    setBusy(m_session->phase() == Phase::Loading
                ? L("Lecture de la sauvegarde… une grosse sauvegarde peut prendre une minute.")
                : QString());
    Q_EMIT phaseChanged();
    if (m_session->phase() == Phase::Ready && m_tab == ConversationsTab)
        loadChats();
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
    m_pdfFingerprint.clear();
    Q_EMIT noticeChanged();
}

void ExplorerModel::setErrorNotice(Text notice)
{
    m_errorNotice = std::move(notice);
    m_notice = nullptr;
    m_pdfFingerprint.clear();
    Q_EMIT noticeChanged();
}

void ExplorerModel::copyPdfFingerprint()
{
    if (!m_pdfFingerprint.isEmpty())
        m_session->services().clipboard.copyText(m_pdfFingerprint);
}

void ExplorerModel::setTab(int tab)
{
    tab = std::clamp(tab, int(PhotosTab), int(ConversationsTab));
    if (tab == m_tab)
        return;
    m_tab = tab;
    Q_EMIT tabChanged();
    if (m_tab == ConversationsTab && phase() == Phase::Ready && m_chats->chats().isEmpty() && !m_chatsLoading &&
        !m_chatsMessage)
        loadChats();
}

// Extraction

void ExplorerModel::extractSelectedPhotos(const QString& destination)
{
    QList<Extraction::Item> items;
    for (const BackupPhoto& photo : m_photos->selectedPhotos())
        items.append(Extraction::photo(photo.entry));
    extract(std::move(items), destination);
}

void ExplorerModel::extractAllPhotos(const QString& destination)
{
    QList<Extraction::Item> items;
    items.reserve(m_photos->photos().size());
    for (const BackupPhoto& photo : m_photos->photos())
        items.append(Extraction::photo(photo.entry));
    extract(std::move(items), destination);
}

void ExplorerModel::extractCurrentFolder(const QString& destination)
{
    const QString domain = m_files->domain();
    if (domain.isEmpty() || destination.isEmpty())
        return;
    // The folder keeps its name and its inside: "<destination>/<folder>/<path below it>".
    const QStringList& folder = m_files->folder();
    const QString prefix = folder.isEmpty() ? QString() : folder.join(u'/') + u'/';
    const QString base = folder.isEmpty() ? domain : folder.constLast();
    QList<Extraction::Item> items;
    for (const BackupEntry& entry : m_files->byDomain().value(domain)) {
        if (entry.path.startsWith(prefix))
            items.append(Extraction::belowFolder(entry, base, entry.path.mid(prefix.size())));
    }
    extract(std::move(items), destination);
}

bool ExplorerModel::isInsideBackup(const QString& destination) const
{
    return Extraction::isForbiddenDestination(destination, backup(), BackupLocator::root());
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
                QString line = report.stopped
                                   ? LN("Extraction arrêtée : %@ fichier(s) extraits, gardés", report.done,
                                        numbers.toString(report.done))
                                   : LN("%@ fichier(s) extraits", report.done, numbers.toString(report.done));
                const int missing = report.failures(Extraction::Failure::Missing);
                const int undecryptable = report.failures(Extraction::Failure::Undecryptable);
                const int refused = report.failures(Extraction::Failure::Refused);
                const int unwritable = report.failures(Extraction::Failure::Unwritable);
                if (missing > 0)
                    line += LN(" · %@ impossible(s) (absents de la sauvegarde)", missing,
                               count(Extraction::Failure::Missing));
                if (undecryptable > 0)
                    line += LN(" · %@ impossible(s) à déchiffrer", undecryptable,
                               count(Extraction::Failure::Undecryptable));
                if (refused > 0)
                    line += LN(" · %@ refusé(s) (nom qui sortirait du dossier choisi)", refused,
                               count(Extraction::Failure::Refused));
                if (unwritable > 0)
                    line += LN(" · %@ non écrit(s) : %@", unwritable, count(Extraction::Failure::Unwritable),
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
    if (!started)
        return;
    m_progressTotal = total;
    setBusy(L("Extraction %@ sur %@…", QStringLiteral("0"), Localizer::locale().toString(total)), 0);
}

// Opening one file

void ExplorerModel::openFile(const BackupEntry& entry)
{
    if (!m_reader || workRunning())
        return;
    std::shared_ptr<const IPhoneBackupReader> reader = m_reader;
    struct Opened
    {
        QString copy;
        std::optional<BackupReadError> error; ///< why no copy was made, when it is known
    };
    const bool started = startJob(
        [reader, entry](JobContext&) -> Opened {
            try {
                return {reader->openableURL(entry, entry.fileName()), {}};
            } catch (const BackupReadError& error) {
                return {{}, error};
            } catch (const std::exception&) {
                return {};
            }
        },
        [this](const Opened& opened) {
            setBusy({});
            if (opened.error) {
                setErrorNotice([error = *opened.error] { return error.message(); });
            } else if (opened.copy.isEmpty()) {
                setErrorNotice([] { return L("Impossible d'ouvrir ce fichier."); });
            } else if (!m_session->services().workspace.open(opened.copy)) {
                // The copy is whole: what is missing is an application for its kind of file.
                setErrorNotice([name = QFileInfo(opened.copy).fileName()] {
                    return L("Aucune application n'a pu ouvrir « %@ ».", name);
                });
            }
        });
    if (started)
        setBusy(L("Ouverture de %@…", entry.fileName()));
}

void ExplorerModel::revealLastFolder()
{
    if (!m_lastFolder.isEmpty())
        m_session->services().workspace.reveal(m_lastFolder);
}

} // namespace nuvrel
