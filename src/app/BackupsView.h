#pragma once

#include "core/PhoneBackup.h"

#include <QWidget>

class QLabel;
class QListWidget;
class QPushButton;
class QStackedWidget;

namespace nuvrel {

class BackupsModel;
class Workspace;

/// The list of the computer's phone backups, or why there is none to show.
class BackupsView final : public QWidget
{
    Q_OBJECT

public:
    BackupsView(BackupsModel& model, Workspace& workspace, QWidget* parent = nullptr);

    void retranslate();
    QListWidget* list() const { return m_list; }

Q_SIGNALS:
    void backupChosen(const nuvrel::PhoneBackup& backup);

private:
    void render();
    void chooseRoot();

    BackupsModel& m_model;
    Workspace& m_workspace;
    QLabel* m_title;
    QPushButton* m_refresh;
    QStackedWidget* m_states;
    QLabel* m_scanning;
    QLabel* m_stateIcon;
    QLabel* m_explanation;
    QLabel* m_messageRoot;
    QPushButton* m_openSettings;
    QPushButton* m_chooseRoot;
    QLabel* m_intro;
    QListWidget* m_list;
    QLabel* m_root;
};

} // namespace nuvrel
