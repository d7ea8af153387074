#include "app/shell/MainWindow.h"

#include "app/shell/Icons.h"
#include "app/views/conversations/ConversationsView.h"
#include "app/views/duplicates/DuplicatesView.h"
#include "app/views/explore/ExplorePage.h"
#include "app/views/home/HomeView.h"
#include "app/views/lighten/LightenView.h"
#include "app/views/photobackup/PhotoBackupView.h"
#include "app/views/transfer/TransferView.h"
#include "app/views/vault/VaultView.h"
#include "app/views/welcome/WelcomeView.h"
#include "app/widgets/ShownText.h"
#include "l10n/L.h"
#include "l10n/LanguageStore.h"
#include "models/backups/BackupsModel.h"

#include <QAbstractButton>
#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QCheckBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLibraryInfo>
#include <QListWidget>
#include <QMenu>
#include <QRadioButton>
#include <QSettings>
#include <QStackedWidget>
#include <QToolButton>
#include <QTranslator>
#include <QVBoxLayout>

namespace nuvrel {

namespace {

constexpr int PageRole = Qt::UserRole + 1;

// Qt ships translations of its own texts under these names; Serbian has none, English needs none.
QString qtTranslationName(AppLanguage language)
{
    switch (language) {
    case AppLanguage::Fr: return QStringLiteral("qtbase_fr");
    case AppLanguage::De: return QStringLiteral("qtbase_de");
    case AppLanguage::Es: return QStringLiteral("qtbase_es");
    case AppLanguage::It: return QStringLiteral("qtbase_it");
    case AppLanguage::Pt: return QStringLiteral("qtbase_pt_BR");
    case AppLanguage::Ru: return QStringLiteral("qtbase_ru");
    default: return {};
    }
}

} // namespace

MainWindow::MainWindow(Services services, QWidget* parent)
    : QMainWindow(parent)
    , m_backups(std::make_unique<BackupsModel>())
    , m_root(new QStackedWidget(this))
    , m_welcome(new WelcomeView(this))
    , m_shell(new QWidget(this))
    , m_sidebar(new QListWidget(m_shell))
    , m_pages(new QStackedWidget(m_shell))
    , m_explore(new ExplorePage(*m_backups, services, m_pages))
{
    m_lightenModel = std::make_unique<AllegerModel>(services);
    m_lighten = new LightenView(*m_lightenModel, m_pages);
    m_registry.add(Page::Lighten, m_lighten, [this] { m_lighten->retranslate(); });
    m_conversationsModel = std::make_unique<ConversationsModel>(services);
    m_conversations = new ConversationsView(*m_conversationsModel, m_pages);
    m_registry.add(Page::Conversations, m_conversations, [this] { m_conversations->retranslate(); });
    // Each page, once: a new page is one line here.
    m_registry.add(Page::Explore, m_explore, [this] { m_explore->retranslate(); });
    m_duplicatesModel = std::make_unique<DuplicatesModel>(services);
    m_duplicates = new DuplicatesView(*m_duplicatesModel, m_pages);
    m_registry.add(Page::Duplicates, m_duplicates, [this] { m_duplicates->retranslate(); });
    m_vaultModel = std::make_unique<VaultModel>(services);
    m_vault = new VaultView(*m_vaultModel, m_pages);
    m_registry.add(Page::Vault, m_vault, [this] { m_vault->retranslate(); });
    m_transferModel = std::make_unique<TransferModel>(services);
    m_transfer = new TransferView(*m_transferModel, m_pages);
    m_registry.add(Page::Transfer, m_transfer, [this] { m_transfer->retranslate(); });
    m_photoBackupModel = std::make_unique<PhotoBackupModel>(services);
    m_photosLibraryModel = std::make_unique<PhotosLibraryBackup>(services);
    m_photoBackup = new PhotoBackupView(*m_photoBackupModel, *m_photosLibraryModel, m_pages);
    m_registry.add(Page::Backup, m_photoBackup, [this] { m_photoBackup->retranslate(); });
    m_home = new HomeView(m_registry.pages(), m_pages);
    m_registry.add(Page::Home, m_home, [this] { m_home->retranslate(); });

    setObjectName(QStringLiteral("mainWindow"));
    resize(1180, 760);
    setMinimumSize(960, 640);

    m_sidebar->setObjectName(QStringLiteral("sidebar"));
    m_sidebar->setFixedWidth(236);
    m_sidebar->setIconSize(QSize(20, 20));
    m_sidebar->setFrameShape(QFrame::NoFrame);
    m_sidebar->setSpacing(1);
    for (const Page page : m_registry.pages()) {
        auto* item = new QListWidgetItem(Icons::icon(iconName(page)), title(page), m_sidebar);
        item->setData(PageRole, QVariant::fromValue(page));
        item->setSizeHint(QSize(0, 36));
    }

    auto* languageButton = new QToolButton(m_shell);
    languageButton->setObjectName(QStringLiteral("languageButton"));
    languageButton->setIcon(Icons::icon(QStringLiteral("language")));
    languageButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    languageButton->setPopupMode(QToolButton::InstantPopup);
    languageButton->setAutoRaise(true);
    buildMenus();
    languageButton->setMenu(m_languageMenu);

    auto* side = new QWidget(m_shell);
    side->setObjectName(QStringLiteral("sidebarPane"));
    auto* sideLayout = new QVBoxLayout(side);
    sideLayout->setContentsMargins(0, 0, 0, 8);
    sideLayout->setSpacing(0);
    sideLayout->addWidget(m_sidebar, 1);
    sideLayout->addWidget(languageButton, 0, Qt::AlignLeft);
    side->setFixedWidth(236);
    side->setAutoFillBackground(true);

    for (const Page page : m_registry.pages())
        m_pages->addWidget(m_registry.view(page));
    auto* shellLayout = new QHBoxLayout(m_shell);
    shellLayout->setContentsMargins(0, 0, 0, 0);
    shellLayout->setSpacing(0);
    shellLayout->addWidget(side);
    shellLayout->addWidget(m_pages, 1);

    m_root->addWidget(m_welcome);
    m_root->addWidget(m_shell);
    setCentralWidget(m_root);

    connect(m_sidebar, &QListWidget::currentItemChanged, this, [this](QListWidgetItem* item) {
        if (item)
            setSection(item->data(PageRole).value<Page>());
    });
    connect(m_home, &HomeView::pageChosen, this, &MainWindow::setSection);
    connect(m_welcome, &WelcomeView::finished, this, &MainWindow::finishWelcome);
    connect(&LanguageStore::shared(), &LanguageStore::languageChanged, this, &MainWindow::retranslate);

    // Pages by keyboard: Ctrl+1, Ctrl+2…
    const QList<Page> pages = m_registry.pages();
    for (int i = 0; i < int(pages.size()) && i < 9; ++i) {
        auto* shortcut = new QAction(this);
        shortcut->setShortcut(QKeySequence(Qt::CTRL | Qt::Key(Qt::Key_1 + i)));
        const Page page = pages[i];
        connect(shortcut, &QAction::triggered, this, [this, page] { setSection(page); });
        addAction(shortcut);
    }
    m_quit = new QAction(this);
    m_quit->setShortcut(QKeySequence::Quit);
    connect(m_quit, &QAction::triggered, this, &QWidget::close);
    addAction(m_quit);

    m_root->setCurrentWidget(welcomeDone() ? m_shell : m_welcome);
    setSection(Page::Home);
    retranslate();
    m_backups->refresh();
}

MainWindow::~MainWindow() = default;

void MainWindow::buildMenus()
{
    m_languageMenu = new QMenu(this);
    m_languages = new QActionGroup(m_languageMenu);
    m_languages->setExclusive(true);
    for (const AppLanguage language : allAppLanguages) {
        QAction* action = m_languageMenu->addAction(displayName(language));
        action->setCheckable(true);
        action->setData(QVariant::fromValue(language));
        m_languages->addAction(action);
        connect(action, &QAction::triggered, this, [language] { LanguageStore::shared().setLanguage(language); });
    }
}

void MainWindow::keyPressEvent(QKeyEvent* event)
{
    // Return presses the button that has the keyboard, as in the desktop's own applications; Qt's
    // buttons answer only Space outside a dialog, and pass Return up to here.
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        auto* button = qobject_cast<QAbstractButton*>(focusWidget());
        if (button && button->isEnabled() && !qobject_cast<QCheckBox*>(button) &&
            !qobject_cast<QRadioButton*>(button)) {
            button->animateClick();
            return;
        }
    }
    QMainWindow::keyPressEvent(event);
}

bool MainWindow::welcomeDone() const
{
    return QSettings().value(welcomeDoneKey, false).toBool();
}

void MainWindow::finishWelcome()
{
    QSettings().setValue(welcomeDoneKey, true);
    m_root->setCurrentWidget(m_shell);
    m_sidebar->setFocus();
}

void MainWindow::setSection(Page page)
{
    if (!m_registry.contains(page))
        page = Page::Home; // a page this build does not have yet
    QWidget* target = m_registry.view(page);
    m_section = page;
    m_pages->setCurrentWidget(target);
    for (int row = 0; row < m_sidebar->count(); ++row) {
        if (m_sidebar->item(row)->data(PageRole).value<Page>() == m_section && m_sidebar->currentRow() != row)
            m_sidebar->setCurrentRow(row);
    }
}

void MainWindow::installQtTranslations()
{
    if (m_qtTranslator) {
        QCoreApplication::removeTranslator(m_qtTranslator.get());
        m_qtTranslator.reset();
    }
    const QString name = qtTranslationName(Localizer::resolved());
    if (name.isEmpty())
        return;
    auto translator = std::make_unique<QTranslator>();
    if (translator->load(name, QLibraryInfo::path(QLibraryInfo::TranslationsPath)) &&
        QCoreApplication::installTranslator(translator.get()))
        m_qtTranslator = std::move(translator);
}

void MainWindow::retranslate()
{
    installQtTranslations();
    QLocale::setDefault(Localizer::locale());
    setWindowTitle(QStringLiteral("Nuvrel"));
    for (int row = 0; row < m_sidebar->count(); ++row) {
        QListWidgetItem* item = m_sidebar->item(row);
        item->setText(title(item->data(PageRole).value<Page>()));
    }
    m_sidebar->setAccessibleName(L("Pages"));
    m_languageMenu->setTitle(L("Langue"));
    const AppLanguage chosen = LanguageStore::shared().language();
    for (QAction* action : m_languages->actions()) {
        const auto language = action->data().value<AppLanguage>();
        action->setText(shownText(displayName(language)));
        action->setChecked(language == chosen);
    }
    if (auto* button = m_shell->findChild<QToolButton*>(QStringLiteral("languageButton"))) {
        button->setText(shownText(L("Langue : %@", displayName(chosen))));
        button->setAccessibleName(L("Langue"));
    }
    m_welcome->retranslate();
    m_registry.retranslate();
}

} // namespace nuvrel
