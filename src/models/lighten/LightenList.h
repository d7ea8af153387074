#pragma once

#include "models/lighten/LightenItem.h"

#include <QAbstractListModel>
#include <QHash>
#include <QImage>
#include <QList>

namespace nuvrel {

/// The rows of the lighten page, in the order they were added. The display text is the file's name;
/// the other roles tell the rest.
class LightenList final : public QAbstractListModel
{
    Q_OBJECT

public:
    /// Qt::DecorationRole: the row's thumbnail (a QImage), once made.
    enum Role {
        PathRole = Qt::UserRole + 1,
        StateRole,    ///< a LightenItem::State, as an int
        RouteRole,    ///< a LightenRoute, as an int: which icon
        StatusRole,   ///< "En attente", "12,4 Mo → 1,8 Mo", the failure…
        ProgressRole, ///< 0 to 1 while a video is worked, else -1
        OutputRole,   ///< the lightened file, when done
    };

    explicit LightenList(QObject* parent = nullptr);

    const QList<LightenItem>& items() const { return m_items; }
    qsizetype indexOf(const QUuid& id) const;

    void append(QList<LightenItem> items);
    void remove(int row);
    void clear();
    /// Replaces the row of `item.id`, if it is still listed.
    void update(const LightenItem& item);
    /// Every row again, as after a change of language.
    void refresh();
    /// A small picture of a row's photo or video, shown in place of its kind's icon.
    void setThumbnail(const QUuid& id, const QImage& thumbnail);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QStringList mimeTypes() const override;
    /// The lightened files of the rows, as file URLs: a drag out of the list drops them in any
    /// application (a browser's WhatsApp Web, a mail being written, a file manager).
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    Qt::DropActions supportedDragActions() const override;

    /// "12,4 Mo → 1,8 Mo"
    static QString sizesText(qint64 before, qint64 after);

private:
    QList<LightenItem> m_items;
    QHash<QUuid, QImage> m_thumbnails;
};

} // namespace nuvrel
