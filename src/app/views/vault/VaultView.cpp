#include "app/views/vault/VaultView.h"

#include "app/widgets/IconLabel.h"
#include "l10n/L.h"

#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QShowEvent>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace nuvrel {

namespace {

constexpr int IdRole = Qt::UserRole + 1;
enum Column { NameColumn, SizeColumn, AddedColumn };

QStringList localFiles(const QMimeData* data)
{
    QStringList files;
    if (!data || !data->hasUrls())
        return files;
    const QList<QUrl> urls = data->urls();
    for (const QUrl& url : urls) {
        if (url.isLocalFile())
            files.append(url.toLocalFile());
    }
    return files;
}

} // namespace

VaultView::VaultView(VaultModel& model, QWidget* parent)
    : QWidget(parent)
    , m_model(model)
    , m_pages(new QStackedWidget(this))
    , m_lockedTitle(new QLabel)
    , m_lockedText(new QLabel)
    , m_lockedNote(new QLabel)
    , m_unlock(new QPushButton)
    , m_unlockedTitle(new QLabel)
    , m_count(new QLabel)
    , m_unlockedText(new QLabel)
    , m_add(new QPushButton)
    , m_lock(new QPushButton)
    , m_list(new QTreeWidget)
    , m_dropHint(new QLabel)
    , m_open(new QPushButton)
    , m_restore(new QPushButton)
    , m_delete(new QPushButton)
    , m_progress(new QProgressBar)
    , m_progressText(new QLabel)
    , m_stop(new QPushButton)
    , m_message(new QLabel)
{
    setAcceptDrops(true);
    for (QLabel* title : {m_lockedTitle, m_unlockedTitle})
        title->setObjectName(QStringLiteral("pageTitle"));
    for (QLabel* text : {m_lockedText, m_lockedNote, m_unlockedText, m_dropHint, m_message}) {
        text->setWordWrap(true);
        text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    }
    m_lockedNote->setObjectName(QStringLiteral("muted"));
    m_unlockedText->setObjectName(QStringLiteral("muted"));
    m_dropHint->setObjectName(QStringLiteral("muted"));
    m_progressText->setObjectName(QStringLiteral("muted"));
    m_count->setObjectName(QStringLiteral("sectionTitle"));
    m_unlock->setObjectName(QStringLiteral("primary"));
    m_add->setObjectName(QStringLiteral("primary"));
    m_progress->setRange(0, 1000);
    m_progress->setTextVisible(false);

    // Locked: the door, its texts in a column of a readable width in the middle.
    auto* locked = new QWidget;
    auto* column = new QWidget(locked);
    column->setMaximumWidth(620);
    column->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    auto* lockedLayout = new QVBoxLayout(column);
    lockedLayout->setContentsMargins(0, 48, 0, 24);
    lockedLayout->setSpacing(14);
    lockedLayout->addStretch(1);
    lockedLayout->addWidget(new IconLabel(QStringLiteral("vault"), 56, column), 0, Qt::AlignHCenter);
    lockedLayout->addWidget(m_lockedTitle, 0, Qt::AlignHCenter);
    m_lockedText->setAlignment(Qt::AlignHCenter);
    lockedLayout->addWidget(m_lockedText);
    lockedLayout->addWidget(m_unlock, 0, Qt::AlignHCenter);
    lockedLayout->addStretch(1);
    m_lockedNote->setAlignment(Qt::AlignHCenter);
    lockedLayout->addWidget(m_lockedNote);
    auto* centred = new QHBoxLayout(locked);
    centred->addStretch(1);
    centred->addWidget(column, 10);
    centred->addStretch(1);

    // Unlocked: the list.
    auto* unlocked = new QWidget;
    auto* unlockedLayout = new QVBoxLayout(unlocked);
    unlockedLayout->setContentsMargins(28, 24, 28, 16);
    unlockedLayout->setSpacing(10);
    auto* header = new QHBoxLayout;
    auto* titles = new QVBoxLayout;
    titles->addWidget(m_unlockedTitle);
    titles->addWidget(m_count);
    header->addLayout(titles, 1);
    header->addWidget(m_add, 0, Qt::AlignTop);
    header->addWidget(m_lock, 0, Qt::AlignTop);
    unlockedLayout->addLayout(header);
    unlockedLayout->addWidget(m_unlockedText);
    m_list->setRootIsDecorated(false);
    m_list->setUniformRowHeights(true);
    m_list->setSortingEnabled(false);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->header()->setStretchLastSection(false);
    m_list->header()->setSectionResizeMode(NameColumn, QHeaderView::Stretch);
    m_list->header()->setSectionResizeMode(SizeColumn, QHeaderView::ResizeToContents);
    m_list->header()->setSectionResizeMode(AddedColumn, QHeaderView::ResizeToContents);
    unlockedLayout->addWidget(m_list, 1);
    unlockedLayout->addWidget(m_dropHint);
    auto* actions = new QHBoxLayout;
    actions->addWidget(m_open);
    actions->addWidget(m_restore);
    actions->addStretch(1);
    actions->addWidget(m_delete);
    unlockedLayout->addLayout(actions);

    m_pages->addWidget(locked);
    m_pages->addWidget(unlocked);

    auto* progressRow = new QHBoxLayout;
    progressRow->addWidget(m_progress, 1);
    progressRow->addWidget(m_stop);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->setSpacing(6);
    outer->addWidget(m_pages, 1);
    auto* bottom = new QVBoxLayout;
    bottom->setContentsMargins(28, 0, 28, 16);
    bottom->addLayout(progressRow);
    bottom->addWidget(m_progressText);
    bottom->addWidget(m_message);
    outer->addLayout(bottom);

    connect(m_unlock, &QPushButton::clicked, &m_model, &VaultModel::unlock);
    connect(m_lock, &QPushButton::clicked, &m_model, &VaultModel::lock);
    connect(m_add, &QPushButton::clicked, this, &VaultView::pickFiles);
    connect(m_stop, &QPushButton::clicked, &m_model, &VaultModel::stop);
    connect(m_open, &QPushButton::clicked, this, [this] {
        if (const QUuid id = selected(); !id.isNull())
            m_model.open(id);
    });
    connect(m_list, &QTreeWidget::itemActivated, this, [this] {
        if (const QUuid id = selected(); !id.isNull() && !m_model.isBusy())
            m_model.open(id);
    });
    connect(m_restore, &QPushButton::clicked, this, [this] {
        if (const QUuid id = selected(); !id.isNull())
            m_model.restore(id);
    });
    connect(m_delete, &QPushButton::clicked, this, &VaultView::confirmDelete);
    connect(m_list, &QTreeWidget::itemSelectionChanged, this, &VaultView::render);
    connect(&m_model, &VaultModel::stateChanged, this, &VaultView::render);
    connect(&m_model, &VaultModel::messageChanged, this, &VaultView::render);
    connect(&m_model, &VaultModel::progressChanged, this, &VaultView::renderProgress);
    connect(&m_model, &VaultModel::itemsChanged, this, &VaultView::rebuildList);
    retranslate();
}

void VaultView::retranslate()
{
    m_lockedTitle->setText(L("Coffre verrouillé"));
    m_lockedText->setText(
        L("Mets tes fichiers les plus privés à l'abri. Ils sont chiffrés (AES-256) et ne se lisent que "
          "si tu déverrouilles le coffre avec Touch ID ou le mot de passe de ce Mac."));
    m_lockedNote->setText(L("Bon à savoir : si tu sauvegardes ton Mac avec Time Machine, ton coffre est sauvegardé "
                            "aussi (il est chiffré, personne ne peut le lire). Garde quand même une copie de tes "
                            "fichiers les plus importants ailleurs."));
    m_unlockedTitle->setText(L("Coffre déverrouillé"));
    m_unlockedText->setText(L("Les fichiers ici sont chiffrés. Ils ne sont lisibles que dans cette fenêtre, une fois "
                              "le coffre déverrouillé."));
    m_dropHint->setText(L("Glisse des fichiers ici pour les mettre dans le coffre."));
    m_add->setText(L("Mettre des fichiers dans le coffre…"));
    m_lock->setText(L("Verrouiller"));
    m_open->setText(L("Ouvrir"));
    m_restore->setText(L("Sortir du coffre"));
    m_delete->setText(L("Supprimer définitivement…"));
    m_stop->setText(L("Arrêter"));
    m_list->setHeaderLabels({L("Nom"), L("Taille"), L("Ajouté le")});
    rebuildList();
    render();
    renderProgress();
}

void VaultView::render()
{
    m_pages->setCurrentIndex(m_model.isUnlocked() ? 1 : 0);
    const bool busy = m_model.isBusy();
    m_unlock->setText(m_model.isAuthenticating() ? L("Vérification…") : L("Déverrouiller"));
    m_unlock->setEnabled(!busy);
    m_count->setText(m_model.countText());
    const bool chosen = !selected().isNull();
    for (QPushButton* button : {m_open, m_restore, m_delete})
        button->setEnabled(chosen && !busy);
    m_add->setEnabled(!busy);
    m_message->setText(m_model.message());
    m_message->setVisible(!m_model.message().isEmpty());
    renderProgress();
}

void VaultView::renderProgress()
{
    const bool working = m_model.isBusy() && !m_model.isAuthenticating() && m_model.isUnlocked();
    const double fraction = m_model.progress();
    m_progress->setVisible(working);
    if (fraction < 0)
        m_progress->setRange(0, 0); // moving, without a measure
    else {
        m_progress->setRange(0, 1000);
        m_progress->setValue(int(fraction * 1000));
    }
    // Only an addition stops part-way and keeps what it finished.
    m_stop->setVisible(working && fraction >= 0);
    m_stop->setEnabled(!m_model.isStopping());
    m_progressText->setText(m_model.busyText());
    m_progressText->setVisible(working && !m_model.busyText().isEmpty());
}

void VaultView::rebuildList()
{
    const QUuid keep = selected();
    m_list->clear();
    for (const VaultEntry& entry : m_model.items()) {
        auto* item = new QTreeWidgetItem(m_list, {entry.name, Localizer::formatByteCount(entry.size),
                                                  Localizer::formatDateTime(entry.added.toLocalTime())});
        item->setData(NameColumn, IdRole, entry.id);
        item->setTextAlignment(SizeColumn, Qt::AlignRight | Qt::AlignVCenter);
        item->setToolTip(NameColumn, entry.origin.isEmpty() ? entry.name : QDir::toNativeSeparators(entry.origin));
        if (entry.id == keep)
            m_list->setCurrentItem(item);
    }
    render();
}

QUuid VaultView::selected() const
{
    const QList<QTreeWidgetItem*> items = m_list->selectedItems();
    return items.isEmpty() ? QUuid() : items.constFirst()->data(NameColumn, IdRole).toUuid();
}

void VaultView::pickFiles()
{
    const QStringList files =
        m_pickFiles
            ? m_pickFiles()
            : QFileDialog::getOpenFileNames(this, L("Mettre dans le coffre"),
                                            QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation));
    if (!files.isEmpty())
        m_model.addFiles(files);
}

void VaultView::confirmDelete()
{
    const QUuid id = selected();
    if (id.isNull())
        return;
    QString name;
    for (const VaultEntry& entry : m_model.items()) {
        if (entry.id == id)
            name = entry.name;
    }
    bool confirmed = false;
    if (m_confirm) {
        confirmed = m_confirm(name);
    } else {
        QMessageBox box(QMessageBox::Warning, L("Supprimer définitivement ?"),
                        L("Ce fichier sera effacé du coffre et ne pourra pas être récupéré."), QMessageBox::NoButton,
                        this);
        box.setInformativeText(name);
        QPushButton* accept = box.addButton(L("Supprimer"), QMessageBox::DestructiveRole);
        QPushButton* cancel = box.addButton(L("Annuler"), QMessageBox::RejectRole);
        box.setDefaultButton(cancel);
        box.exec();
        confirmed = box.clickedButton() == accept;
    }
    if (confirmed)
        m_model.deleteForever(id);
}

void VaultView::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    // What the command line changed while the page was out of sight.
    if (m_model.isUnlocked() && !m_model.isBusy())
        m_model.refresh();
}

void VaultView::dragEnterEvent(QDragEnterEvent* event)
{
    if (m_model.isUnlocked() && !m_model.isBusy() && !localFiles(event->mimeData()).isEmpty())
        event->acceptProposedAction();
}

void VaultView::dropEvent(QDropEvent* event)
{
    const QStringList files = localFiles(event->mimeData());
    if (files.isEmpty() || !m_model.isUnlocked())
        return;
    event->acceptProposedAction();
    m_model.addFiles(files);
}

} // namespace nuvrel
