#include "app/ExplorePage.h"

#include "app/BackupsView.h"
#include "app/ExplorerView.h"
#include "backup/ExplorerModel.h"
#include "core/BackupsModel.h"

#include <QListWidget>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace nuvrel {

ExplorePage::ExplorePage(BackupsModel& backups, SecretStore& secrets, Workspace& workspace, QWidget* parent)
    : QWidget(parent)
    , m_backups(backups)
    , m_secrets(secrets)
    , m_workspace(workspace)
    , m_stack(new QStackedWidget(this))
    , m_backupsView(new BackupsView(backups, workspace, this))
{
    m_stack->addWidget(m_backupsView);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_stack);
    connect(m_backupsView, &BackupsView::backupChosen, this, &ExplorePage::open);
}

ExplorePage::~ExplorePage()
{
    // The view binds to the model: it goes first.
    delete m_explorerView;
}

void ExplorePage::retranslate()
{
    m_backupsView->retranslate();
    if (m_explorerView)
        m_explorerView->retranslate();
}

void ExplorePage::open(const PhoneBackup& backup)
{
    closeExplorer();
    m_explorer = std::make_unique<ExplorerModel>(backup, ExplorerModel::Services{m_secrets, m_workspace});
    m_explorerView = new ExplorerView(*m_explorer, this);
    connect(m_explorerView, &ExplorerView::backRequested, this, &ExplorePage::closeExplorer, Qt::QueuedConnection);
    m_stack->addWidget(m_explorerView);
    m_stack->setCurrentWidget(m_explorerView);
    m_explorer->start();
    m_explorerView->setFocus();
}

void ExplorePage::closeExplorer()
{
    if (!m_explorerView)
        return;
    m_stack->setCurrentWidget(m_backupsView);
    delete m_explorerView;
    m_explorerView = nullptr;
    // Waits for a running task to stop and deletes the backup's temporary copies.
    m_explorer.reset();
    m_backupsView->list()->setFocus();
}

} // namespace nuvrel
