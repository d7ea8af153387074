#pragma once

#include "platform/Services.h"
#include "sessions/conversations/ConversationFiles.h"

#include <QAbstractListModel>

#include <functional>

namespace nuvrel {

class Job;

/// « Mes conversations enregistrées »: the PDFs of the conversations folder, newest first, each with
/// its state as `verify` finds it (intact, changed since it was made, side file missing or unreadable),
/// checked off the GUI thread. A PDF is opened, shown in the file manager, or moved to the trash with
/// its side file.
class SavedConversations final : public QAbstractListModel
{
    Q_OBJECT
    Q_PROPERTY(bool scanning READ isScanning NOTIFY scanningChanged)

public:
    static constexpr int PathRole = Qt::UserRole + 1;
    static constexpr int StateRole = Qt::UserRole + 2;

    SavedConversations(Services services, QString folder, QObject* parent = nullptr);

    void setFolder(const QString& folder);
    QString folder() const { return m_folder; }
    const QList<ConversationFiles::Saved>& items() const { return m_items; }
    bool isScanning() const { return m_scanning; }

    /// Reads the folder again; a refresh asked during one runs after it.
    Q_INVOKABLE void refresh();
    Q_INVOKABLE void open(int row);
    Q_INVOKABLE void reveal(int row);
    /// The PDF and its side file go to the trash; nothing is deleted.
    Q_INVOKABLE void moveToTrash(int row);

    static QString stateText(ConversationPDF::Verification state);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

Q_SIGNALS:
    void scanningChanged();
    /// A failure to tell the user, worded in the language in force when it is shown.
    void failed(const std::function<QString()>& text);

private:
    Services m_services;
    QString m_folder;
    Job* m_job;
    bool m_scanning = false;
    bool m_again = false;
    QList<ConversationFiles::Saved> m_items;
};

} // namespace nuvrel
