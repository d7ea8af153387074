#include "app/views/explore/BackupsView.h"

#include "app/shell/Icons.h"
#include "app/widgets/IconLabel.h"
#include "app/widgets/Layouts.h"
#include "app/widgets/ShownText.h"
#include "app/widgets/TwoLineDelegate.h"
#include "l10n/L.h"
#include "models/backups/BackupsModel.h"
#include "platform/Workspace.h"

#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace nuvrel {

namespace {
enum State { ScanningState, MessageState, FoundState };
}

BackupsView::BackupsView(BackupsModel& model, Workspace& workspace, QWidget* parent)
    : QWidget(parent)
    , m_model(model)
    , m_workspace(workspace)
    , m_title(new QLabel(this))
    , m_refresh(new QPushButton(this))
    , m_states(new QStackedWidget(this))
    , m_scanning(new QLabel(this))
    , m_stateIcon(new IconLabel(QStringLiteral("phone"), 40, this))
    , m_explanation(new QLabel(this))
    , m_messageRoot(new QLabel(this))
    , m_openSettings(new QPushButton(this))
    , m_chooseRoot(new QPushButton(this))
    , m_intro(new QLabel(this))
    , m_list(new QListWidget(this))
    , m_root(new QLabel(this))
{
    m_title->setObjectName(QStringLiteral("pageTitle"));
    m_refresh->setIcon(Icons::icon(QStringLiteral("refresh")));

    auto* header = new QHBoxLayout;
    header->addWidget(m_title, 1);
    header->addWidget(m_refresh);

    // Scanning
    m_scanning->setObjectName(QStringLiteral("muted"));
    m_scanning->setAlignment(Qt::AlignCenter);

    // Nothing to show, or no permission to look: a card with what to do.
    auto* message = new QWidget(this);
    auto* card = new QFrame(message);
    card->setObjectName(QStringLiteral("card"));
    card->setFixedWidth(560);
    m_explanation->setWordWrap(true);
    m_explanation->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_messageRoot->setObjectName(QStringLiteral("muted"));
    m_messageRoot->setWordWrap(true);
    m_messageRoot->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_openSettings->setObjectName(QStringLiteral("primary"));
    m_chooseRoot->setIcon(Icons::icon(QStringLiteral("folder")));
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(m_chooseRoot);
    buttons->addWidget(m_openSettings);
    auto* cardLayout = new QVBoxLayout(card);
    cardLayout->setContentsMargins(24, 22, 24, 22);
    cardLayout->setSpacing(12);
    cardLayout->addWidget(m_stateIcon);
    cardLayout->addWidget(m_explanation);
    cardLayout->addWidget(m_messageRoot);
    cardLayout->addSpacing(4);
    cardLayout->addLayout(buttons);
    auto* messageLayout = new QVBoxLayout(message);
    messageLayout->setContentsMargins(0, 24, 0, 0);
    messageLayout->addLayout(centredRow(card));
    messageLayout->addStretch(1);

    // The list
    auto* found = new QWidget(this);
    auto* foundLayout = new QVBoxLayout(found);
    foundLayout->setContentsMargins(0, 0, 0, 0);
    m_intro->setWordWrap(true);
    m_list->setItemDelegate(new TwoLineDelegate(m_list));
    m_list->setIconSize(QSize(28, 28));
    m_list->setUniformItemSizes(true);
    m_list->setProperty("rowsAreActions", true);
    m_root->setObjectName(QStringLiteral("muted"));
    m_root->setTextInteractionFlags(Qt::TextSelectableByMouse);
    foundLayout->addWidget(m_intro);
    foundLayout->addWidget(m_list, 1);
    foundLayout->addWidget(m_root);

    m_states->insertWidget(ScanningState, m_scanning);
    m_states->insertWidget(MessageState, message);
    m_states->insertWidget(FoundState, found);

    m_notice = new QLabel(this);
    m_notice->setObjectName(QStringLiteral("notice"));
    m_notice->setWordWrap(true);
    m_notice->hide();

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 24, 28, 20);
    layout->setSpacing(14);
    layout->addLayout(header);
    layout->addWidget(m_notice);
    layout->addWidget(m_states, 1);

    connect(m_refresh, &QPushButton::clicked, &m_model, &BackupsModel::refresh);
    connect(m_chooseRoot, &QPushButton::clicked, this, &BackupsView::chooseRoot);
    connect(m_openSettings, &QPushButton::clicked, this,
            [this] { m_workspace.openUrl(QUrl(BackupsModel::fullDiskAccessSettingsUrl())); });
    connect(m_list, &QListWidget::itemActivated, this, [this](QListWidgetItem* item) {
        const int row = m_list->row(item);
        if (row >= 0 && row < m_model.backups().size())
            Q_EMIT backupChosen(m_model.backups().at(row));
    });
    connect(&m_model, &BackupsModel::stateChanged, this, &BackupsView::render);
    connect(&m_model, &BackupsModel::scanningChanged, this, &BackupsView::render);

    retranslate();
}

void BackupsView::chooseRoot()
{
    const QString folder =
        QFileDialog::getExistingDirectory(this, L("Choisir le dossier des sauvegardes…"), m_model.root());
    if (!folder.isEmpty())
        m_model.chooseRoot(folder);
}

void BackupsView::showNotice(const QString& text)
{
    m_notice->setText(text);
    m_notice->setVisible(!text.isEmpty());
}

void BackupsView::retranslate()
{
    m_title->setText(L("Explorer les sauvegardes"));
    m_refresh->setText(shownText(L("Actualiser")));
    m_refresh->setAccessibleName(L("Actualiser"));
    m_scanning->setText(L("Recherche des sauvegardes…"));
    m_openSettings->setText(shownText(L("Ouvrir les réglages")));
    m_chooseRoot->setText(shownText(L("Choisir le dossier des sauvegardes…")));
    m_intro->setText(L("Les sauvegardes de ton iPhone faites avec le Finder sur ce Mac. Clique sur une sauvegarde pour "
                       "retrouver tes photos et tes fichiers. Rien n'est modifié."));
    m_list->setAccessibleName(L("Explorer les sauvegardes"));
    render();
}

void BackupsView::render()
{
    m_refresh->setEnabled(!m_model.isScanning());
    const bool settingsPage = !BackupsModel::fullDiskAccessSettingsUrl().isEmpty();
    m_root->setText(L("Dossier des sauvegardes : %@", m_model.root()));
    m_messageRoot->setText(m_root->text());
    switch (m_model.state()) {
    case BackupsModel::State::Scanning: m_states->setCurrentIndex(ScanningState); return;
    case BackupsModel::State::NeedsFullDiskAccess:
        m_stateIcon->setIconName(QStringLiteral("warning"));
        m_explanation->setText(L("Pour lire tes sauvegardes, macOS demande ton accord : Réglages Système > "
                                 "Confidentialité et sécurité > Accès complet au disque, puis active Nuvrel. Ferme et "
                                 "rouvre Nuvrel, puis reviens ici."));
        m_openSettings->setVisible(settingsPage);
        m_chooseRoot->setVisible(!settingsPage);
        m_states->setCurrentIndex(MessageState);
        return;
    case BackupsModel::State::Empty:
        m_stateIcon->setIconName(QStringLiteral("phone"));
        m_explanation->setText(L("Branche ton iPhone, ouvre-le dans le Finder et choisis « Sauvegarder maintenant ». "
                                 "Elle apparaîtra ici."));
        m_openSettings->setVisible(false);
        m_chooseRoot->setVisible(true);
        m_states->setCurrentIndex(MessageState);
        return;
    case BackupsModel::State::Found: break;
    }
    const int current = m_list->currentRow();
    m_list->clear();
    for (const PhoneBackup& backup : m_model.backups()) {
        auto* item = new QListWidgetItem(Icons::icon(QStringLiteral("phone")), backup.deviceName, m_list);
        QString detail = BackupsModel::detailLine(backup);
        if (backup.isEncrypted)
            detail = detail.isEmpty() ? L("Chiffrée") : detail + QStringLiteral(" · ") + L("Chiffrée");
        item->setData(TwoLineDelegate::DetailRole, detail);
        item->setData(Qt::AccessibleTextRole, backup.deviceName);
        item->setData(Qt::AccessibleDescriptionRole, detail);
    }
    m_list->setCurrentRow(std::clamp(current, 0, int(m_list->count()) - 1));
    m_states->setCurrentIndex(FoundState);
}

} // namespace nuvrel
