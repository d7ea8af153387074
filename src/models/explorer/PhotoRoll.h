#pragma once

#include "engines/backup/BackupCatalogue.h"
#include "ground/Job.h"

#include <QAbstractListModel>
#include <QCache>
#include <QHash>
#include <QImage>
#include <QSet>

#include <deque>
#include <memory>

namespace nuvrel {

class IPhoneBackupReader;

/// The camera roll of a backup: its photos and videos, newest first, the first `shownPhotos` of them as
/// rows, the user's selection, and thumbnails decoded on the application's pool (never on the GUI
/// thread), the newest request first, kept in a cache bounded in bytes.
class PhotoRoll final : public QAbstractListModel
{
    Q_OBJECT
    Q_PROPERTY(int shownPhotos READ shownPhotos NOTIFY shownPhotosChanged)
    Q_PROPERTY(QSet<QString> selected READ selected NOTIFY selectedChanged)

public:
    static constexpr int page = 600;
    static constexpr int thumbnailSide = 256;
    static constexpr qint64 defaultThumbnailCacheBytes = 96LL * 1024 * 1024;

    static constexpr int FileIDRole = Qt::UserRole + 1;
    static constexpr int IsVideoRole = Qt::UserRole + 2;
    static constexpr int SelectedRole = Qt::UserRole + 3;
    /// The thumbnail if it is ready; asking starts its decoding, and the row changes when it is done.
    static constexpr int ThumbnailRole = Qt::DecorationRole;
    static constexpr int ThumbnailFailedRole = Qt::UserRole + 4;

    explicit PhotoRoll(QObject* parent = nullptr);
    /// Returns at once: decoding under way is cancelled and let go.
    ~PhotoRoll() override;

    void setContents(QList<BackupPhoto> photos, std::shared_ptr<const IPhoneBackupReader> reader);

    const QList<BackupPhoto>& photos() const { return m_photos; }
    int shownPhotos() const { return m_shownPhotos; }
    const QSet<QString>& selected() const { return m_selected; }
    /// The selected photos, in the roll's order.
    QList<BackupPhoto> selectedPhotos() const;

    void toggleSelected(const QString& fileID);
    void clearSelection();
    /// Shows `page` more photos.
    void showMore();
    /// The grid's header line, or the explanation when the backup holds no photo.
    QString header() const;

    /// The cached picture, or a null image after asking for it; thumbnailReady tells when to look again.
    /// A photo that cannot be decoded stays null and thumbnailFailed() says so.
    QImage thumbnail(const QString& fileID);
    bool thumbnailFailed(const QString& fileID) const { return m_thumbFailed.contains(fileID); }
    qint64 thumbnailCacheBytes() const { return m_thumbs.totalCost(); }
    qint64 thumbnailCacheLimit() const { return m_thumbs.maxCost(); }
    void setThumbnailCacheLimit(qint64 bytes) { m_thumbs.setMaxCost(bytes); }
    int thumbnailsDecoded() const { return m_thumbsDecoded; }

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

Q_SIGNALS:
    void shownPhotosChanged();
    void selectedChanged();
    void thumbnailReady(const QString& fileID);

private:
    void pumpThumbnails();

    QList<BackupPhoto> m_photos;
    QHash<QString, int> m_indexByID;
    std::shared_ptr<const IPhoneBackupReader> m_reader;
    int m_shownPhotos = page;
    QSet<QString> m_selected;

    CancelToken m_cancel;
    int m_threads;
    QCache<QString, QImage> m_thumbs;
    QSet<QString> m_thumbFailed;
    QSet<QString> m_thumbInFlight;
    std::deque<QString> m_thumbQueue; ///< newest request at the back
    int m_thumbsDecoded = 0;
};

} // namespace nuvrel
