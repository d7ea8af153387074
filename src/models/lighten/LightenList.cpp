#include "models/lighten/LightenList.h"

#include "l10n/L.h"

#include <QFileInfo>
#include <QMimeData>
#include <QUrl>

namespace nuvrel {

LightenList::LightenList(QObject* parent)
    : QAbstractListModel(parent)
{}

qsizetype LightenList::indexOf(const QUuid& id) const
{
    for (qsizetype i = 0; i < m_items.size(); ++i) {
        if (m_items[i].id == id)
            return i;
    }
    return -1;
}

void LightenList::append(QList<LightenItem> items)
{
    if (items.isEmpty())
        return;
    beginInsertRows({}, int(m_items.size()), int(m_items.size() + items.size() - 1));
    m_items.append(std::move(items));
    endInsertRows();
}

void LightenList::remove(int row)
{
    if (row < 0 || row >= m_items.size())
        return;
    beginRemoveRows({}, row, row);
    m_thumbnails.remove(m_items[row].id);
    m_items.removeAt(row);
    endRemoveRows();
}

void LightenList::clear()
{
    beginResetModel();
    m_items.clear();
    m_thumbnails.clear();
    endResetModel();
}

void LightenList::update(const LightenItem& item)
{
    const qsizetype row = indexOf(item.id);
    if (row < 0)
        return;
    m_items[row] = item;
    Q_EMIT dataChanged(index(int(row)), index(int(row)));
}

void LightenList::refresh()
{
    if (!m_items.isEmpty())
        Q_EMIT dataChanged(index(0), index(int(m_items.size() - 1)));
}

void LightenList::setThumbnail(const QUuid& id, const QImage& thumbnail)
{
    const qsizetype row = indexOf(id);
    if (row < 0 || thumbnail.isNull())
        return;
    m_thumbnails.insert(id, thumbnail);
    Q_EMIT dataChanged(index(int(row)), index(int(row)), {Qt::DecorationRole});
}

int LightenList::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_items.size());
}

QString LightenList::sizesText(qint64 before, qint64 after)
{
    return L("%@ → %@", Localizer::formatByteCount(before), Localizer::formatByteCount(after));
}

QVariant LightenList::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_items.size())
        return {};
    const LightenItem& item = m_items[index.row()];
    switch (role) {
    case Qt::DisplayRole: return QFileInfo(item.path).fileName();
    case Qt::DecorationRole:
        if (const auto found = m_thumbnails.constFind(item.id); found != m_thumbnails.cend())
            return *found;
        return {};
    case Qt::ToolTipRole:
    case PathRole: return item.path;
    case StateRole: return int(item.state);
    case RouteRole: return int(item.route);
    case ProgressRole: return item.progress;
    case OutputRole: return item.output;
    case StatusRole:
        switch (item.state) {
        case LightenItem::State::Waiting: return L("En attente · %@", Localizer::formatByteCount(item.size));
        case LightenItem::State::Working:
            return item.progress >= 0 ? L("Allègement… %@ %", int(item.progress * 100)) : L("Allègement…");
        case LightenItem::State::Done: return sizesText(item.sizeBefore, item.sizeAfter);
        case LightenItem::State::Failed: return item.failure ? item.failure() : QString();
        }
        return {};
    default: return {};
    }
}

QHash<int, QByteArray> LightenList::roleNames() const
{
    QHash<int, QByteArray> names = QAbstractListModel::roleNames();
    names.insert(PathRole, "path");
    names.insert(StateRole, "state");
    names.insert(RouteRole, "route");
    names.insert(StatusRole, "status");
    names.insert(ProgressRole, "progress");
    names.insert(OutputRole, "output");
    return names;
}

Qt::ItemFlags LightenList::flags(const QModelIndex& index) const
{
    Qt::ItemFlags flags = QAbstractListModel::flags(index);
    if (index.isValid() && index.row() < m_items.size() && m_items[index.row()].state == LightenItem::State::Done)
        flags |= Qt::ItemIsDragEnabled;
    return flags;
}

QStringList LightenList::mimeTypes() const
{
    return {QStringLiteral("text/uri-list")};
}

QMimeData* LightenList::mimeData(const QModelIndexList& indexes) const
{
    QList<QUrl> urls;
    for (const QModelIndex& index : indexes) {
        if (index.isValid() && index.row() < m_items.size() && m_items[index.row()].state == LightenItem::State::Done)
            urls.append(QUrl::fromLocalFile(m_items[index.row()].output));
    }
    if (urls.isEmpty())
        return nullptr;
    auto* data = new QMimeData;
    data->setUrls(urls);
    return data;
}

Qt::DropActions LightenList::supportedDragActions() const
{
    return Qt::CopyAction;
}

} // namespace nuvrel
