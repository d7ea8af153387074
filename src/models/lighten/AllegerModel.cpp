#include "models/lighten/AllegerModel.h"

#include "engines/lighten/LightenError.h"
#include "ground/Job.h"
#include "l10n/L.h"
#include "media/PhotoFile.h"
#include "media/Thumbnailer.h"
#include "models/lighten/FileGathering.h"
#include "platform/Clipboard.h"
#include "platform/Handoff.h"
#include "platform/Trash.h"
#include "platform/Workspace.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QPointer>
#include <QSet>
#include <QSettings>
#include <QStandardPaths>
#include <QThread>

#include <atomic>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace nuvrel {

namespace {

const QString lastPickedFolderKey = QStringLiteral("lastPickedFolder");

// What one file became, worked off the GUI thread.
LightenItem lightened(LightenItem item, const LightenOptions& options, const QString& folder,
                      const LightenProgress& progress, const std::atomic<bool>* cancel)
{
    try {
        const LightenOutcome outcome = Lightener::lighten(item.path, options, folder, progress, cancel);
        item.state = LightenItem::State::Done;
        item.output = outcome.output;
        item.sizeBefore = outcome.sizeBefore;
        item.sizeAfter = outcome.sizeAfter;
    } catch (const LightenError& error) {
        if (error.kind() == LightenError::Kind::Cancelled) {
            item.state = LightenItem::State::Waiting; // not lightened: the next pass takes it again
        } else {
            item.state = LightenItem::State::Failed;
            item.failure = [error] { return error.message(); };
        }
    } catch (const FileError& error) {
        item.state = LightenItem::State::Failed;
        item.failure = [error] { return error.message(); };
    } catch (const std::exception& error) {
        // A fault of ours or of a library: this file fails, the pass goes on.
        qWarning("lightening %s failed: %s", qPrintable(item.path), error.what());
        item.state = LightenItem::State::Failed;
        item.failure = [] { return LightenError(LightenError::Kind::Unreadable).message(); };
    }
    item.progress = -1;
    return item;
}

} // namespace

AllegerModel::AllegerModel(Services services, QObject* parent)
    : QObject(parent)
    , m_services(services)
    , m_items(new LightenList(this))
    , m_job(new Job(this))
    , m_outputFolder(QDir(QStandardPaths::writableLocation(QStandardPaths::PicturesLocation))
                         .filePath(QStringLiteral("Nuvrel-Alleges")))
{
    connect(m_job, &Job::runningChanged, this, [this] {
        if (!m_job->isRunning())
            m_stopping = false;
        Q_EMIT runningChanged();
    });
    connect(m_items, &QAbstractItemModel::rowsInserted, this, &AllegerModel::itemsChanged);
    connect(m_items, &QAbstractItemModel::rowsRemoved, this, &AllegerModel::itemsChanged);
    connect(m_items, &QAbstractItemModel::modelReset, this, &AllegerModel::itemsChanged);
    connect(m_items, &QAbstractItemModel::dataChanged, this, &AllegerModel::itemsChanged);
    updateClearFolder();
}

AllegerModel::~AllegerModel() = default;

void AllegerModel::setTarget(int target)
{
    if (target < 0 || target >= int(allLightenTargets.size()) || target == int(m_target))
        return;
    m_target = LightenTarget(target);
    Q_EMIT optionsChanged();
    Q_EMIT itemsChanged(); // the total is told against the new limit
}

void AllegerModel::setStripLocation(bool strip)
{
    if (strip == m_stripLocation)
        return;
    m_stripLocation = strip;
    Q_EMIT optionsChanged();
}

void AllegerModel::setConvertHeic(bool convert)
{
    if (convert == m_convertHeic)
        return;
    m_convertHeic = convert;
    Q_EMIT optionsChanged();
}

void AllegerModel::setLimitMB(int megabytes)
{
    megabytes = std::clamp(megabytes, 1, 100'000);
    if (megabytes == m_limitMB)
        return;
    m_limitMB = megabytes;
    Q_EMIT optionsChanged();
    Q_EMIT itemsChanged();
}

void AllegerModel::setAutoLighten(bool automatic)
{
    if (automatic == m_autoLighten)
        return;
    m_autoLighten = automatic;
    Q_EMIT optionsChanged();
}

bool AllegerModel::running() const
{
    return m_job->isRunning();
}

bool AllegerModel::stopping() const
{
    return m_job->isRunning() && m_stopping;
}

qint64 AllegerModel::usedBytes() const
{
    qint64 used = 0;
    for (const LightenItem& item : m_items->items())
        used += item.state == LightenItem::State::Done ? item.sizeAfter : item.size;
    return used;
}

QString AllegerModel::totalText() const
{
    const QString limit =
        m_target == LightenTarget::Free ? L("%@ Mo max", Localizer::locale().toString(m_limitMB)) : limitText(m_target);
    return L("Total : %@ · %@ par fichier", Localizer::formatByteCount(usedBytes()), limit);
}

int AllegerModel::doneCount() const
{
    const QList<LightenItem>& items = m_items->items();
    return int(std::count_if(items.cbegin(), items.cend(),
                             [](const LightenItem& item) { return item.state == LightenItem::State::Done; }));
}

int AllegerModel::waitingCount() const
{
    const QList<LightenItem>& items = m_items->items();
    return int(std::count_if(items.cbegin(), items.cend(),
                             [](const LightenItem& item) { return item.state == LightenItem::State::Waiting; }));
}

QStringList AllegerModel::doneFiles() const
{
    QStringList files;
    for (const LightenItem& item : m_items->items()) {
        if (item.state == LightenItem::State::Done)
            files.append(item.output);
    }
    return files;
}

void AllegerModel::setNotice(Text notice)
{
    m_notice = std::move(notice);
    Q_EMIT noticeChanged();
}

void AllegerModel::updateClearFolder()
{
    const bool any = !QDir(m_outputFolder).entryList(QDir::Files | QDir::NoDotAndDotDot).isEmpty();
    if (any == m_showClearFolder)
        return;
    m_showClearFolder = any;
    Q_EMIT showClearFolderChanged();
}

void AllegerModel::setOutputFolder(const QString& folder)
{
    m_outputFolder = folder;
    updateClearFolder();
}

void AllegerModel::add(const QStringList& paths)
{
    const GatheredFiles gathered = gatherFiles(paths, maxGatheredFiles);
    // Looked up once per file: a drop of thousands must not compare each with every row.
    QSet<QString> listed;
    for (const LightenItem& item : m_items->items())
        listed.insert(item.path);
    QList<LightenItem> added;
    for (const QString& path : gathered.files) {
        const qint64 size = Lightener::fileSize(path);
        if (size <= 0 || listed.contains(path))
            continue;
        listed.insert(path);
        LightenItem item;
        item.path = path;
        item.size = size;
        item.route = Lightener::routeFor(path);
        added.append(std::move(item));
    }
    const qsizetype count = added.size();
    makeThumbnails(added);
    m_items->append(std::move(added));

    if (gathered.photosLibrary) {
        setNotice([] { return L("Bibliothèque Photos ignorée : utilise « Choisir dans Photos »."); });
    } else if (count == 0) {
        setNotice([] { return L("Rien d'ajouté (fichier vide ou déjà dans la liste)."); });
    } else if (gathered.truncated) {
        setNotice([] {
            return L("Seuls les %@ premiers fichiers ont été ajoutés : dépose le reste ensuite.",
                     Localizer::locale().toString(maxGatheredFiles));
        });
    } else if (gathered.skippedPackages > 0) {
        setNotice([skipped = gathered.skippedPackages] {
            return LN("%@ paquet(s) ignoré(s) : les applications et les bibliothèques ne s'allègent pas.", skipped,
                      Localizer::locale().toString(skipped));
        });
    } else {
        setNotice({});
    }
    if (count > 0 && m_autoLighten)
        run();
}

void AllegerModel::makeThumbnails(const QList<LightenItem>& items)
{
    QList<QPair<QUuid, QString>> pictures;
    QList<QPair<QUuid, QString>> videos;
    for (const LightenItem& item : items) {
        if (pictures.size() + videos.size() >= maxThumbnails)
            break;
        if (item.route == LightenRoute::Photo)
            pictures.append({item.id, item.path});
        else if (item.route == LightenRoute::Video)
            videos.append({item.id, item.path});
    }
    if (pictures.isEmpty() && videos.isEmpty())
        return;
    // One worker for the whole drop, photos first (they are quick), so that a folder of thousands
    // never crowds out the pass on the shared pool. Each picture reaches the list on the GUI thread.
    Job::pool().start([list = QPointer<LightenList>(m_items), pictures, videos] {
        const auto deliver = [&list](const QUuid& id, const QImage& image) {
            QMetaObject::invokeMethod(
                qApp,
                [list, id, image] {
                    if (list)
                        list->setThumbnail(id, image);
                },
                Qt::QueuedConnection);
        };
        for (const auto& [id, path] : pictures) {
            if (Job::quittingFlag()->load(std::memory_order_relaxed))
                return;
            PhotoFile photo(path);
            deliver(id, photo.decode(thumbnailSide));
        }
        for (const auto& [id, path] : videos)
            deliver(id, Thumbnailer::videoFrame(path, thumbnailSide, Job::quittingFlag()));
    });
}

// The pass's work list, handed to the worker: rows by value, and the options of the moment.
struct AllegerModel::Work
{
    QList<LightenItem> items;
    LightenOptions options;
    QString folder;
};

void AllegerModel::run()
{
    if (m_job->isRunning()) // the running pass takes rows added meanwhile when it ends
        return;
    Work work;
    for (const LightenItem& item : m_items->items()) {
        if (item.state == LightenItem::State::Waiting)
            work.items.append(item);
    }
    if (work.items.isEmpty())
        return;
    work.options.target = m_target;
    work.options.stripLocation = m_stripLocation;
    work.options.convertHeic = m_convertHeic;
    work.folder = m_outputFolder;
    QDir().mkpath(work.folder); // a failure shows on each row, with its reason

    m_job->start(
        [this, work = std::move(work)](JobContext& context) {
            const std::atomic<bool>* cancel = context.token().flag();
            const auto publish = [this, &context](const LightenItem& item) {
                context.publish([this, item] { publishResult(item); });
            };
            const auto working = [](LightenItem item) {
                item.state = LightenItem::State::Working;
                return item;
            };
            qsizetype next = 0;
            while (next < work.items.size() && !context.isCancelled()) {
                const LightenItem& first = work.items[next];
                if (first.route == LightenRoute::Video) {
                    publish(working(first));
                    QElapsedTimer sincePublished;
                    sincePublished.start();
                    const LightenProgress progress = [&](double fraction) {
                        if (sincePublished.elapsed() < progressIntervalMs)
                            return;
                        sincePublished.restart();
                        LightenItem shown = working(first);
                        shown.progress = fraction;
                        publish(shown);
                    };
                    publish(lightened(first, work.options, work.folder, progress, cancel));
                    ++next;
                    continue;
                }
                // The files up to the next video, side by side; each result is published once every
                // row before it is, so that rows change in list order.
                qsizetype end = next;
                while (end < work.items.size() && work.items[end].route != LightenRoute::Video)
                    ++end;
                std::vector<std::optional<LightenItem>> results(size_t(end - next));
                std::mutex lock;
                size_t published = 0;
                std::atomic<qsizetype> taken{next};
                const auto worker = [&] {
                    for (;;) {
                        if (context.isCancelled())
                            return;
                        const qsizetype i = taken++;
                        if (i >= end)
                            return;
                        publish(working(work.items[i]));
                        LightenItem result = lightened(work.items[i], work.options, work.folder, {}, cancel);
                        const std::lock_guard guard(lock);
                        results[size_t(i - next)] = std::move(result);
                        while (published < results.size() && results[published]) {
                            publish(*results[published]);
                            ++published;
                        }
                    }
                };
                const qsizetype helpers = std::min<qsizetype>(std::max(1, QThread::idealThreadCount()), end - next) - 1;
                std::vector<std::thread> threads;
                threads.reserve(size_t(helpers));
                for (qsizetype t = 0; t < helpers; ++t)
                    threads.emplace_back(worker);
                worker();
                for (std::thread& thread : threads)
                    thread.join();
                next = end;
            }
        },
        [this] {
            updateClearFolder();
            // Rows added while the pass ran wait for the next one.
            if (!m_stopping && m_autoLighten && waitingCount() > 0)
                QMetaObject::invokeMethod(this, &AllegerModel::run, Qt::QueuedConnection);
        });
}

void AllegerModel::publishResult(const LightenItem& item)
{
    m_items->update(item); // a row taken out of the list meanwhile is not put back
    // A file was just written there: no need to list the folder for each row of a pass.
    if (item.state == LightenItem::State::Done && !m_showClearFolder) {
        m_showClearFolder = true;
        Q_EMIT showClearFolderChanged();
    }
}

void AllegerModel::stop()
{
    if (!m_job->isRunning())
        return;
    m_stopping = true;
    m_job->cancel();
    Q_EMIT runningChanged();
}

void AllegerModel::remove(int row)
{
    if (row < 0 || row >= m_items->rowCount())
        return;
    // A row in hand is finished by the pass; taking it out only hides its result.
    m_items->remove(row);
}

void AllegerModel::clear()
{
    m_items->clear();
    setNotice({});
}

void AllegerModel::clearOutputFolder()
{
    if (m_job->isRunning())
        return; // the pass is writing there
    const QFileInfoList files = QDir(m_outputFolder).entryInfoList(QDir::Files | QDir::NoDotAndDotDot);
    int moved = 0;
    int refused = 0;
    for (const QFileInfo& file : files) {
        if (m_services.trash.moveToTrash(file.absoluteFilePath()))
            ++moved;
        else
            ++refused;
    }
    if (refused > 0)
        setNotice([moved, refused]() -> QString {
            return LN("%@ fichier(s) allégé(s) mis à la Corbeille.", moved, Localizer::locale().toString(moved)) +
                   u' ' +
                   LN("%@ fichier(s) n'ont pas pu y aller : ils restent dans le dossier.", refused,
                      Localizer::locale().toString(refused));
        });
    else
        setNotice([moved] {
            return LN("%@ fichier(s) allégé(s) mis à la Corbeille.", moved, Localizer::locale().toString(moved));
        });
    updateClearFolder();
}

void AllegerModel::copyAndReveal(const QStringList& files)
{
    m_services.clipboard.copyFiles(files);
    m_services.workspace.reveal(files.constFirst());
}

void AllegerModel::send()
{
    const QStringList files = doneFiles();
    if (files.isEmpty()) {
        setNotice([] { return L("Rien à envoyer pour l'instant : attends la fin de l'allègement."); });
        return;
    }
    const qsizetype count = files.size();
    const auto channelOf = [](LightenTarget target) {
        switch (target) {
        case LightenTarget::WhatsApp: return Handoff::Channel::WhatsApp;
        case LightenTarget::Telegram: return Handoff::Channel::Telegram;
        case LightenTarget::Mail: return Handoff::Channel::Mail;
        case LightenTarget::Messages:
        case LightenTarget::Free: break;
        }
        return Handoff::Channel::Messages;
    };
    switch (m_target) {
    case LightenTarget::Free:
        copyAndReveal(files);
        setNotice([count] {
            return LN("%@ fichier(s) copié(s) (Cmd+V pour coller) et affichés dans le Finder pour les glisser où tu "
                      "veux.",
                      count, Localizer::locale().toString(count));
        });
        return;
    case LightenTarget::Mail: {
        const Handoff::Outcome outcome = m_services.handoff.send(Handoff::Channel::Mail, files);
        if (outcome.kind == Handoff::Outcome::Kind::ShareWindow)
            setNotice([count] {
                return LN(
                    "Un nouveau courriel s'ouvre avec %@ pièce(s) jointe(s) : écris le destinataire, puis envoie.",
                    count, Localizer::locale().toString(count));
            });
        else
            setNotice([] { return L("Mail n'est pas disponible sur ce Mac."); });
        return;
    }
    case LightenTarget::Messages: {
        const Handoff::Outcome outcome = m_services.handoff.send(Handoff::Channel::Messages, files);
        if (outcome.kind == Handoff::Outcome::Kind::ShareWindow) {
            setNotice([] {
                return L("Choisis la personne dans la fenêtre %@ qui vient de s'ouvrir, puis envoie.", L("Messages"));
            });
        } else {
            copyAndReveal(files);
            setNotice([] { return L("Messages n'est pas disponible sur ce Mac."); });
        }
        return;
    }
    case LightenTarget::WhatsApp:
    case LightenTarget::Telegram: break;
    }

    // WhatsApp and Telegram: straight into the application's chat chooser where it has one; otherwise
    // the files wait on the clipboard, whatever happens next, and the file manager shows them.
    const QString name = title(m_target);
    const Handoff::Outcome outcome = m_services.handoff.send(channelOf(m_target), files);
    if (outcome.kind != Handoff::Outcome::Kind::ShareWindow &&
        outcome.kind != Handoff::Outcome::Kind::SharedThroughFolder)
        copyAndReveal(files);
    switch (outcome.kind) {
    case Handoff::Outcome::Kind::ShareWindow:
        setNotice(
            [name] { return L("Choisis la personne dans la fenêtre %@ qui vient de s'ouvrir, puis envoie.", name); });
        return;
    case Handoff::Outcome::Kind::SharedThroughFolder:
        setNotice([name, folder = QDir::toNativeSeparators(outcome.folder)] {
            return L("Choisis la personne dans la fenêtre %@ qui vient de s'ouvrir, puis envoie. %@ étant isolé du "
                     "reste de l'ordinateur, les fichiers lui sont passés par le dossier %@.",
                     name, name, folder);
        });
        return;
    case Handoff::Outcome::Kind::AppOpened:
        setNotice([name] {
            return L("Ouverture de %@… Les fichiers sont copiés et affichés dans le Finder : dans la conversation, "
                     "colle-les (Cmd+V) ou glisse-les.",
                     name);
        });
        return;
    case Handoff::Outcome::Kind::WebOpened:
        setNotice([name] {
            return L(
                "%@ Web s'ouvre dans ton navigateur. Les fichiers sont copiés et affichés dans le Finder : dans la "
                "conversation, colle-les (Cmd+V) ou glisse-les.",
                name);
        });
        return;
    case Handoff::Outcome::Kind::NotAvailable:
        setNotice([name] {
            return L("%@ n'est pas installé sur ce Mac. Les fichiers sont copiés : colle-les (Cmd+V) où tu veux.",
                     name);
        });
        return;
    case Handoff::Outcome::Kind::Failed:
        setNotice([name]() -> QString {
            return L("Impossible d'ouvrir %@.", name) + u' ' +
                   L("Les fichiers sont copiés : colle-les (Cmd+V) où tu veux.");
        });
        return;
    }
}

QString AllegerModel::pickerFolder() const
{
    QString remembered = QSettings().value(lastPickedFolderKey).toString();
    if (!remembered.isEmpty() && QFileInfo(remembered).isDir())
        return remembered;
    return QStandardPaths::writableLocation(QStandardPaths::PicturesLocation);
}

void AllegerModel::rememberPickedFolder(const QString& folder)
{
    if (!folder.isEmpty())
        QSettings().setValue(lastPickedFolderKey, folder);
}

QString AllegerModel::pickerPrompt()
{
    return L("Ouvre un dossier, puis clique sur les fichiers que tu veux alléger");
}

QString AllegerModel::photosFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::PicturesLocation);
}

QStringList AllegerModel::photosNameFilters()
{
    return {L("Photos et vidéos (%@)",
              QStringLiteral("*.jpg *.jpeg *.heic *.heif *.png *.tif *.tiff *.webp *.gif *.mov *.mp4 *.m4v *.3gp "
                             "*.avi *.mkv *.webm *.JPG *.JPEG *.HEIC *.HEIF *.PNG *.MOV *.MP4 *.M4V")),
            L("Tous les fichiers (%@)", QStringLiteral("*"))};
}

} // namespace nuvrel
