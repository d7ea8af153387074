#include "models/duplicates/DuplicatesModel.h"

#include "ground/Job.h"
#include "l10n/L.h"
#include "media/PhotoFile.h"
#include "platform/Trash.h"
#include "platform/Workspace.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QPointer>
#include <QSettings>
#include <QStandardPaths>

#include <algorithm>
#include <mutex>

namespace nuvrel {

namespace {

QString count(qint64 value)
{
    return Localizer::locale().toString(value);
}

QList<DupGroup> wrapped(const QList<QList<DupFile>>& lists, DupGroup::Kind kind)
{
    QList<DupGroup> groups;
    groups.reserve(lists.size());
    for (const QList<DupFile>& files : lists) {
        DupGroup group;
        group.kind = kind;
        for (qsizetype i = 0; i < files.size(); ++i)
            group.items.append({files[i], kind == DupGroup::Kind::Identical && i > 0});
        groups.append(group);
    }
    return groups;
}

// Takes the trashed files out of their groups; a group left with one file is no longer a group.
void removeTrashed(QList<DupGroup>& groups, const QSet<QString>& trashed)
{
    for (DupGroup& group : groups)
        group.items.removeIf([&trashed](const DupItem& item) { return trashed.contains(item.file.path); });
    groups.removeIf([](const DupGroup& group) { return group.items.size() < 2; });
    for (DupGroup& group : groups) {
        if (std::all_of(group.items.cbegin(), group.items.cend(), [](const DupItem& item) { return item.marked; }))
            group.items.first().marked = false;
    }
}

} // namespace

DuplicatesModel::DuplicatesModel(Services services, QObject* parent)
    : QObject(parent)
    , m_services(services)
    , m_job(new Job(this))
{
    m_images.setMaxCost(imageCacheKiB);
    const QString remembered = QSettings().value(QLatin1StringView(DuplicateScanner::folderSettingsKey)).toString();
    if (!remembered.isEmpty() && QFileInfo(remembered).isDir())
        m_folder = remembered;
    connect(m_job, &Job::runningChanged, this, [this] {
        if (!m_job->isRunning()) {
            m_stopping = false;
            m_trashing = false;
        }
        Q_EMIT busyChanged();
    });
    connect(m_job, &Job::failed, this,
            [this] { setNotice([] { return L("L'opération a été interrompue par une erreur interne."); }); });
}

DuplicatesModel::~DuplicatesModel() = default;

void DuplicatesModel::setFolder(const QString& folder)
{
    const QString clean = folder.isEmpty() ? QString() : QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
    if (clean == m_folder || scanning() || trashing())
        return;
    m_folder = clean;
    if (!clean.isEmpty())
        QSettings().setValue(QLatin1StringView(DuplicateScanner::folderSettingsKey), clean);
    // The groups of another folder mean nothing here.
    m_identical.clear();
    m_similar.clear();
    m_imageQueue.clear();
    m_scanned = false;
    setNotice({});
    Q_EMIT folderChanged();
    Q_EMIT groupsChanged();
    Q_EMIT marksChanged();
}

QString DuplicatesModel::pickerFolder() const
{
    if (!m_folder.isEmpty() && QFileInfo(m_folder).isDir())
        return m_folder;
    return QStandardPaths::writableLocation(QStandardPaths::PicturesLocation);
}

bool DuplicatesModel::scanning() const
{
    return m_job->isRunning() && !m_trashing;
}

bool DuplicatesModel::trashing() const
{
    return m_job->isRunning() && m_trashing;
}

QString DuplicatesModel::summary() const
{
    if (!m_scanned)
        return {};
    if (m_identical.isEmpty() && m_similar.isEmpty())
        return L("Aucun doublon dans ce dossier.");
    QStringList parts;
    if (!m_identical.isEmpty())
        parts.append(LN("%@ groupe(s) de fichiers identiques", m_identical.size(), count(m_identical.size())));
    if (!m_similar.isEmpty())
        parts.append(LN("%@ groupe(s) de photos qui se ressemblent", m_similar.size(), count(m_similar.size())));
    if (m_unreadable > 0)
        parts.append(LN("%@ élément(s) illisible(s) laissé(s) de côté", m_unreadable, count(m_unreadable)));
    return parts.join(QStringLiteral(" · "));
}

qint64 DuplicatesModel::recoverable() const
{
    qint64 total = 0;
    for (const QList<DupGroup>* list : {&m_identical, &m_similar}) {
        for (const DupGroup& group : *list)
            total += group.recoverable();
    }
    return total;
}

int DuplicatesModel::markedCount() const
{
    int total = 0;
    for (const QList<DupGroup>* list : {&m_identical, &m_similar}) {
        for (const DupGroup& group : *list)
            total += int(std::count_if(group.items.cbegin(), group.items.cend(),
                                       [](const DupItem& item) { return item.marked; }));
    }
    return total;
}

QString DuplicatesModel::trashButtonText() const
{
    return L("Mettre à la Corbeille (%@)", Localizer::formatByteCount(recoverable()));
}

bool DuplicatesModel::setMarked(Kind kind, int group, int item, bool marked)
{
    QList<DupGroup>& list = kind == Kind::Identical ? m_identical : m_similar;
    if (group < 0 || group >= list.size() || item < 0 || item >= list[group].items.size() || trashing())
        return false;
    DupGroup& target = list[group];
    if (target.items[item].marked == marked)
        return true;
    if (marked && std::count_if(target.items.cbegin(), target.items.cend(),
                                [](const DupItem& each) { return !each.marked; }) <= 1) {
        setNotice([] { return L("Chaque groupe garde au moins un fichier."); });
        return false;
    }
    target.items[item].marked = marked;
    Q_EMIT marksChanged();
    return true;
}

void DuplicatesModel::setNotice(Text notice)
{
    m_notice = std::move(notice);
    Q_EMIT noticeChanged();
}

void DuplicatesModel::setProgress(const QString& text, double fraction)
{
    m_progressText = text;
    m_progress = fraction;
    Q_EMIT progressChanged();
}

void DuplicatesModel::scan()
{
    if (m_job->isRunning())
        return;
    if (m_folder.isEmpty() || !QFileInfo(m_folder).isDir()) {
        setNotice([folder = m_folder] {
            return folder.isEmpty() ? L("Choisis d'abord un dossier.")
                                    : L("Dossier introuvable : %@", QDir::toNativeSeparators(folder));
        });
        return;
    }
    m_identical.clear();
    m_similar.clear();
    m_imageQueue.clear(); // pictures of the last groups, no longer shown
    m_scanned = false;
    m_stopRequested = false;
    setNotice({});
    setProgress(L("Recherche des fichiers…"), 0);
    Q_EMIT groupsChanged();
    Q_EMIT marksChanged();

    m_job->start(
        [folder = m_folder, self = QPointer<DuplicatesModel>(this)](JobContext& context) {
            // The scan reports every file; the page hears of it a few times a second.
            QElapsedTimer clock;
            clock.start();
            std::mutex throttle;
            const auto report = [&](const QString& text, double fraction) {
                const std::lock_guard guard(throttle);
                if (clock.elapsed() < progressIntervalMs && fraction < 1)
                    return;
                clock.restart();
                context.publish([self, text, fraction] {
                    if (self)
                        self->setProgress(text, fraction);
                });
            };
            return DuplicateScanner::scan(folder, true, report, context.token().flag());
        },
        [this](const DupScan& found) {
            if (m_stopRequested) {
                setNotice([] { return L("Recherche arrêtée."); });
                setProgress({}, 0);
                return;
            }
            m_identical = wrapped(found.exact, Kind::Identical);
            m_similar = wrapped(found.similar, Kind::Similar);
            m_skippedBundles = found.skippedBundles;
            m_unreadable = found.unreadable;
            m_scanned = true;
            Q_EMIT groupsChanged();
            Q_EMIT marksChanged();
            setProgress({}, 1);
        });
    Q_EMIT busyChanged();
}

void DuplicatesModel::stop()
{
    if (!m_job->isRunning() || m_stopping)
        return;
    m_stopping = true;
    m_stopRequested = true;
    m_job->cancel();
    Q_EMIT busyChanged();
}

void DuplicatesModel::moveMarkedToTrash()
{
    if (m_job->isRunning() || markedCount() == 0)
        return;
    QList<DupGroup> marked;
    for (const QList<DupGroup>* list : {&m_identical, &m_similar}) {
        for (const DupGroup& group : *list) {
            if (std::any_of(group.items.cbegin(), group.items.cend(), [](const DupItem& item) { return item.marked; }))
                marked.append(group);
        }
    }
    m_trashing = true;
    setNotice({});
    setProgress(L("Mise à la Corbeille…"), 0);
    Trash* trash = &m_services.trash;
    m_job->start(
        [marked, trash, self = QPointer<DuplicatesModel>(this)](JobContext& context) {
            QElapsedTimer clock;
            clock.start();
            return DuplicateScanner::moveMarkedToTrash(
                marked, *trash,
                [&](qint64 done, qint64 total) {
                    if (clock.elapsed() < progressIntervalMs && done < total)
                        return;
                    clock.restart();
                    context.publish([self, done, total] {
                        if (self)
                            self->setProgress(L("Mise à la Corbeille : %@ sur %@", count(done), count(total)),
                                              double(done) / double(std::max<qint64>(total, 1)));
                    });
                },
                context.token().flag());
        },
        [this](const DupTrashReport& report) { applyTrashReport(report); });
    Q_EMIT busyChanged();
}

void DuplicatesModel::applyTrashReport(const DupTrashReport& report)
{
    const QSet<QString> trashed(report.trashed.cbegin(), report.trashed.cend());
    removeTrashed(m_identical, trashed);
    removeTrashed(m_similar, trashed);
    Q_EMIT groupsChanged();
    Q_EMIT marksChanged();
    setProgress({}, 0);

    setNotice([report] {
        QStringList lines;
        lines.append(LN("%@ fichier(s) envoyé(s) à la Corbeille (%@ libérés).", report.trashed.size(),
                        count(report.trashed.size()), Localizer::formatByteCount(report.freed)));
        const auto names = [](const QStringList& paths) {
            QStringList shown;
            for (const QString& path : paths.mid(0, 5))
                shown.append(QFileInfo(path).fileName());
            if (paths.size() > 5)
                shown.append(QStringLiteral("…"));
            return shown.join(QStringLiteral(", "));
        };
        if (!report.changed.isEmpty())
            lines.append(LN("%@ fichier(s) modifié(s) depuis la recherche, laissé(s) en place : %@",
                            report.changed.size(), count(report.changed.size()), names(report.changed)));
        if (!report.keptMissing.isEmpty())
            lines.append(LN("%@ groupe(s) dont le fichier gardé a changé ou disparu : rien n'y a été touché (%@).",
                            report.keptMissing.size(), count(report.keptMissing.size()), names(report.keptMissing)));
        if (!report.differing.isEmpty())
            lines.append(
                LN("%@ grand(s) fichier(s) pas tout à fait identique(s) au fichier gardé, laissé(s) en place : %@",
                   report.differing.size(), count(report.differing.size()), names(report.differing)));
        if (!report.failed.isEmpty())
            lines.append(LN("%@ fichier(s) n'ont pas pu être mis à la Corbeille : %@", report.failed.size(),
                            count(report.failed.size()), names(report.failed)));
        return lines.join(u'\n');
    });
}

void DuplicatesModel::open(const QString& path)
{
    if (!m_services.workspace.open(path))
        setNotice([name = QFileInfo(path).fileName()] { return L("Impossible d'ouvrir %@.", name); });
}

void DuplicatesModel::reveal(const QString& path)
{
    if (!m_services.workspace.reveal(path))
        setNotice([name = QFileInfo(path).fileName()] { return L("Impossible d'afficher %@.", name); });
}

QImage DuplicatesModel::cachedImage(const QString& path, int side) const
{
    const QImage* image = m_images.object({path, side});
    return image ? *image : QImage();
}

void DuplicatesModel::requestImage(const QString& path, int side)
{
    if (const QImage* image = m_images.object({path, side})) {
        Q_EMIT imageReady(path, side, *image);
        return;
    }
    if (!m_imageQueue.contains(QPair<QString, int>(path, side)))
        m_imageQueue.append({path, side});
    takeNextImage();
}

void DuplicatesModel::takeNextImage()
{
    if (m_imageWorkerBusy || m_imageQueue.isEmpty())
        return;
    // The latest request first: it is what the user is looking at.
    const QPair<QString, int> request = m_imageQueue.takeLast();
    const QString path = request.first;
    const int side = request.second;
    m_imageWorkerBusy = true;
    Job::pool().start([self = QPointer<DuplicatesModel>(this), path, side] {
        QImage image;
        try {
            if (!Job::quittingFlag()->load(std::memory_order_relaxed)) {
                PhotoFile photo(path);
                image = photo.decode(side);
            }
        } catch (const std::exception&) {
            image = QImage(); // a picture that cannot be shown, like any other
        }
        QMetaObject::invokeMethod(
            qApp,
            [self, path, side, image] {
                if (!self)
                    return;
                self->m_imageWorkerBusy = false;
                if (!image.isNull())
                    self->m_images.insert({path, side}, new QImage(image),
                                          int(std::max<qsizetype>(1, image.sizeInBytes() / 1024)));
                Q_EMIT self->imageReady(path, side, image);
                self->takeNextImage();
            },
            Qt::QueuedConnection);
    });
}

} // namespace nuvrel
