#include "models/explorer/PhotoRoll.h"

#include "engines/backup/IPhoneBackupReader.h"
#include "l10n/L.h"
#include "media/Thumbnailer.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QThread>

#include <algorithm>

namespace nuvrel {

namespace {

// A photo larger than this is not read into memory for its thumbnail; an encrypted video larger than
// this is not decrypted for a frame. The grid shows a tile instead.
constexpr qint64 maxPhotoBytes = 128LL * 1024 * 1024;
constexpr qint64 maxDecryptedVideoBytes = 300LL * 1024 * 1024;
constexpr int maxThumbnailQueue = 400;

QImage decodeThumbnail(const IPhoneBackupReader& reader, const BackupPhoto& photo, const std::atomic<bool>* cancel)
{
    if (cancel->load(std::memory_order_relaxed))
        return {};
    try {
        if (!photo.isVideo)
            return Thumbnailer::image(reader.contents(photo.entry, maxPhotoBytes), PhotoRoll::thumbnailSide);
        if (Thumbnailer::ffmpegPath().isEmpty())
            return {};
        if (!reader.isEncrypted()) {
            const std::optional<QString> stored = reader.storedURL(photo.entry.fileID);
            return stored ? Thumbnailer::videoFrame(*stored, PhotoRoll::thumbnailSide, cancel) : QImage();
        }
        // ffmpeg needs a file: a plain copy of this task's own, gone right after.
        if (photo.size > maxDecryptedVideoBytes)
            return {};
        const QString copy = reader.extract(photo.entry,
                                            QDir(reader.tempDir())
                                                .filePath(QStringLiteral("thumbs/") + photo.entry.fileID + u'.' +
                                                          QFileInfo(photo.entry.fileName()).suffix()),
                                            cancel);
        QImage frame = Thumbnailer::videoFrame(copy, PhotoRoll::thumbnailSide, cancel);
        QFile::remove(copy);
        return frame;
    } catch (const std::exception&) {
        return {};
    }
}

} // namespace

PhotoRoll::PhotoRoll(QObject* parent)
    : QAbstractListModel(parent)
    , m_threads(std::clamp(QThread::idealThreadCount(), 2, 4))
{
    m_thumbs.setMaxCost(defaultThumbnailCacheBytes);
}

PhotoRoll::~PhotoRoll()
{
    m_cancel.cancel();
    // This share of the reader may be the last: its temporary folder then goes on a worker.
    if (m_reader)
        Job::pool().start([reader = std::move(m_reader)]() mutable { reader.reset(); });
}

void PhotoRoll::setContents(QList<BackupPhoto> photos, std::shared_ptr<const IPhoneBackupReader> reader)
{
    beginResetModel();
    m_photos = std::move(photos);
    m_reader = std::move(reader);
    m_indexByID.clear();
    m_indexByID.reserve(m_photos.size());
    for (int i = 0; i < m_photos.size(); ++i)
        m_indexByID.insert(m_photos.at(i).entry.fileID, i);
    m_selected.clear();
    m_shownPhotos = page;
    endResetModel();
    Q_EMIT selectedChanged();
    Q_EMIT shownPhotosChanged();
}

QList<BackupPhoto> PhotoRoll::selectedPhotos() const
{
    QList<BackupPhoto> chosen;
    for (const BackupPhoto& photo : m_photos) {
        if (m_selected.contains(photo.entry.fileID))
            chosen.append(photo);
    }
    return chosen;
}

void PhotoRoll::toggleSelected(const QString& fileID)
{
    const auto found = m_indexByID.constFind(fileID);
    if (found == m_indexByID.constEnd())
        return;
    if (!m_selected.remove(fileID))
        m_selected.insert(fileID);
    if (*found < rowCount())
        Q_EMIT dataChanged(index(*found), index(*found), {SelectedRole, Qt::AccessibleTextRole});
    Q_EMIT selectedChanged();
}

void PhotoRoll::clearSelection()
{
    if (m_selected.isEmpty())
        return;
    m_selected.clear();
    if (rowCount() > 0)
        Q_EMIT dataChanged(index(0), index(rowCount() - 1), {SelectedRole, Qt::AccessibleTextRole});
    Q_EMIT selectedChanged();
}

void PhotoRoll::showMore()
{
    if (m_shownPhotos >= m_photos.size())
        return;
    const int before = rowCount();
    m_shownPhotos = int(std::min<qsizetype>(m_shownPhotos + page, m_photos.size()));
    beginInsertRows({}, before, rowCount() - 1);
    endInsertRows();
    Q_EMIT shownPhotosChanged();
}

QString PhotoRoll::header() const
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
    const qsizetype stills = m_photos.size() - videos;
    return L("%@ · %@ · %@. Clique sur les photos à extraire.", LN("%@ photo(s)", stills, locale.toString(stills)),
             LN("%@ vidéo(s)", videos, locale.toString(videos)), Localizer::formatByteCount(bytes));
}

int PhotoRoll::rowCount(const QModelIndex& parent) const
{
    if (parent.isValid())
        return 0;
    return int(std::min<qsizetype>(m_shownPhotos, m_photos.size()));
}

QVariant PhotoRoll::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const BackupPhoto& photo = m_photos.at(index.row());
    switch (role) {
    case FileIDRole: return photo.entry.fileID;
    case IsVideoRole: return photo.isVideo;
    case SelectedRole: return m_selected.contains(photo.entry.fileID);
    // Asking starts the decoding: a request, not a change of what the model holds.
    case ThumbnailRole: return const_cast<PhotoRoll*>(this)->thumbnail(photo.entry.fileID);
    case ThumbnailFailedRole: return m_thumbFailed.contains(photo.entry.fileID);
    case Qt::DisplayRole:
    case Qt::ToolTipRole:
    case Qt::AccessibleTextRole: {
        QString text = photo.entry.fileName();
        if (photo.date)
            text += QStringLiteral(", ") + Localizer::formatDateTime(*photo.date);
        if (role == Qt::AccessibleTextRole && m_selected.contains(photo.entry.fileID))
            text += QStringLiteral(", ") + L("choisie");
        return text;
    }
    default: return {};
    }
}

QImage PhotoRoll::thumbnail(const QString& fileID)
{
    if (const QImage* cached = m_thumbs.object(fileID))
        return *cached;
    if (m_thumbFailed.contains(fileID) || !m_reader || !m_indexByID.contains(fileID))
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

void PhotoRoll::pumpThumbnails()
{
    while (!m_thumbQueue.empty() && m_thumbInFlight.size() < m_threads) {
        const QString fileID = m_thumbQueue.back();
        m_thumbQueue.pop_back();
        const BackupPhoto photo = m_photos.at(m_indexByID.value(fileID));
        m_thumbInFlight.insert(fileID);
        // Decoded beside the page's job; the result is dropped if the roll is gone by then.
        Job::pool().start([roll = QPointer<PhotoRoll>(this), reader = m_reader, photo, token = m_cancel, fileID] {
            QImage image = decodeThumbnail(*reader, photo, token.flag());
            QMetaObject::invokeMethod(
                QCoreApplication::instance(),
                [roll, fileID, image = std::move(image)] {
                    if (!roll)
                        return;
                    roll->m_thumbInFlight.remove(fileID);
                    ++roll->m_thumbsDecoded;
                    if (image.isNull())
                        roll->m_thumbFailed.insert(fileID);
                    else
                        roll->m_thumbs.insert(fileID, new QImage(image), image.sizeInBytes());
                    const int row = roll->m_indexByID.value(fileID, -1);
                    if (row >= 0 && row < roll->rowCount())
                        Q_EMIT roll->dataChanged(roll->index(row), roll->index(row),
                                                 {ThumbnailRole, ThumbnailFailedRole});
                    Q_EMIT roll->thumbnailReady(fileID);
                    roll->pumpThumbnails();
                },
                Qt::QueuedConnection);
        });
    }
}

} // namespace nuvrel
