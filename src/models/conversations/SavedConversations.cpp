#include "models/conversations/SavedConversations.h"

#include "ground/Job.h"
#include "ground/ListRoles.h"
#include "l10n/L.h"
#include "platform/Trash.h"
#include "platform/Workspace.h"

#include <QDir>
#include <QFileInfo>

namespace nuvrel {

SavedConversations::SavedConversations(Services services, QString folder, QObject* parent)
    : QAbstractListModel(parent)
    , m_services(services)
    , m_folder(std::move(folder))
    , m_job(new Job(this))
{}

void SavedConversations::setFolder(const QString& folder)
{
    m_folder = folder;
    refresh();
}

void SavedConversations::refresh()
{
    if (m_job->isRunning()) {
        m_again = true;
        return;
    }
    m_scanning = true;
    Q_EMIT scanningChanged();
    m_job->start([folder = m_folder](JobContext&) { return ConversationFiles::savedIn(folder); },
                 [this](QList<ConversationFiles::Saved> items) {
                     beginResetModel();
                     m_items = std::move(items);
                     endResetModel();
                     m_scanning = false;
                     Q_EMIT scanningChanged();
                     if (std::exchange(m_again, false))
                         refresh();
                 });
}

void SavedConversations::open(int row)
{
    if (row >= 0 && row < m_items.size() && !m_services.workspace.open(m_items[row].pdf))
        Q_EMIT failed([name = QFileInfo(m_items[row].pdf).fileName()] {
            return L("Aucune application n'a pu ouvrir « %@ ».", name);
        });
}

void SavedConversations::reveal(int row)
{
    if (row >= 0 && row < m_items.size())
        m_services.workspace.reveal(m_items[row].pdf);
}

void SavedConversations::moveToTrash(int row)
{
    if (row < 0 || row >= m_items.size())
        return;
    const QString pdf = m_items[row].pdf;
    const QString side = ConversationPDF::sideFilePath(pdf);
    if (!m_services.trash.moveToTrash(pdf)) {
        Q_EMIT failed([name = QFileInfo(pdf).fileName()] {
            return L("Impossible de mettre « %@ » à la corbeille : il est resté à sa place.", name);
        });
    } else if (QFileInfo::exists(side) && !m_services.trash.moveToTrash(side)) {
        Q_EMIT failed([name = QFileInfo(side).fileName()] {
            return L("Le PDF est à la corbeille, mais pas son fichier d'empreinte « %@ », resté à sa place.", name);
        });
    }
    refresh();
}

QString SavedConversations::stateText(ConversationPDF::Verification state)
{
    switch (state) {
    case ConversationPDF::Verification::Intact: return L("Intact");
    case ConversationPDF::Verification::Modified: return L("Modifié depuis sa création");
    case ConversationPDF::Verification::NoSideFile: return L("Fichier d'empreinte manquant");
    case ConversationPDF::Verification::SideFileUnreadable: return L("Fichier d'empreinte illisible");
    case ConversationPDF::Verification::PdfUnreadable: return L("Illisible");
    }
    return {};
}

int SavedConversations::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_items.size());
}

QVariant SavedConversations::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const ConversationFiles::Saved& item = m_items.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole: return item.title;
    case ListRole::Detail:
        return QStringList{Localizer::formatDateTime(item.made), Localizer::formatByteCount(item.size),
                           stateText(item.state)}
            .join(QStringLiteral(" · "));
    case ListRole::IconName:
        return item.state == ConversationPDF::Verification::Intact ? QStringLiteral("pdf") : QStringLiteral("warning");
    case PathRole: return item.pdf;
    case StateRole: return int(item.state);
    default: return {};
    }
}

} // namespace nuvrel
