#pragma once

#include "engines/backup/BackupCatalogue.h"

#include <QAbstractListModel>
#include <QHash>
#include <QStringList>

namespace nuvrel {

/// The "all files" tab: the backup's domains, ranked; inside one, the listing of the current folder,
/// folders first. As a list model, its rows are what the tab shows now.
class FileBrowser final : public QAbstractListModel
{
    Q_OBJECT
    Q_PROPERTY(QString domain READ domain NOTIFY placeChanged)
    Q_PROPERTY(QStringList folder READ folder NOTIFY placeChanged)

public:
    static constexpr int EntryRole = Qt::UserRole + 1;    ///< the BackupEntry of a file row
    static constexpr int IsFolderRole = Qt::UserRole + 2; ///< a folder or a domain: opened, not extracted
    static constexpr int KeyRole = Qt::UserRole + 3;      ///< the domain, or the folder's or file's name

    explicit FileBrowser(QObject* parent = nullptr);

    void setContents(QHash<QString, QList<BackupEntry>> byDomain, QList<DomainRow> domains);

    const QList<DomainRow>& domains() const { return m_domains; }
    const QHash<QString, QList<BackupEntry>>& byDomain() const { return m_byDomain; }
    /// Empty at the list of domains.
    QString domain() const { return m_domain; }
    const QStringList& folder() const { return m_folder; }
    const QList<FolderItem>& items() const { return m_items; }

    void openDomain(const QString& domain);
    void openFolder(const QString& name);
    /// Cuts the folder path back to `depth` components; a negative depth leaves the domain.
    void goUp(int depth);
    /// Opens what a row shows: a domain or a folder. False for a file row.
    bool openRow(int row);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

Q_SIGNALS:
    void placeChanged();

private:
    void refresh();

    QHash<QString, QList<BackupEntry>> m_byDomain;
    QList<DomainRow> m_domains;
    QString m_domain;
    QStringList m_folder;
    QList<FolderItem> m_items;
};

} // namespace nuvrel
