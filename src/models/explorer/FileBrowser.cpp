#include "models/explorer/FileBrowser.h"

#include "ground/ListRoles.h"
#include "l10n/L.h"

namespace nuvrel {

FileBrowser::FileBrowser(QObject* parent)
    : QAbstractListModel(parent)
{}

void FileBrowser::setContents(QHash<QString, QList<BackupEntry>> byDomain, QList<DomainRow> domains)
{
    beginResetModel();
    m_byDomain = std::move(byDomain);
    m_domains = std::move(domains);
    m_domain.clear();
    m_folder.clear();
    m_items.clear();
    endResetModel();
    Q_EMIT placeChanged();
}

void FileBrowser::openDomain(const QString& domain)
{
    if (!m_byDomain.contains(domain))
        return;
    m_domain = domain;
    m_folder.clear();
    refresh();
}

void FileBrowser::openFolder(const QString& name)
{
    if (m_domain.isEmpty() || name.isEmpty())
        return;
    m_folder.append(name);
    refresh();
}

void FileBrowser::goUp(int depth)
{
    if (depth < 0) {
        m_domain.clear();
        m_folder.clear();
    } else if (depth < m_folder.size()) {
        m_folder.resize(depth);
    }
    refresh();
}

bool FileBrowser::openRow(int row)
{
    if (row < 0 || row >= rowCount())
        return false;
    if (m_domain.isEmpty()) {
        openDomain(m_domains.at(row).domain);
        return true;
    }
    const FolderItem& item = m_items.at(row);
    if (!item.isFolder)
        return false;
    openFolder(item.name);
    return true;
}

void FileBrowser::refresh()
{
    beginResetModel();
    m_items = m_domain.isEmpty() ? QList<FolderItem>() : BackupCatalogue::listing(m_byDomain.value(m_domain), m_folder);
    endResetModel();
    Q_EMIT placeChanged();
}

int FileBrowser::rowCount(const QModelIndex& parent) const
{
    if (parent.isValid())
        return 0;
    return int(m_domain.isEmpty() ? m_domains.size() : m_items.size());
}

QVariant FileBrowser::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const QLocale locale = Localizer::locale();
    if (m_domain.isEmpty()) {
        const DomainRow& row = m_domains.at(index.row());
        switch (role) {
        // Titled now, not when the backup was opened: the language may have changed since.
        case Qt::DisplayRole:
        case Qt::AccessibleTextRole: return BackupCatalogue::friendly(row.domain);
        case ListRole::Detail: return LN("%@ fichier(s)", row.count, locale.toString(row.count));
        case ListRole::IconName: return QStringLiteral("folder");
        case IsFolderRole: return true;
        case KeyRole: return row.domain;
        default: return {};
        }
    }
    const FolderItem& item = m_items.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole: return item.name;
    case ListRole::Detail:
        return item.isFolder ? QString(LN("%@ fichier(s)", item.count, locale.toString(item.count)) +
                                       QStringLiteral(" · ") + Localizer::formatByteCount(item.size))
                             : Localizer::formatByteCount(item.size);
    case ListRole::IconName: return item.isFolder ? QStringLiteral("folder") : QStringLiteral("file");
    case IsFolderRole: return item.isFolder;
    case KeyRole: return item.name;
    case EntryRole: return item.entry ? QVariant::fromValue(*item.entry) : QVariant();
    default: return {};
    }
}

} // namespace nuvrel
