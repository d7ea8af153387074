#pragma once

#include "engines/backup/PhoneBackup.h"

#include <QWidget>

class QLabel;
class QListWidget;
class QPushButton;
class QStackedWidget;

namespace nuvrel {

class IconLabel;

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
    /// A line above the list, until the next backup is opened: what was stopped on leaving an explorer.
    void showNotice(const QString& text);
    QLabel* notice() const { return m_notice; }

Q_SIGNALS:
    void backupChosen(const nuvrel::PhoneBackup& backup);

private:
    void render();
    void chooseRoot();

    BackupsModel& m_model;
    Workspace& m_workspace;
    QLabel* m_title;
    QLabel* m_notice;
    QPushButton* m_refresh;
    QStackedWidget* m_states;
    QLabel* m_scanning;
    IconLabel* m_stateIcon;
    QLabel* m_explanation;
    QLabel* m_messageRoot;
    QPushButton* m_openSettings;
    QPushButton* m_chooseRoot;
    QLabel* m_intro;
    QListWidget* m_list;
    QLabel* m_root;
};

} // namespace nuvrel
