#pragma once

#include "engines/backup/PhoneBackup.h"
#include "platform/Services.h"

#include <QWidget>

#include <memory>

class QStackedWidget;

namespace nuvrel {

class BackupsModel;
class BackupsView;
class ExplorerModel;
class ExplorerView;

/// The "explore" page: the backups list, and the explorer of the backup chosen in it. The explorer and
/// its model live until the user goes back to the list, so switching pages keeps a running extraction.
class ExplorePage final : public QWidget
{
    Q_OBJECT

public:
    ExplorePage(BackupsModel& backups, Services services, QWidget* parent = nullptr);
    ~ExplorePage() override;

    void retranslate();
    void open(const PhoneBackup& backup);
    void closeExplorer();

    BackupsView* backupsView() const { return m_backupsView; }
    ExplorerView* explorerView() const { return m_explorerView; }

private:
    BackupsModel& m_backups;
    Services m_services;
    QStackedWidget* m_stack;
    BackupsView* m_backupsView;
    std::unique_ptr<ExplorerModel> m_explorer;
    ExplorerView* m_explorerView = nullptr;
};

} // namespace nuvrel
