#include "app/views/explore/ExplorerView.h"

#include "app/shell/Icons.h"
#include "app/views/explore/PhotoGrid.h"
#include "app/widgets/IconLabel.h"
#include "app/widgets/Layouts.h"
#include "app/widgets/ShownText.h"
#include "app/widgets/TwoLineDelegate.h"
#include "app/widgets/WrappingCheckBox.h"
#include "l10n/L.h"
#include "models/explorer/ExplorerModel.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFontDatabase>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QProgressBar>
#include <QPushButton>
#include <QShortcut>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QTabWidget>
#include <QVBoxLayout>

namespace nuvrel {

namespace {

enum PhasePanel { PasswordPanel, MessagePanel, ReadyPanel };

} // namespace

ExplorerView::ExplorerView(ExplorerModel& model, QWidget* parent)
    : QWidget(parent)
    , m_model(model)
{
    m_back = new QPushButton(this);
    m_back->setObjectName(QStringLiteral("link"));
    m_device = new QLabel(this);
    m_device->setObjectName(QStringLiteral("pageTitle"));
    m_readOnly = wrappingLabel(this, QStringLiteral("muted"));

    // The password's line, for an encrypted backup: kept or not, and its recovery sheet.
    m_keyBar = new QWidget(this);
    m_kept = new QLabel(m_keyBar);
    m_forget = new QPushButton(m_keyBar);
    m_forget->setObjectName(QStringLiteral("link"));
    m_printSheet = new QPushButton(Icons::icon(QStringLiteral("printsheet")), QString(), m_keyBar);
    m_printSheet->setObjectName(QStringLiteral("link"));
    auto* keyLayout = new QHBoxLayout(m_keyBar);
    keyLayout->setContentsMargins(0, 0, 0, 0);
    keyLayout->addWidget(m_kept);
    keyLayout->addWidget(m_forget);
    keyLayout->addSpacing(12);
    keyLayout->addWidget(m_printSheet);
    keyLayout->addStretch(1);
    connect(m_forget, &QPushButton::clicked, &m_model, &ExplorerModel::forgetPassword);
    connect(m_printSheet, &QPushButton::clicked, &m_model, &ExplorerModel::printRescueSheet);

    m_phases = new QStackedWidget(this);
    m_phases->insertWidget(PasswordPanel, buildPasswordPanel());
    m_phases->insertWidget(MessagePanel, buildMessagePanel());
    m_tabs = new QTabWidget(this);
    m_tabs->setDocumentMode(false);
    m_tabs->addTab(buildPhotosTab(), Icons::icon(QStringLiteral("photo")), QString());
    m_tabs->addTab(buildFilesTab(), Icons::icon(QStringLiteral("folder")), QString());
    m_tabs->addTab(buildConversationsTab(), Icons::icon(QStringLiteral("conversations")), QString());
    m_phases->insertWidget(ReadyPanel, m_tabs);

    // The status lines under every panel.
    m_busy = new QLabel(this);
    m_progress = new QProgressBar(this);
    m_progress->setTextVisible(false);
    m_progress->setMaximumHeight(6);
    m_stop = new QPushButton(this);
    auto* busyRow = new QHBoxLayout;
    busyRow->addWidget(m_busy, 1);
    busyRow->addWidget(m_stop);
    m_notice = wrappingLabel(this);
    m_notice->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_reveal = new QPushButton(Icons::icon(QStringLiteral("reveal")), QString(), this);
    auto* noticeRow = new QHBoxLayout;
    noticeRow->addWidget(m_notice, 1);
    noticeRow->addWidget(m_reveal);
    // The fingerprint of the PDF just made, to select or copy, as the side file records it.
    m_fingerprintRow = new QWidget(this);
    m_fingerprintTitle = new QLabel(m_fingerprintRow);
    m_fingerprint = new QLabel(m_fingerprintRow);
    m_fingerprint->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    m_fingerprint->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_copyFingerprint = new QPushButton(m_fingerprintRow);
    // The 64 digits get a line of their own: beside a caption and a button they would not fit a
    // small window in the longer languages.
    auto* fingerprintLayout = new QGridLayout(m_fingerprintRow);
    fingerprintLayout->setContentsMargins(0, 0, 0, 0);
    fingerprintLayout->setVerticalSpacing(2);
    fingerprintLayout->addWidget(m_fingerprintTitle, 0, 0);
    fingerprintLayout->addWidget(m_copyFingerprint, 0, 1);
    fingerprintLayout->addWidget(m_fingerprint, 1, 0, 1, 2);
    fingerprintLayout->setColumnStretch(0, 1);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 16, 28, 16);
    layout->setSpacing(8);
    auto* backRow = new QHBoxLayout;
    backRow->addWidget(m_back);
    backRow->addStretch(1);
    layout->addLayout(backRow);
    layout->addWidget(m_device);
    layout->addWidget(m_readOnly);
    layout->addWidget(m_keyBar);
    layout->addSpacing(6);
    layout->addWidget(m_phases, 1);
    layout->addLayout(busyRow);
    layout->addWidget(m_progress);
    layout->addLayout(noticeRow);
    layout->addWidget(m_fingerprintRow);

    connect(m_back, &QPushButton::clicked, this, &ExplorerView::backRequested);
    connect(m_reveal, &QPushButton::clicked, &m_model, &ExplorerModel::revealLastFolder);
    connect(m_stop, &QPushButton::clicked, &m_model, &ExplorerModel::stop);
    connect(m_copyFingerprint, &QPushButton::clicked, &m_model, &ExplorerModel::copyPdfFingerprint);
    // Escape steps back, one thing at a time: the running work, then a search being typed, then the page.
    auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
    escape->setContext(Qt::WidgetWithChildrenShortcut);
    connect(escape, &QShortcut::activated, this, [this] {
        if (m_model.canStop())
            m_model.stop();
        else if (m_search->hasFocus() && !m_search->text().isEmpty())
            m_search->clear();
        else
            Q_EMIT backRequested();
    });
    connect(m_tabs, &QTabWidget::currentChanged, &m_model, &ExplorerModel::setTab);

    connect(&m_model, &ExplorerModel::phaseChanged, this, &ExplorerView::renderPhase);
    connect(&m_model, &ExplorerModel::passwordChanged, this, &ExplorerView::renderPassword);
    PhotoRoll& photos = m_model.photoRoll();
    connect(&photos, &QAbstractItemModel::modelReset, this, [this] {
        renderPhotos();
        renderTabTitles();
    });
    connect(&photos, &PhotoRoll::shownPhotosChanged, this, &ExplorerView::renderPhotos);
    connect(&photos, &PhotoRoll::selectedChanged, this, &ExplorerView::renderPhotos);
    connect(&m_model.fileBrowser(), &FileBrowser::placeChanged, this, &ExplorerView::renderPlace);
    connect(&m_model, &ExplorerModel::chatsChanged, this, &ExplorerView::renderChats);
    connect(&m_model.chatList(), &ChatList::rowsChanged, this, &ExplorerView::renderChats);
    connect(&m_model, &ExplorerModel::busyChanged, this, &ExplorerView::renderStatus);
    connect(&m_model, &ExplorerModel::noticeChanged, this, &ExplorerView::renderStatus);
    connect(&m_model, &ExplorerModel::lastFolderChanged, this, &ExplorerView::renderStatus);
    connect(&m_model, &ExplorerModel::tabChanged, this, [this] { m_tabs->setCurrentIndex(m_model.tab()); });

    retranslate();
}

QWidget* ExplorerView::buildPasswordPanel()
{
    auto* panel = new QWidget(this);
    auto* card = new QFrame(panel);
    card->setObjectName(QStringLiteral("card"));
    card->setFixedWidth(600);

    m_prompt = wrappingLabel(card);
    m_password = new QLineEdit(card);
    m_password->setEchoMode(QLineEdit::Password);
    m_password->setClearButtonEnabled(true);
    m_passwordError = wrappingLabel(card);
    setTone(m_passwordError, Tone::Failure);
    m_remember = new WrappingCheckBox(card);
    m_open = new QPushButton(Icons::icon(QStringLiteral("lockopen"), Qt::white), QString(), card);
    m_open->setObjectName(QStringLiteral("primary"));
    m_open->setDefault(true);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(m_open);

    auto* cardLayout = new QVBoxLayout(card);
    cardLayout->setContentsMargins(22, 20, 22, 20);
    cardLayout->setSpacing(10);
    auto* lock = new IconLabel(QStringLiteral("vault"), 32, card);
    cardLayout->addWidget(lock);
    cardLayout->addWidget(m_prompt);
    cardLayout->addWidget(m_password);
    cardLayout->addWidget(m_passwordError);
    cardLayout->addWidget(m_remember);
    cardLayout->addLayout(buttons);

    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 12, 0, 0);
    layout->addLayout(centredRow(card));
    layout->addStretch(1);

    connect(m_password, &QLineEdit::textEdited, &m_model, &ExplorerModel::setPassword);
    connect(m_password, &QLineEdit::returnPressed, &m_model, &ExplorerModel::openBackup);
    connect(m_open, &QPushButton::clicked, &m_model, &ExplorerModel::openBackup);
    connect(m_remember, &WrappingCheckBox::toggled, &m_model, &ExplorerModel::setRememberPassword);
    return panel;
}

QWidget* ExplorerView::buildMessagePanel()
{
    auto* panel = new QWidget(this);
    m_message = wrappingLabel(panel);
    m_message->setAlignment(Qt::AlignCenter);
    m_spinner = new QProgressBar(panel);
    m_spinner->setRange(0, 0); // moving while the backup opens
    m_spinner->setTextVisible(false);
    m_spinner->setMaximumWidth(320);
    m_retry = new QPushButton(Icons::icon(QStringLiteral("refresh")), QString(), panel);
    auto* layout = new QVBoxLayout(panel);
    layout->addStretch(1);
    layout->addWidget(m_message);
    layout->addWidget(m_spinner, 0, Qt::AlignHCenter);
    layout->addWidget(m_retry, 0, Qt::AlignHCenter);
    layout->addStretch(2);
    connect(m_retry, &QPushButton::clicked, &m_model, &ExplorerModel::openBackup);
    return panel;
}

QWidget* ExplorerView::buildPhotosTab()
{
    auto* tab = new QWidget(this);
    m_photosHeader = wrappingLabel(tab);
    m_grid = new PhotoGridView(m_model.photoRoll(), tab);
    m_showMore = new QPushButton(tab);
    m_noneChosen = new QLabel(tab);
    m_noneChosen->setObjectName(QStringLiteral("muted"));
    m_extractSelected = new QPushButton(Icons::icon(QStringLiteral("extract"), Qt::white), QString(), tab);
    m_extractSelected->setObjectName(QStringLiteral("primary"));
    m_extractAll = new QPushButton(Icons::icon(QStringLiteral("extract")), QString(), tab);

    auto* actions = new QHBoxLayout;
    actions->addWidget(m_showMore);
    actions->addStretch(1);
    actions->addWidget(m_noneChosen);
    actions->addWidget(m_extractSelected);
    actions->addWidget(m_extractAll);

    auto* layout = new QVBoxLayout(tab);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->addWidget(m_photosHeader);
    layout->addWidget(m_grid, 1);
    layout->addLayout(actions);

    connect(m_showMore, &QPushButton::clicked, &m_model.photoRoll(), &PhotoRoll::showMore);
    connect(m_extractSelected, &QPushButton::clicked, this, [this] {
        const QString destination = pickDestination();
        if (!destination.isEmpty())
            m_model.extractSelectedPhotos(destination);
    });
    connect(m_extractAll, &QPushButton::clicked, this, [this] {
        const QString destination = pickDestination();
        if (!destination.isEmpty())
            m_model.extractAllPhotos(destination);
    });
    return tab;
}

QWidget* ExplorerView::buildFilesTab()
{
    auto* tab = new QWidget(this);
    m_domainsIntro = wrappingLabel(tab);
    m_placeBar = new QWidget(tab);
    m_crumbs = new QHBoxLayout;
    m_crumbs->setSpacing(2);
    m_extractFolder = new QPushButton(Icons::icon(QStringLiteral("extract")), QString(), m_placeBar);
    auto* placeLayout = new QHBoxLayout(m_placeBar);
    placeLayout->setContentsMargins(0, 0, 0, 0);
    placeLayout->addLayout(m_crumbs, 1);
    placeLayout->addWidget(m_extractFolder);

    m_fileList = new QListView(tab);
    m_fileList->setModel(&m_model.fileBrowser());
    m_fileList->setItemDelegate(new TwoLineDelegate(m_fileList));
    m_fileList->setUniformItemSizes(true);
    m_fileList->setProperty("rowsAreActions", true);
    m_fileList->setIconSize(QSize(24, 24));

    auto* layout = new QVBoxLayout(tab);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->addWidget(m_domainsIntro);
    layout->addWidget(m_placeBar);
    layout->addWidget(m_fileList, 1);

    connect(m_fileList, &QListView::activated, this, [this](const QModelIndex& index) {
        if (m_model.fileBrowser().openRow(index.row()))
            return;
        if (const QVariant entry = index.data(FileBrowser::EntryRole); entry.isValid())
            m_model.openFile(entry.value<BackupEntry>());
    });
    connect(m_extractFolder, &QPushButton::clicked, this, [this] {
        const QString destination = pickDestination();
        if (!destination.isEmpty())
            m_model.extractCurrentFolder(destination);
    });
    return tab;
}

QWidget* ExplorerView::buildConversationsTab()
{
    auto* tab = new QWidget(this);
    m_chatsIntro = wrappingLabel(tab);
    m_source = new QComboBox(tab);
    m_source->addItem(Icons::icon(QStringLiteral("conversations")), QStringLiteral("Messages"));
    m_source->addItem(Icons::icon(QStringLiteral("conversations")), QStringLiteral("WhatsApp"));
    m_search = new QLineEdit(tab);
    m_search->setClearButtonEnabled(true);
    m_search->addAction(Icons::icon(QStringLiteral("search")), QLineEdit::LeadingPosition);
    m_chatList = new QListView(tab);
    m_chatList->setModel(&m_model.chatList());
    m_chatList->setItemDelegate(new TwoLineDelegate(m_chatList));
    m_chatList->setUniformItemSizes(true);
    m_chatList->setProperty("rowsAreActions", true);
    m_chatList->setIconSize(QSize(24, 24));
    m_chatsMessage = wrappingLabel(tab);
    m_refine = wrappingLabel(tab, QStringLiteral("muted"));
    m_saveAll = new QPushButton(Icons::icon(QStringLiteral("pdf")), QString(), tab);

    auto* controls = new QHBoxLayout;
    controls->addWidget(m_source);
    controls->addWidget(m_search, 1);
    auto* bottom = new QHBoxLayout;
    bottom->addWidget(m_refine, 1);
    bottom->addWidget(m_saveAll, 0, Qt::AlignRight);

    auto* layout = new QVBoxLayout(tab);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->addWidget(m_chatsIntro);
    layout->addLayout(controls);
    layout->addWidget(m_chatsMessage);
    layout->addWidget(m_chatList, 1);
    layout->addLayout(bottom);

    connect(m_source, &QComboBox::currentIndexChanged, &m_model, &ExplorerModel::setConvSource);
    connect(m_search, &QLineEdit::textChanged, &m_model.chatList(), &ChatList::setQuery);
    connect(m_chatList, &QListView::activated, this,
            [this](const QModelIndex& index) { m_model.createChatPDF(index.data(ChatList::ChatIDRole).toLongLong()); });
    connect(m_saveAll, &QPushButton::clicked, &m_model, &ExplorerModel::createAllChatPDFs);
    return tab;
}

QString ExplorerView::pickDestination()
{
    if (m_pickDestination)
        return m_pickDestination();
    return QFileDialog::getExistingDirectory(this, L("Où veux-tu mettre les fichiers extraits ?"),
                                             QStandardPaths::writableLocation(QStandardPaths::PicturesLocation));
}

void ExplorerView::retranslate()
{
    m_back->setText(shownText(L("← Retour aux sauvegardes")));
    m_device->setText(m_model.backup().deviceName);
    m_readOnly->setText(
        L("Lecture seule : ta sauvegarde n'est jamais modifiée. Nuvrel en sort une copie de ce que tu choisis."));
    m_prompt->setText(L("Entre le mot de passe choisi dans le Finder pour cette sauvegarde. Nuvrel ne l'enregistre "
                        "nulle part : il sert seulement à ouvrir la sauvegarde pendant que tu l'explores. Si tu l'as "
                        "oublié, personne (pas même Apple) ne peut le retrouver."));
    m_password->setAccessibleName(L("Mot de passe de la sauvegarde"));
    m_password->setPlaceholderText(L("Mot de passe de la sauvegarde"));
    m_remember->setText(L("Garder ce mot de passe dans le Trousseau de ce Mac (recommandé : tu ne le perdras plus)"));
    m_open->setText(shownText(L("Ouvrir la sauvegarde")));
    m_kept->setText(L("🔑 Mot de passe gardé dans le Trousseau de ce Mac"));
    m_forget->setText(shownText(L("Oublier le mot de passe")));
    m_printSheet->setText(shownText(L("Imprimer une fiche de secours")));
    m_retry->setText(shownText(L("Réessayer")));
    m_showMore->setAccessibleName(L("Afficher plus"));
    m_grid->setAccessibleName(L("Photos et vidéos"));
    m_noneChosen->setText(L("Aucune photo choisie"));
    m_extractSelected->setText(shownText(L("Extraire la sélection")));
    m_domainsIntro->setText(L("Choisis une catégorie. Les plus utiles sont en haut."));
    m_extractFolder->setText(shownText(L("Extraire tout ce dossier")));
    m_fileList->setAccessibleName(L("Tous les fichiers"));
    m_chatsIntro->setText(L("Les messages d'un téléphone sont dans une base de données qu'aucune appli ne sait ouvrir. "
                            "Choisis une conversation : Nuvrel en fait un PDF lisible, qui s'ouvre tout de suite."));
    m_source->setAccessibleName(L("Source des conversations"));
    m_search->setPlaceholderText(L("Chercher une conversation ou un numéro"));
    m_search->setAccessibleName(L("Chercher une conversation ou un numéro"));
    m_chatList->setAccessibleName(L("Conversations"));
    m_refine->setText(L("Affine la recherche pour voir les autres conversations."));
    m_reveal->setText(shownText(L("Afficher dans le Finder")));
    // The rows word themselves when painted: a repaint gives them the new language.
    m_fileList->viewport()->update();
    m_chatList->viewport()->update();
    m_stop->setText(shownText(L("Arrêter")));
    m_fingerprintTitle->setText(L("Empreinte SHA-256 du PDF :"));
    m_copyFingerprint->setText(shownText(L("Copier l'empreinte")));
    renderPhase();
    renderPassword();
    renderPhotos();
    renderPlace();
    renderChats();
    renderStatus();
    renderTabTitles();
}

void ExplorerView::renderTabTitles()
{
    m_tabs->setTabText(
        ExplorerModel::PhotosTab,
        shownText(L("Photos et vidéos (%@)", Localizer::locale().toString(m_model.photoRoll().photos().size()))));
    m_tabs->setTabText(ExplorerModel::FilesTab, shownText(L("Tous les fichiers")));
    m_tabs->setTabText(ExplorerModel::ConversationsTab, shownText(L("Messages / iMessage")));
}

void ExplorerView::renderPhase()
{
    // The keyboard follows the phase, unless the user has taken it outside this view: a panel that goes
    // away must not leave it on a hidden field, or let it fall to the sidebar.
    const QWidget* focused = QApplication::focusWidget();
    const bool followsPhase = !focused || focused == this || isAncestorOf(focused);
    switch (m_model.phase()) {
    case ExplorerModel::Phase::AskPassword:
        m_phases->setCurrentIndex(PasswordPanel);
        m_passwordError->setText(m_model.failureMessage());
        m_passwordError->setVisible(!m_model.failureMessage().isEmpty());
        // A refused password is selected, so that the next try replaces it.
        if (!m_model.failureMessage().isEmpty())
            m_password->selectAll();
        break;
    case ExplorerModel::Phase::Loading:
        m_phases->setCurrentIndex(MessagePanel);
        m_message->setText(L("Lecture de la sauvegarde… une grosse sauvegarde peut prendre une minute."));
        m_spinner->show();
        m_retry->hide();
        break;
    case ExplorerModel::Phase::Failed:
        m_phases->setCurrentIndex(MessagePanel);
        m_message->setText(m_model.failureMessage());
        m_spinner->hide();
        m_retry->show();
        break;
    case ExplorerModel::Phase::Ready:
        m_phases->setCurrentIndex(ReadyPanel);
        m_tabs->setCurrentIndex(m_model.tab());
        break;
    }
    renderPassword();
    if (followsPhase && !(m_model.phase() == ExplorerModel::Phase::Ready && m_tabs->isAncestorOf(focused)))
        placeFocus();
}

void ExplorerView::placeFocus()
{
    if (!isVisible())
        return;
    switch (m_model.phase()) {
    case ExplorerModel::Phase::AskPassword: m_password->setFocus(Qt::OtherFocusReason); break;
    case ExplorerModel::Phase::Failed: m_retry->setFocus(Qt::OtherFocusReason); break;
    case ExplorerModel::Phase::Ready: tabContent(m_model.tab())->setFocus(Qt::OtherFocusReason); break;
    // Nothing to act on but Escape, which the view itself answers.
    case ExplorerModel::Phase::Loading: setFocus(Qt::OtherFocusReason); break;
    }
}

QWidget* ExplorerView::tabContent(int tab) const
{
    switch (tab) {
    case ExplorerModel::FilesTab: return m_fileList;
    case ExplorerModel::ConversationsTab: return m_chatList;
    default: return m_grid;
    }
}

void ExplorerView::renderPassword()
{
    if (m_password->text() != m_model.password())
        m_password->setText(m_model.password());
    m_remember->setChecked(m_model.rememberPassword());
    m_remember->setVisible(!m_model.savedPassword());
    m_kept->setVisible(m_model.savedPassword());
    m_forget->setVisible(m_model.savedPassword());
    m_printSheet->setVisible(m_model.canPrintRescueSheet());
    m_keyBar->setVisible(m_model.backup().isEncrypted && (m_model.savedPassword() || m_model.canPrintRescueSheet()));
    m_open->setEnabled(!m_model.password().isEmpty());
}

void ExplorerView::renderPhotos()
{
    const PhotoRoll& photos = m_model.photoRoll();
    const qsizetype total = photos.photos().size();
    const QLocale locale = Localizer::locale();
    m_photosHeader->setText(photos.header());
    const qsizetype hidden = total - std::min<qsizetype>(total, photos.shownPhotos());
    m_showMore->setVisible(hidden > 0);
    m_showMore->setText(shownText(L("Afficher plus (%@)", locale.toString(hidden))));
    const bool none = photos.selected().isEmpty();
    m_noneChosen->setVisible(none && total > 0);
    m_extractSelected->setVisible(!none);
    if (!none)
        m_extractSelected->setText(shownText(L("Extraire la sélection") +
                                             QStringLiteral(" (%1)").arg(locale.toString(photos.selected().size()))));
    m_extractAll->setText(shownText(L("Tout extraire (%@)", locale.toString(total))));
    m_extractAll->setEnabled(total > 0 && m_model.busy().isEmpty());
    m_grid->setVisible(total > 0);
}

void ExplorerView::renderPlace()
{
    const FileBrowser& files = m_model.fileBrowser();
    const bool inDomain = !files.domain().isEmpty();
    m_domainsIntro->setVisible(!inDomain);
    m_placeBar->setVisible(inDomain);

    // The path as buttons: each one goes back up to its place.
    // Later, not now: the button clicked may be the one that asked for this.
    while (QLayoutItem* item = m_crumbs->takeAt(0)) {
        if (QWidget* widget = item->widget()) {
            widget->hide();
            widget->deleteLater();
        }
        delete item;
    }
    if (inDomain) {
        const auto addCrumb = [this](const QString& text, int depth, bool current) {
            auto* button = new QPushButton(text, m_placeBar);
            button->setObjectName(QStringLiteral("link"));
            button->setEnabled(!current);
            connect(button, &QPushButton::clicked, &m_model.fileBrowser(),
                    [this, depth] { m_model.fileBrowser().goUp(depth); });
            if (m_crumbs->count() > 0) {
                auto* separator = new QLabel(QStringLiteral("›"), m_placeBar);
                separator->setObjectName(QStringLiteral("muted"));
                m_crumbs->addWidget(separator);
            }
            m_crumbs->addWidget(button);
        };
        addCrumb(L("Tous les fichiers"), -1, false);
        addCrumb(BackupCatalogue::friendly(files.domain()), 0, files.folder().isEmpty());
        for (int depth = 0; depth < files.folder().size(); ++depth)
            addCrumb(files.folder().at(depth), depth + 1, depth + 1 == files.folder().size());
        m_crumbs->addStretch(1);
    }
    if (files.rowCount() > 0)
        m_fileList->setCurrentIndex(files.index(0));
}

void ExplorerView::renderChats()
{
    m_source->setCurrentIndex(m_model.convSource());
    if (m_search->text() != m_model.chatList().query())
        m_search->setText(m_model.chatList().query());
    const QString message = m_model.chatsLoading() ? L("Lecture des conversations…") : m_model.chatsMessage();
    m_chatsMessage->setText(message);
    m_chatsMessage->setVisible(!message.isEmpty());

    const ChatList& chats = m_model.chatList();
    const qsizetype shown = chats.visible().size();
    m_chatList->setVisible(shown > 0);
    m_refine->setVisible(chats.isTruncated());
    m_saveAll->setVisible(shown > 0);
    m_saveAll->setText(shownText(L("Tout enregistrer (%@)", Localizer::locale().toString(shown))));
}

void ExplorerView::renderStatus()
{
    const bool busy = !m_model.busy().isEmpty();
    m_busy->setText(m_model.busy());
    m_busy->setVisible(busy && m_model.phase() == ExplorerModel::Phase::Ready);
    m_progress->setVisible(busy && m_model.phase() == ExplorerModel::Phase::Ready);
    m_stop->setVisible(m_model.canStop());
    if (m_model.progress() < 0) {
        m_progress->setRange(0, 0);
    } else {
        m_progress->setRange(0, 1000);
        m_progress->setValue(int(m_model.progress() * 1000));
    }
    const bool failure = !m_model.errorNotice().isEmpty();
    m_notice->setText(failure ? m_model.errorNotice() : m_model.notice());
    m_notice->setVisible(!m_notice->text().isEmpty());
    setTone(m_notice, failure ? Tone::Failure : Tone::Success);
    m_reveal->setVisible(!m_model.lastFolder().isEmpty() && !busy);
    m_fingerprint->setText(m_model.pdfFingerprint());
    m_fingerprintRow->setVisible(!m_model.pdfFingerprint().isEmpty());

    // One task at a time: the actions wait for the running one.
    for (QPushButton* action : {m_extractSelected, m_extractFolder, m_saveAll})
        action->setEnabled(!busy);
    m_extractAll->setEnabled(!busy && !m_model.photoRoll().photos().isEmpty());
    m_chatList->setEnabled(!busy);
    m_fileList->setEnabled(!busy);
}

} // namespace nuvrel
