#include "app/views/conversations/ConversationsView.h"

#include "app/shell/Icons.h"
#include "app/widgets/CardButton.h"
#include "app/widgets/IconLabel.h"
#include "app/widgets/Layouts.h"
#include "app/widgets/ShownText.h"
#include "app/widgets/TwoLineDelegate.h"
#include "app/widgets/WrappingCheckBox.h"
#include "l10n/L.h"
#include "models/conversations/SavedConversations.h"

#include <QComboBox>
#include <QDateEdit>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QFontDatabase>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QListWidget>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QSplitter>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QVBoxLayout>

namespace nuvrel {

namespace {

enum Screen { SourcesScreen, SourceScreen };
enum SourcePanel { BackupPanel, FilePanel, PastePanel };

QString iconOf(ConversationsModel::Source source)
{
    switch (source) {
    case ConversationsModel::Backup: return QStringLiteral("phone");
    case ConversationsModel::ThisComputer: return QStringLiteral("folder");
    case ConversationsModel::DatabaseFile: return QStringLiteral("file");
    case ConversationsModel::WhatsAppExport:
    case ConversationsModel::TelegramExport: return QStringLiteral("conversations");
    case ConversationsModel::Pasted: return QStringLiteral("printsheet");
    case ConversationsModel::NoSource: break;
    }
    return QStringLiteral("file");
}

} // namespace

ConversationsView::ConversationsView(ConversationsModel& model, QWidget* parent)
    : QWidget(parent)
    , m_model(model)
    , m_screens(new QStackedWidget(this))
{
    setAcceptDrops(true);
    m_screens->addWidget(buildSourcesScreen());
    m_screens->addWidget(buildSourceScreen());
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_screens);

    connect(&m_model, &ConversationsModel::sourceChanged, this, &ConversationsView::render);
    connect(&m_model, &ConversationsModel::backupsChanged, this, &ConversationsView::renderBackup);
    connect(&m_model, &ConversationsModel::chatsChanged, this, &ConversationsView::render);
    connect(&m_model, &ConversationsModel::previewChanged, this, &ConversationsView::renderPreview);
    connect(&m_model, &ConversationsModel::periodChanged, this, &ConversationsView::renderPreview);
    connect(&m_model, &ConversationsModel::busyChanged, this, &ConversationsView::renderStatus);
    connect(&m_model, &ConversationsModel::noticeChanged, this, &ConversationsView::renderStatus);
    connect(&m_model.chatList(), &ChatList::tickedChanged, this, &ConversationsView::renderStatus);
    connect(&m_model.saved(), &QAbstractItemModel::modelReset, this, &ConversationsView::renderStatus);
    retranslate();
    m_model.saved().refresh();
}

// The sources, and the saved conversations below them.
QWidget* ConversationsView::buildSourcesScreen()
{
    auto* content = new QWidget;
    m_title = new QLabel(content);
    m_title->setObjectName(QStringLiteral("pageTitle"));
    m_subtitle = wrappingLabel(content, QStringLiteral("muted"));

    auto* grid = new QGridLayout;
    grid->setSpacing(12);
    int index = 0;
    for (const ConversationsModel::Source source : ConversationsModel::availableSources()) {
        auto* card = new CardButton(content);
        card->setObjectName(QStringLiteral("card"));
        card->setCursor(Qt::PointingHandCursor);
        auto* icon = new IconLabel(iconOf(source), 28, card);
        auto* title = new QLabel(card);
        title->setObjectName(QStringLiteral("sectionTitle"));
        auto* explanation = wrappingLabel(card, QStringLiteral("muted"));
        for (QWidget* label : std::initializer_list<QWidget*>{icon, title, explanation})
            label->setAttribute(Qt::WA_TransparentForMouseEvents);
        auto* texts = new QVBoxLayout;
        texts->setSpacing(2);
        texts->addWidget(title);
        texts->addWidget(explanation);
        auto* cardLayout = new QHBoxLayout(card);
        cardLayout->setContentsMargins(16, 12, 16, 12);
        cardLayout->setSpacing(14);
        cardLayout->addWidget(icon, 0, Qt::AlignTop);
        cardLayout->addLayout(texts, 1);
        connect(card, &QPushButton::clicked, this, [this, source] { chooseSource(source); });
        grid->addWidget(card, index / 2, index % 2);
        m_sourceCards.append(std::pair<ConversationsModel::Source, QPushButton*>(source, card));
        m_sourceTexts.append(std::pair<QLabel*, QLabel*>(title, explanation));
        ++index;
    }
    grid->setColumnStretch(0, 1);
    grid->setColumnStretch(1, 1);

    m_savedTitle = new QLabel(content);
    m_savedTitle->setObjectName(QStringLiteral("sectionTitle"));
    m_savedList = new QListView(content);
    m_savedList->setModel(&m_model.saved());
    m_savedList->setItemDelegate(new TwoLineDelegate(m_savedList));
    m_savedList->setMinimumHeight(160);
    m_savedList->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_savedEmpty = wrappingLabel(content, QStringLiteral("muted"));
    m_openSaved = new QPushButton(Icons::icon(QStringLiteral("pdf")), QString(), content);
    m_revealSaved = new QPushButton(Icons::icon(QStringLiteral("reveal")), QString(), content);
    m_trashSaved = new QPushButton(content);
    auto* savedButtons = new QHBoxLayout;
    savedButtons->addStretch(1);
    savedButtons->addWidget(m_openSaved);
    savedButtons->addWidget(m_revealSaved);
    savedButtons->addWidget(m_trashSaved);
    const auto savedRow = [this] {
        return m_savedList->currentIndex().isValid() ? m_savedList->currentIndex().row() : -1;
    };
    connect(m_openSaved, &QPushButton::clicked, this, [this, savedRow] { m_model.saved().open(savedRow()); });
    connect(m_revealSaved, &QPushButton::clicked, this, [this, savedRow] { m_model.saved().reveal(savedRow()); });
    connect(m_trashSaved, &QPushButton::clicked, this, [this, savedRow] { m_model.saved().moveToTrash(savedRow()); });
    connect(m_savedList, &QListView::activated, this,
            [this](const QModelIndex& activated) { m_model.saved().open(activated.row()); });
    connect(m_savedList->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &ConversationsView::renderStatus);

    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(28, 24, 28, 24);
    layout->setSpacing(10);
    layout->addWidget(m_title);
    layout->addWidget(m_subtitle);
    layout->addSpacing(6);
    layout->addLayout(grid);
    layout->addSpacing(12);
    layout->addWidget(m_savedTitle);
    layout->addWidget(m_savedEmpty);
    layout->addWidget(m_savedList, 1);
    layout->addLayout(savedButtons);
    layout->addStretch(0); // takes the room the list leaves while it is hidden

    // The cards and the list together may be taller than a small window.
    auto* scroll = new QScrollArea;
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setWidget(content);
    return scroll;
}

QWidget* ConversationsView::buildSourceScreen()
{
    auto* screen = new QWidget;
    m_back = new QPushButton(screen);
    m_back->setObjectName(QStringLiteral("link"));
    m_back->setCursor(Qt::PointingHandCursor);
    m_sourceTitle = new QLabel(screen);
    m_sourceTitle->setObjectName(QStringLiteral("pageTitle"));
    m_sourcePanels = new QStackedWidget(screen);
    m_sourcePanels->addWidget(buildBackupPanel());
    auto* filePanel = new QWidget;
    m_otherFile = new QPushButton(Icons::icon(QStringLiteral("folder")), QString(), filePanel);
    auto* fileLayout = new QHBoxLayout(filePanel);
    fileLayout->setContentsMargins(0, 0, 0, 0);
    fileLayout->addWidget(m_otherFile);
    fileLayout->addStretch(1);
    m_sourcePanels->addWidget(filePanel);
    m_sourcePanels->addWidget(buildPastePanel());
    m_sourcePanels->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Maximum);
    // Put in place before the status lines below it are made: Tab follows the order in which widgets
    // join the window.
    QWidget* conversations = buildConversationsPanel();
    conversations->setParent(screen);

    m_busy = wrappingLabel(screen, QStringLiteral("muted"));
    m_progress = new QProgressBar(screen);
    m_progress->setTextVisible(false);
    m_progress->setMaximumHeight(6);
    m_stop = new QPushButton(screen);
    auto* busyRow = new QHBoxLayout;
    busyRow->addWidget(m_busy, 1);
    busyRow->addWidget(m_stop);
    m_notice = wrappingLabel(screen);
    m_notice->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_openPdf = new QPushButton(Icons::icon(QStringLiteral("pdf")), QString(), screen);
    m_revealPdf = new QPushButton(Icons::icon(QStringLiteral("reveal")), QString(), screen);
    auto* noticeRow = new QHBoxLayout;
    noticeRow->addWidget(m_notice, 1);
    noticeRow->addWidget(m_openPdf, 0, Qt::AlignTop);
    noticeRow->addWidget(m_revealPdf, 0, Qt::AlignTop);
    m_fingerprintRow = new QWidget(screen);
    m_fingerprintTitle = new QLabel(m_fingerprintRow);
    m_fingerprint = new QLabel(m_fingerprintRow);
    m_fingerprint->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    m_fingerprint->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_copyFingerprint = new QPushButton(m_fingerprintRow);
    auto* fingerprintLayout = new QGridLayout(m_fingerprintRow);
    fingerprintLayout->setContentsMargins(0, 0, 0, 0);
    fingerprintLayout->setVerticalSpacing(2);
    fingerprintLayout->addWidget(m_fingerprintTitle, 0, 0);
    fingerprintLayout->addWidget(m_copyFingerprint, 0, 1);
    fingerprintLayout->addWidget(m_fingerprint, 1, 0, 1, 2);
    fingerprintLayout->setColumnStretch(0, 1);

    auto* backRow = new QHBoxLayout;
    backRow->addWidget(m_back);
    backRow->addStretch(1);
    auto* layout = new QVBoxLayout(screen);
    layout->setContentsMargins(28, 16, 28, 16);
    layout->setSpacing(8);
    layout->addLayout(backRow);
    layout->addWidget(m_sourceTitle);
    layout->addWidget(m_sourcePanels);
    layout->addWidget(conversations, 1);
    layout->addLayout(busyRow);
    layout->addWidget(m_progress);
    layout->addLayout(noticeRow);
    layout->addWidget(m_fingerprintRow);

    connect(m_back, &QPushButton::clicked, this, [this] {
        m_model.stop();
        m_screens->setCurrentIndex(SourcesScreen);
        m_model.saved().refresh();
        sourceButton(m_model.source()) ? sourceButton(m_model.source())->setFocus() : void();
    });
    connect(m_otherFile, &QPushButton::clicked, this, [this] { chooseSource(m_model.source()); });
    connect(m_stop, &QPushButton::clicked, &m_model, &ConversationsModel::stop);
    connect(m_openPdf, &QPushButton::clicked, &m_model, &ConversationsModel::openLastPdf);
    connect(m_revealPdf, &QPushButton::clicked, &m_model, &ConversationsModel::revealLastPdf);
    connect(m_copyFingerprint, &QPushButton::clicked, &m_model, &ConversationsModel::copyPdfFingerprint);
    return screen;
}

QWidget* ConversationsView::buildBackupPanel()
{
    auto* panel = new QWidget;
    m_backups = new QListWidget(panel);
    m_backups->setItemDelegate(new TwoLineDelegate(m_backups));
    m_backups->setProperty("rowsAreActions", true);
    m_backups->setMaximumHeight(170);
    m_backupsMessage = wrappingLabel(panel, QStringLiteral("muted"));

    m_passwordCard = new QFrame(panel);
    m_passwordCard->setObjectName(QStringLiteral("card"));
    m_passwordPrompt = wrappingLabel(m_passwordCard);
    m_password = new QLineEdit(m_passwordCard);
    m_password->setEchoMode(QLineEdit::Password);
    m_password->setClearButtonEnabled(true);
    m_passwordError = wrappingLabel(m_passwordCard);
    setTone(m_passwordError, Tone::Failure);
    m_remember = new WrappingCheckBox(m_passwordCard);
    m_unlock = new QPushButton(Icons::icon(QStringLiteral("lockopen"), Qt::white), QString(), m_passwordCard);
    m_unlock->setObjectName(QStringLiteral("primary"));
    auto* unlockRow = new QHBoxLayout;
    unlockRow->addWidget(m_password, 1);
    unlockRow->addWidget(m_unlock);
    auto* cardLayout = new QVBoxLayout(m_passwordCard);
    cardLayout->setContentsMargins(16, 12, 16, 12);
    cardLayout->setSpacing(8);
    cardLayout->addWidget(m_passwordPrompt);
    cardLayout->addLayout(unlockRow);
    cardLayout->addWidget(m_passwordError);
    cardLayout->addWidget(m_remember);

    m_store = new QComboBox(panel);
    auto* storeRow = new QHBoxLayout;
    storeRow->addWidget(m_store);
    storeRow->addStretch(1);

    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_backups);
    layout->addWidget(m_backupsMessage);
    layout->addWidget(m_passwordCard);
    layout->addLayout(storeRow);

    connect(m_backups, &QListWidget::activated, this,
            [this](const QModelIndex& index) { m_model.openBackup(index.row()); });
    const auto unlock = [this] {
        if (BackupSession* session = m_model.backupSession())
            session->open();
    };
    connect(m_password, &QLineEdit::textEdited, this, [this](const QString& text) {
        if (BackupSession* session = m_model.backupSession())
            session->setPassword(text);
        m_unlock->setEnabled(!text.isEmpty());
    });
    connect(m_password, &QLineEdit::returnPressed, this, unlock);
    connect(m_unlock, &QPushButton::clicked, this, unlock);
    connect(m_remember, &WrappingCheckBox::toggled, this, [this](bool remember) {
        if (BackupSession* session = m_model.backupSession())
            session->setRememberPassword(remember);
    });
    connect(m_store, &QComboBox::activated, this, [this](int store) {
        if (m_model.source() == ConversationsModel::ThisComputer)
            m_model.openThisComputer(store);
        else
            m_model.setBackupStore(store);
    });
    return panel;
}

QWidget* ConversationsView::buildPastePanel()
{
    auto* panel = new QWidget;
    m_paste = new QPlainTextEdit(panel);
    m_paste->setMaximumHeight(150);
    m_paste->setTabChangesFocus(true);
    m_readPaste = new QPushButton(panel);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(m_readPaste);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_paste);
    layout->addLayout(buttons);
    connect(m_readPaste, &QPushButton::clicked, this, [this] { m_model.openPasted(m_paste->toPlainText()); });
    return panel;
}

QWidget* ConversationsView::buildConversationsPanel()
{
    auto* splitter = new QSplitter(Qt::Horizontal);
    splitter->setChildrenCollapsible(false);

    auto* left = new QWidget(splitter);
    m_search = new QLineEdit(left);
    m_search->setClearButtonEnabled(true);
    m_search->addAction(Icons::icon(QStringLiteral("search")), QLineEdit::LeadingPosition);
    m_chatList = new QListView(left);
    m_chatList->setModel(&m_model.chatList());
    m_chatList->setItemDelegate(new TwoLineDelegate(m_chatList));
    m_chatList->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_chatsMessage = wrappingLabel(left, QStringLiteral("muted"));
    m_saveTicked = new QPushButton(Icons::icon(QStringLiteral("pdf")), QString(), left);
    auto* leftLayout = new QVBoxLayout(left);
    leftLayout->setContentsMargins(0, 0, 6, 0);
    leftLayout->addWidget(m_search);
    leftLayout->addWidget(m_chatList, 1);
    leftLayout->addWidget(m_chatsMessage);
    leftLayout->addWidget(m_saveTicked, 0, Qt::AlignRight);

    auto* right = new QWidget(splitter);
    m_period = new QComboBox(right);
    m_from = new QDateEdit(right);
    m_to = new QDateEdit(right);
    for (QDateEdit* day : {m_from, m_to}) {
        day->setCalendarPopup(true);
        day->setDate(QDate::currentDate());
    }
    auto* periodRow = new QHBoxLayout;
    periodRow->addWidget(m_period);
    periodRow->addWidget(m_from);
    periodRow->addWidget(m_to);
    periodRow->addStretch(1);
    m_ownerLabel = new QLabel(right);
    m_owner = new QComboBox(right);
    m_titleLabel = new QLabel(right);
    m_chatTitle = new QLineEdit(right);
    auto* form = new QGridLayout;
    form->addWidget(m_ownerLabel, 0, 0);
    form->addWidget(m_owner, 0, 1);
    form->addWidget(m_titleLabel, 1, 0);
    form->addWidget(m_chatTitle, 1, 1);
    form->setColumnStretch(1, 1);
    m_preview = new QPlainTextEdit(right);
    m_preview->setReadOnly(true);
    m_preview->setTabChangesFocus(true);
    m_save = new QPushButton(Icons::icon(QStringLiteral("pdf"), Qt::white), QString(), right);
    m_save->setObjectName(QStringLiteral("primary"));
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(6, 0, 0, 0);
    rightLayout->addLayout(periodRow);
    rightLayout->addLayout(form);
    rightLayout->addWidget(m_preview, 1);
    rightLayout->addWidget(m_save, 0, Qt::AlignRight);
    splitter->setStretchFactor(0, 2);
    splitter->setStretchFactor(1, 3);

    connect(m_search, &QLineEdit::textChanged, &m_model.chatList(), &ChatList::setQuery);
    connect(m_chatList->selectionModel(), &QItemSelectionModel::currentChanged, this, [this](const QModelIndex& index) {
        const qint64 id = index.data(ChatList::ChatIDRole).toLongLong();
        if (index.isValid() && id != m_model.chosenChat())
            m_model.choose(id);
    });
    connect(m_saveTicked, &QPushButton::clicked, &m_model, &ConversationsModel::saveTicked);
    connect(m_period, &QComboBox::activated, this, &ConversationsView::applyPeriod);
    connect(m_from, &QDateEdit::dateChanged, this, &ConversationsView::applyPeriod);
    connect(m_to, &QDateEdit::dateChanged, this, &ConversationsView::applyPeriod);
    connect(m_owner, &QComboBox::activated, this,
            [this](int index) { m_model.setOwner(m_owner->itemData(index).toString()); });
    connect(m_chatTitle, &QLineEdit::textEdited, &m_model, &ConversationsModel::setTitle);
    connect(m_save, &QPushButton::clicked, &m_model, &ConversationsModel::saveChosen);
    return splitter;
}

QPushButton* ConversationsView::sourceButton(ConversationsModel::Source source) const
{
    for (const auto& [kind, button] : m_sourceCards) {
        if (kind == source)
            return button;
    }
    return nullptr;
}

QString ConversationsView::pickFile(ConversationsModel::Source source)
{
    if (m_pickFile)
        return m_pickFile(source);
    QString filter;
    switch (source) {
    case ConversationsModel::DatabaseFile:
        filter = L("Bases de messages (%@)", QStringLiteral("*.db *.sqlite")) + QStringLiteral(" (*.db *.sqlite)");
        break;
    case ConversationsModel::WhatsAppExport:
        filter = L("Exports WhatsApp (%@)", QStringLiteral("*.txt *.zip")) + QStringLiteral(" (*.txt *.zip)");
        break;
    case ConversationsModel::TelegramExport:
        filter = L("Exports Telegram (%@)", QStringLiteral("result.json")) + QStringLiteral(" (*.json)");
        break;
    default: break;
    }
    return QFileDialog::getOpenFileName(this, ConversationsModel::sourceTitle(source),
                                        QStandardPaths::writableLocation(QStandardPaths::DownloadLocation), filter);
}

void ConversationsView::chooseSource(ConversationsModel::Source source)
{
    m_pendingSource = source;
    switch (source) {
    case ConversationsModel::Backup:
        // The list of backups shows until one is opened.
        m_model.closeSource();
        m_model.scanBackups();
        m_screens->setCurrentIndex(SourceScreen);
        m_sourcePanels->setCurrentIndex(BackupPanel);
        break;
    case ConversationsModel::ThisComputer:
        m_model.openThisComputer(m_store->currentIndex() < 0 ? 0 : m_store->currentIndex());
        m_screens->setCurrentIndex(SourceScreen);
        break;
    case ConversationsModel::Pasted:
        m_model.closeSource();
        m_screens->setCurrentIndex(SourceScreen);
        m_sourcePanels->setCurrentIndex(PastePanel);
        m_paste->setFocus();
        break;
    default: {
        const QString file = pickFile(source);
        if (file.isEmpty())
            return; // the dialog was cancelled: nothing changes
        openFile(source, file);
        return;
    }
    }
    render();
}

void ConversationsView::openFile(ConversationsModel::Source source, const QString& path)
{
    m_pendingSource = source;
    m_model.openFile(source, path);
    m_screens->setCurrentIndex(SourceScreen);
    render();
}

ConversationsModel::Source ConversationsView::sourceForFile(const QString& path)
{
    const QString name = QFileInfo(path).fileName().toLower();
    if (name.endsWith(QLatin1StringView(".json")))
        return ConversationsModel::TelegramExport;
    if (name.endsWith(QLatin1StringView(".zip")) || name.endsWith(QLatin1StringView(".txt")))
        return ConversationsModel::WhatsAppExport;
    if (name.endsWith(QLatin1StringView(".db")) || name.endsWith(QLatin1StringView(".sqlite")))
        return ConversationsModel::DatabaseFile;
    return ConversationsModel::NoSource;
}

namespace {

// The one local file a drop carries, if it is one.
QString droppedFile(const QMimeData* data)
{
    if (!data || !data->hasUrls() || data->urls().size() != 1 || !data->urls().constFirst().isLocalFile())
        return {};
    return data->urls().constFirst().toLocalFile();
}

} // namespace

void ConversationsView::dragEnterEvent(QDragEnterEvent* event)
{
    if (sourceForFile(droppedFile(event->mimeData())) != ConversationsModel::NoSource && m_model.busy().isEmpty())
        event->acceptProposedAction();
}

void ConversationsView::dropEvent(QDropEvent* event)
{
    const QString file = droppedFile(event->mimeData());
    const ConversationsModel::Source source = sourceForFile(file);
    if (source == ConversationsModel::NoSource || !m_model.busy().isEmpty())
        return;
    event->acceptProposedAction();
    openFile(source, file);
}

void ConversationsView::retranslate()
{
    m_title->setText(L("Garder une conversation"));
    m_subtitle->setText(L("Une conversation devient un PDF à imprimer, à archiver ou à confier, avec une empreinte qui "
                          "prouve qu'il n'a pas changé. Choisis d'où elle vient, ou dépose ici un export ou un fichier "
                          "de messages :"));
    for (qsizetype i = 0; i < m_sourceCards.size(); ++i) {
        const ConversationsModel::Source source = m_sourceCards[i].first;
        m_sourceTexts[i].first->setText(ConversationsModel::sourceTitle(source));
        m_sourceTexts[i].second->setText(ConversationsModel::sourceExplanation(source));
        m_sourceCards[i].second->setAccessibleName(ConversationsModel::sourceTitle(source));
        m_sourceCards[i].second->setAccessibleDescription(ConversationsModel::sourceExplanation(source));
    }
    m_savedTitle->setText(L("Mes conversations enregistrées"));
    m_openSaved->setText(shownText(L("Ouvrir")));
    m_revealSaved->setText(shownText(L("Afficher dans le Finder")));
    m_trashSaved->setText(shownText(L("Mettre à la corbeille")));

    m_back->setText(shownText(L("← Toutes les sources")));
    m_otherFile->setText(shownText(L("Choisir un autre fichier…")));
    m_passwordPrompt->setText(L("Cette sauvegarde est chiffrée : entre le mot de passe choisi pour les sauvegardes de "
                                "cet iPhone."));
    m_password->setPlaceholderText(L("Mot de passe de la sauvegarde"));
    m_remember->setText(L("Garder ce mot de passe dans le Trousseau de ce Mac (recommandé : tu ne le perdras plus)"));
    m_unlock->setText(shownText(L("Ouvrir la sauvegarde")));
    m_store->clear();
    m_store->addItems({L("Messages (iMessage, SMS)"), QStringLiteral("WhatsApp")});
    m_paste->setPlaceholderText(L("Colle ici la conversation copiée (Cmd+V)."));
    m_readPaste->setText(shownText(L("Lire le texte")));
    m_search->setPlaceholderText(L("Chercher une conversation ou un numéro"));
    m_period->clear();
    m_period->addItems({L("Tous les messages"), L("Les 30 derniers jours"), L("Du… au…")});
    m_ownerLabel->setText(L("Tes messages :"));
    m_titleLabel->setText(L("Titre du PDF :"));
    m_save->setText(shownText(L("Enregistrer en PDF")));
    m_stop->setText(shownText(L("Arrêter")));
    m_openPdf->setText(shownText(L("Ouvrir")));
    m_revealPdf->setText(shownText(L("Afficher dans le Finder")));
    m_fingerprintTitle->setText(L("Empreinte SHA-256 du PDF :"));
    m_copyFingerprint->setText(shownText(L("Copier l'empreinte")));
    render();
}

void ConversationsView::render()
{
    const ConversationsModel::Source source = m_model.source();
    const QString name = m_model.sourceName();
    m_sourceTitle->setText(name.isEmpty() ? ConversationsModel::sourceTitle(m_pendingSource) : name);
    switch (source) {
    case ConversationsModel::Backup:
    case ConversationsModel::ThisComputer: m_sourcePanels->setCurrentIndex(BackupPanel); break;
    case ConversationsModel::Pasted: m_sourcePanels->setCurrentIndex(PastePanel); break;
    case ConversationsModel::NoSource:
        if (m_pendingSource == ConversationsModel::Backup)
            m_sourcePanels->setCurrentIndex(BackupPanel);
        else if (m_pendingSource == ConversationsModel::Pasted)
            m_sourcePanels->setCurrentIndex(PastePanel);
        break;
    default: m_sourcePanels->setCurrentIndex(FilePanel); break;
    }
    // The panel shown takes its own height, not the tallest one's.
    for (int i = 0; i < m_sourcePanels->count(); ++i) {
        const QSizePolicy::Policy policy =
            i == m_sourcePanels->currentIndex() ? QSizePolicy::Preferred : QSizePolicy::Ignored;
        m_sourcePanels->widget(i)->setSizePolicy(policy, policy);
    }
    m_sourcePanels->updateGeometry();
    renderBackup();
    m_chatsMessage->setText(m_model.chatsMessage());
    m_chatsMessage->setVisible(!m_model.chatsMessage().isEmpty());
    renderPreview();
    renderStatus();
}

void ConversationsView::renderBackup()
{
    const BackupSession* session = m_model.backupSession();
    const bool backup =
        m_model.source() == ConversationsModel::Backup ||
        (m_model.source() == ConversationsModel::NoSource && m_pendingSource == ConversationsModel::Backup);
    // The list until a backup is open; then its password, or which store to read.
    m_backups->clear();
    for (const PhoneBackup& item : m_model.backups()) {
        auto* row = new QListWidgetItem(item.deviceName, m_backups);
        row->setData(ListRole::Detail, item.lastBackup ? Localizer::formatDateTime(*item.lastBackup) : QString());
        row->setData(ListRole::IconName, QStringLiteral("phone"));
    }
    m_backups->setVisible(backup && !session && !m_model.backups().isEmpty());
    QString message;
    if (backup && !session && !m_model.backupsScanning() && m_model.backups().isEmpty())
        message = L("Aucune sauvegarde d'iPhone sur cet ordinateur.");
    else if (backup && !session && !m_model.backups().isEmpty())
        message = L("Clique sur une sauvegarde pour lire ses conversations.");
    else if (session && session->phase() == BackupSession::Phase::Loading)
        message = L("Lecture de la sauvegarde… une grosse sauvegarde peut prendre une minute.");
    else if (session && session->phase() == BackupSession::Phase::Failed)
        message = session->failureMessage();
    m_backupsMessage->setText(message);
    m_backupsMessage->setVisible(!message.isEmpty());
    const bool asking = session && session->phase() == BackupSession::Phase::AskPassword;
    // The field takes the keyboard when the card appears and after a refused password, not at every
    // render: the user may have gone on to the check box.
    const bool refused =
        asking && !session->failureMessage().isEmpty() && m_passwordError->text() != session->failureMessage();
    const bool appeared = asking && m_passwordCard->isHidden();
    m_passwordCard->setVisible(asking);
    if (asking) {
        m_passwordError->setText(session->failureMessage());
        m_passwordError->setVisible(!session->failureMessage().isEmpty());
        m_remember->setChecked(session->rememberPassword());
        m_unlock->setEnabled(!m_password->text().isEmpty());
        if (refused)
            m_password->selectAll();
        if (isVisible() && (appeared || refused))
            m_password->setFocus();
    } else {
        m_passwordError->clear();
    }
    const bool ready = (session && session->phase() == BackupSession::Phase::Ready) ||
                       m_model.source() == ConversationsModel::ThisComputer;
    m_store->setVisible(ready);
    m_store->setCurrentIndex(m_model.backupStore());
}

void ConversationsView::renderPreview()
{
    const bool chosen = m_model.chosenChat() >= 0;
    // The row of the conversation shown is the current one, also when the model chose it.
    const QAbstractItemModel* chats = m_chatList->model();
    for (int row = 0; row < chats->rowCount(); ++row) {
        const QModelIndex index = chats->index(row, 0);
        if (index.data(ChatList::ChatIDRole).toLongLong() == m_model.chosenChat() &&
            m_chatList->currentIndex() != index)
            m_chatList->selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect);
    }
    // Once read, the pasted text gives its room to the conversation.
    m_paste->setMaximumHeight(m_model.chatList().chats().isEmpty() ? 150 : 72);
    m_preview->setPlainText(m_model.preview());
    m_owner->clear();
    m_owner->addItem(L("comme la source le dit"), QString());
    for (const QString& sender : m_model.senders())
        m_owner->addItem(sender, sender);
    m_owner->setCurrentIndex(std::max(0, m_owner->findData(m_model.owner())));
    m_owner->setEnabled(chosen && !m_model.senders().isEmpty());
    if (m_chatTitle->text() != m_model.title())
        m_chatTitle->setText(m_model.title());
    m_chatTitle->setEnabled(chosen);
    m_period->setCurrentIndex(m_model.period());
    const bool days = m_model.period() == ConversationsModel::Days;
    m_from->setVisible(days);
    m_to->setVisible(days);
    renderStatus();
}

void ConversationsView::applyPeriod()
{
    m_model.setPeriod(m_period->currentIndex(), m_from->date(), m_to->date());
}

void ConversationsView::renderStatus()
{
    const bool busy = !m_model.busy().isEmpty();
    m_busy->setText(m_model.busy());
    m_busy->setVisible(busy);
    m_progress->setVisible(busy);
    if (m_model.progress() < 0) {
        m_progress->setRange(0, 0);
    } else {
        m_progress->setRange(0, 1000);
        m_progress->setValue(int(m_model.progress() * 1000));
    }
    m_stop->setVisible(m_model.canStop());
    const bool failure = !m_model.errorNotice().isEmpty();
    m_notice->setText(failure ? m_model.errorNotice() : m_model.notice());
    m_notice->setVisible(!m_notice->text().isEmpty());
    setTone(m_notice, failure ? Tone::Failure : Tone::Success);
    const bool made = !m_model.lastPdf().isEmpty() && !busy;
    m_openPdf->setVisible(made && !m_model.pdfFingerprint().isEmpty());
    m_revealPdf->setVisible(made);
    m_fingerprint->setText(m_model.pdfFingerprint());
    m_fingerprintRow->setVisible(!m_model.pdfFingerprint().isEmpty());

    const qsizetype ticked = m_model.chatList().ticked().size();
    m_saveTicked->setText(ticked == 0 ? shownText(L("Coche des conversations pour les enregistrer ensemble"))
                                      : shownText(LN("Enregistrer les conversations cochées (%@)", ticked,
                                                     Localizer::locale().toString(ticked))));
    m_saveTicked->setEnabled(ticked > 0 && !busy);
    m_saveTicked->setVisible(m_model.chatList().chats().size() > 1);
    m_save->setEnabled(m_model.chosenChat() >= 0 && !busy && !m_model.preview().isEmpty());

    const bool any = m_model.saved().rowCount() > 0;
    m_savedEmpty->setText(L("Aucune conversation enregistrée pour l'instant : elles arrivent dans %@.",
                            QDir::toNativeSeparators(m_model.folder())));
    m_savedEmpty->setVisible(!any);
    m_savedList->setVisible(any);
    const bool row = m_savedList->currentIndex().isValid();
    for (QPushButton* button : {m_openSaved, m_revealSaved, m_trashSaved}) {
        button->setVisible(any);
        button->setEnabled(row);
    }
}

} // namespace nuvrel
