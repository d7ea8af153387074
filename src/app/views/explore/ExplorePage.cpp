#include "app/views/explore/ExplorePage.h"

#include "app/views/explore/BackupsView.h"
#include "app/views/explore/ExplorerView.h"
#include "models/backups/BackupsModel.h"
#include "models/explorer/ExplorerModel.h"

#include <QListWidget>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace nuvrel {

ExplorePage::ExplorePage(BackupsModel& backups, Services services, QWidget* parent)
    : QWidget(parent)
    , m_backups(backups)
    , m_services(services)
    , m_stack(new QStackedWidget(this))
    , m_backupsView(new BackupsView(backups, services.workspace, this))
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
    m_backupsView->showNotice({});
    m_explorer = std::make_unique<ExplorerModel>(backup, m_services);
    m_explorerView = new ExplorerView(*m_explorer, this);
    connect(m_explorerView, &ExplorerView::backRequested, this, &ExplorePage::closeExplorer, Qt::QueuedConnection);
    m_stack->addWidget(m_explorerView);
    m_stack->setCurrentWidget(m_explorerView);
    m_explorer->start();
    m_explorerView->placeFocus();
}

void ExplorePage::closeExplorer()
{
    if (!m_explorerView)
        return;
    m_stack->setCurrentWidget(m_backupsView);
    // Nothing is asked: the work stops, and the list says what was stopped.
    m_backupsView->showNotice(m_explorer->interruptionNotice());
    delete m_explorerView;
    m_explorerView = nullptr;
    // Returns at once: running work is cancelled and let go; the temporary copies go with it.
    m_explorer.reset();
    m_backupsView->list()->setFocus();
}

} // namespace nuvrel
