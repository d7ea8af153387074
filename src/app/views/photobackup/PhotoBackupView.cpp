#include "app/views/photobackup/PhotoBackupView.h"

#include "l10n/L.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateEdit>
#include <QDir>
#include <QFileDialog>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QShowEvent>
#include <QVBoxLayout>

namespace nuvrel {

namespace {

QFrame* card(QVBoxLayout*& layout)
{
    auto* frame = new QFrame;
    frame->setObjectName(QStringLiteral("card"));
    layout = new QVBoxLayout(frame);
    layout->setContentsMargins(18, 16, 18, 16);
    layout->setSpacing(10);
    return frame;
}

constexpr std::array periods{Period::All, Period::Last30, Period::Last90, Period::ThisYear, Period::Custom};

} // namespace

PhotoBackupView::PhotoBackupView(PhotoBackupModel& import, PhotosLibraryBackup& library, QWidget* parent)
    : QWidget(parent)
    , m_import(import)
    , m_library(library)
    , m_title(new QLabel)
    , m_intro(new QLabel)
    , m_destination(new QLabel)
    , m_changeDestination(new QPushButton)
    , m_openDestination(new QPushButton)
    , m_importTitle(new QLabel)
    , m_stateTitle(new QLabel)
    , m_stateHint(new QLabel)
    , m_refresh(new QPushButton)
    , m_chooseSource(new QPushButton)
    , m_usePhone(new QPushButton)
    , m_photos(new QCheckBox)
    , m_videos(new QCheckBox)
    , m_period(new QComboBox)
    , m_from(new QDateEdit)
    , m_to(new QDateEdit)
    , m_summary(new QLabel)
    , m_copyAll(new QPushButton)
    , m_copySelection(new QPushButton)
    , m_stop(new QPushButton)
    , m_progress(new QProgressBar)
    , m_result(new QLabel)
    , m_refusedHint(new QLabel)
    , m_lastError(new QLabel)
    , m_notice(new QLabel)
    , m_forget(new QPushButton)
    , m_libraryTitle(new QLabel)
    , m_libraryText(new QLabel)
    , m_libraryPath(new QLabel)
    , m_chooseLibrary(new QPushButton)
    , m_libraryStart(new QPushButton)
    , m_libraryStop(new QPushButton)
    , m_libraryProgress(new QProgressBar)
    , m_libraryStatus(new QLabel)
    , m_fullTitle(new QLabel)
    , m_fullText(new QLabel)
    , m_fullCommand(new QLabel)
    , m_fullOpen(new QPushButton)
{
    m_title->setObjectName(QStringLiteral("pageTitle"));
    for (QLabel* heading : {m_importTitle, m_libraryTitle, m_fullTitle, m_stateTitle})
        heading->setObjectName(QStringLiteral("sectionTitle"));
    for (QLabel* text : {m_intro, m_destination, m_stateHint, m_summary, m_result, m_refusedHint, m_lastError, m_notice,
                         m_libraryText, m_libraryPath, m_libraryStatus, m_fullText, m_fullCommand}) {
        text->setWordWrap(true);
        text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    }
    for (QLabel* text : {m_intro, m_stateHint, m_summary, m_refusedHint, m_libraryText, m_libraryPath, m_fullText})
        text->setObjectName(QStringLiteral("muted"));
    m_fullCommand->setObjectName(QStringLiteral("command"));
    m_notice->setProperty("tone", QStringLiteral("error"));
    m_copyAll->setObjectName(QStringLiteral("primary"));
    m_libraryStart->setObjectName(QStringLiteral("primary"));
    for (QProgressBar* bar : {m_progress, m_libraryProgress}) {
        bar->setTextVisible(false);
        bar->setRange(0, 1000);
    }
    for (QDateEdit* day : {m_from, m_to}) {
        day->setCalendarPopup(true);
        day->setDate(QDate::currentDate());
    }

    // Where everything goes.
    auto* destinationRow = new QHBoxLayout;
    destinationRow->addWidget(m_destination, 1);
    destinationRow->addWidget(m_changeDestination);
    destinationRow->addWidget(m_openDestination);

    // From the phone.
    QVBoxLayout* importLayout = nullptr;
    QFrame* importCard = card(importLayout);
    importLayout->addWidget(m_importTitle);
    auto* stateRow = new QHBoxLayout;
    auto* stateTexts = new QVBoxLayout;
    stateTexts->setSpacing(2);
    stateTexts->addWidget(m_stateTitle);
    stateTexts->addWidget(m_stateHint);
    stateRow->addLayout(stateTexts, 1);
    stateRow->addWidget(m_refresh, 0, Qt::AlignTop);
    stateRow->addWidget(m_chooseSource, 0, Qt::AlignTop);
    stateRow->addWidget(m_usePhone, 0, Qt::AlignTop);
    importLayout->addLayout(stateRow);
    auto* choices = new QHBoxLayout;
    choices->addWidget(m_photos);
    choices->addWidget(m_videos);
    choices->addSpacing(12);
    choices->addWidget(m_period);
    choices->addWidget(m_from);
    choices->addWidget(m_to);
    choices->addStretch(1);
    importLayout->addLayout(choices);
    importLayout->addWidget(m_summary);
    auto* copyRow = new QHBoxLayout;
    copyRow->addWidget(m_copyAll);
    copyRow->addWidget(m_copySelection);
    copyRow->addWidget(m_stop);
    copyRow->addStretch(1);
    copyRow->addWidget(m_forget);
    importLayout->addLayout(copyRow);
    importLayout->addWidget(m_progress);
    importLayout->addWidget(m_result);
    importLayout->addWidget(m_lastError);
    importLayout->addWidget(m_refusedHint);
    importLayout->addWidget(m_notice);

    // From a library.
    QVBoxLayout* libraryLayout = nullptr;
    QFrame* libraryCard = card(libraryLayout);
    libraryLayout->addWidget(m_libraryTitle);
    libraryLayout->addWidget(m_libraryText);
    auto* libraryRow = new QHBoxLayout;
    libraryRow->addWidget(m_chooseLibrary);
    libraryRow->addWidget(m_libraryPath, 1);
    libraryRow->addWidget(m_libraryStart);
    libraryRow->addWidget(m_libraryStop);
    libraryLayout->addLayout(libraryRow);
    libraryLayout->addWidget(m_libraryProgress);
    libraryLayout->addWidget(m_libraryStatus);

    // Full backups: a notice, with the way to make one.
    QVBoxLayout* fullLayout = nullptr;
    QFrame* fullCard = card(fullLayout);
    fullLayout->addWidget(m_fullTitle);
    fullLayout->addWidget(m_fullText);
    fullLayout->addWidget(m_fullCommand);
    auto* fullRow = new QHBoxLayout;
    fullRow->addWidget(m_fullOpen);
    fullRow->addStretch(1);
    fullLayout->addLayout(fullRow);

    auto* content = new QWidget;
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(28, 24, 28, 16);
    layout->setSpacing(12);
    layout->addWidget(m_title);
    layout->addWidget(m_intro);
    layout->addLayout(destinationRow);
    layout->addWidget(importCard);
    layout->addWidget(libraryCard);
    layout->addWidget(fullCard);
    layout->addStretch(1);
    auto* scroll = new QScrollArea;
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setWidget(content);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(scroll);

    connect(m_refresh, &QPushButton::clicked, &m_import, &PhotoBackupModel::restart);
    connect(m_chooseSource, &QPushButton::clicked, this, [this] {
        const QString folder = pick(L("Choisis le dossier de l'iPhone ou de la carte (celui qui contient DCIM)"));
        if (!folder.isEmpty())
            m_import.useFolder(folder);
    });
    connect(m_usePhone, &QPushButton::clicked, &m_import, &PhotoBackupModel::usePhone);
    connect(m_changeDestination, &QPushButton::clicked, this, [this] {
        const QString folder = pick(L("Où veux-tu copier tes photos et vidéos ?"));
        if (!folder.isEmpty())
            m_import.setDestination(folder);
    });
    connect(m_openDestination, &QPushButton::clicked, &m_import, &PhotoBackupModel::openDestination);
    connect(m_photos, &QCheckBox::toggled, &m_import, &PhotoBackupModel::setIncludePhotos);
    connect(m_videos, &QCheckBox::toggled, &m_import, &PhotoBackupModel::setIncludeVideos);
    connect(m_period, &QComboBox::activated, this,
            [this](int index) { m_import.setPeriod(periods.at(size_t(index))); });
    connect(m_from, &QDateEdit::dateChanged, &m_import, &PhotoBackupModel::setFromDate);
    connect(m_to, &QDateEdit::dateChanged, &m_import, &PhotoBackupModel::setToDate);
    connect(m_copyAll, &QPushButton::clicked, this, [this] { m_import.begin(true); });
    connect(m_copySelection, &QPushButton::clicked, this, [this] { m_import.begin(false); });
    connect(m_stop, &QPushButton::clicked, &m_import, &PhotoBackupModel::cancel);
    connect(m_forget, &QPushButton::clicked, this, [this] {
        const QString question = L("Oublier ce qui a déjà été copié ?");
        const QString detail =
            L("La prochaine copie recopiera tous les fichiers absents du dossier de destination, même "
              "ceux copiés auparavant.");
        if (m_confirm
                ? m_confirm(question, detail)
                : QMessageBox::question(this, question, question + QStringLiteral("\n\n") + detail) == QMessageBox::Yes)
            m_import.forgetHistory();
    });
    connect(m_chooseLibrary, &QPushButton::clicked, this, [this] {
        const QString folder = pick(L("Choisis la photothèque Photos (un dossier « .photoslibrary »)"));
        if (!folder.isEmpty())
            m_library.setPackage(folder);
    });
    connect(m_libraryStart, &QPushButton::clicked, &m_library, &PhotosLibraryBackup::checkAndStart);
    connect(m_libraryStop, &QPushButton::clicked, &m_library, &PhotosLibraryBackup::cancel);
    connect(m_fullOpen, &QPushButton::clicked, &m_import, &PhotoBackupModel::openBackupsFolder);

    for (auto signal :
         {&PhotoBackupModel::stateChanged, &PhotoBackupModel::progressChanged, &PhotoBackupModel::resultChanged,
          &PhotoBackupModel::noticeChanged, &PhotoBackupModel::destinationChanged})
        connect(&m_import, signal, this, &PhotoBackupView::renderImport);
    connect(&m_import, &PhotoBackupModel::choicesChanged, this, &PhotoBackupView::renderChoices);
    connect(&m_library, &PhotosLibraryBackup::stateChanged, this, &PhotoBackupView::renderLibrary);
    retranslate();
}

void PhotoBackupView::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    // The phone is watched from the first time the page is seen: not at every start of the program.
    if (!m_started) {
        m_started = true;
        m_import.start();
    }
}

QString PhotoBackupView::pick(const QString& title)
{
    if (m_pickFolder)
        return m_pickFolder(title);
    return QFileDialog::getExistingDirectory(this, title, QDir::homePath());
}

void PhotoBackupView::retranslate()
{
    m_title->setText(L("Sauvegarde"));
    m_intro->setText(L("Copie tes photos et vidéos sur cet ordinateur, rangées par mois. Rien n'est supprimé de "
                       "l'iPhone, et chaque fichier n'est copié qu'une fois : la prochaine fois, seules les nouveautés "
                       "le seront."));
    m_changeDestination->setText(L("Changer…"));
    m_openDestination->setText(L("Ouvrir le dossier"));
    m_importTitle->setText(L("Depuis l'iPhone"));
    m_refresh->setText(L("Actualiser"));
    m_chooseSource->setText(L("Choisir un dossier…"));
    m_chooseSource->setToolTip(L("Un iPhone ouvert dans le gestionnaire de fichiers, ou la carte d'un appareil photo"));
    m_usePhone->setText(L("Revenir à l'iPhone branché"));
    m_photos->setText(L("Photos"));
    m_videos->setText(L("Vidéos"));
    m_period->clear();
    for (const Period period : periods)
        m_period->addItem(periodTitle(period));
    m_copyAll->setText(L("Copier tout l'iPhone"));
    m_copySelection->setText(L("Copier selon mes choix"));
    m_stop->setText(L("Arrêter"));
    m_forget->setText(L("Tout recopier (oublier l'historique)"));
    m_refusedHint->setText(
        L("L'iPhone a refusé ces fichiers. Sur l'iPhone : Réglages > Apps > Photos > tout en bas « Transférer vers Mac "
          "ou PC » > choisis « Fichier d'origine », puis rebranche l'iPhone et réessaie. La liste est dans "
          "Nuvrel-echecs.txt."));
    m_libraryTitle->setText(L("Depuis une photothèque"));
    m_libraryText->setText(
        L("Une photothèque de l'app Photos d'Apple (un dossier « .photoslibrary », copié sur un "
          "disque) : toutes ses photos et vidéos, avec leurs versions modifiées et les vidéos des Live "
          "Photos. Rien n'y est modifié."));
    m_chooseLibrary->setText(L("Choisir la photothèque…"));
    m_libraryStop->setText(L("Arrêter"));
    m_fullTitle->setText(L("Sauvegarde complète de l'iPhone"));
    m_fullText->setText(L("Les photos ne sont qu'une partie de l'iPhone. Pour tout garder (messages, réglages, apps), "
                          "fais aussi une sauvegarde complète avec le Finder : branche l'iPhone, choisis-le dans la "
                          "barre latérale du Finder, puis « Sauvegarder maintenant »."));
#ifdef Q_OS_MACOS
    m_fullCommand->hide();
#else
    m_fullCommand->setText(
        QStringLiteral("idevicebackup2 backup --full \"%1\"").arg(QDir::toNativeSeparators(m_import.backupsFolder())));
#endif
    m_fullOpen->setText(L("Ouvrir le Finder"));
    renderImport();
    renderChoices();
    renderLibrary();
}

void PhotoBackupView::renderImport()
{
    using State = PhotoBackupModel::State;
    const State state = m_import.state();
    const bool copying = state == State::Copying;
    m_destination->setText(L("Dossier de sauvegarde : %@", QDir::toNativeSeparators(m_import.destination())));
    m_changeDestination->setEnabled(!copying);
    m_stateTitle->setText(m_import.title());
    m_stateHint->setText(m_import.hint());
    m_refresh->setEnabled(!copying);
    m_chooseSource->setEnabled(!copying);
    m_usePhone->setVisible(!m_import.sourceFolder().isEmpty());
    m_usePhone->setEnabled(!copying);
    m_copyAll->setText(m_import.sourceFolder().isEmpty() ? L("Copier tout l'iPhone") : L("Tout copier"));
    m_copyAll->setEnabled(m_import.canCopy());
    m_copySelection->setEnabled(m_import.canCopy());
    m_stop->setVisible(copying);
    m_stop->setEnabled(!m_import.stoppedByUser());
    m_forget->setEnabled(!copying);
    m_progress->setVisible(copying);
    m_progress->setValue(int(m_import.progress() * 1000));
    m_result->setText(m_import.result());
    m_result->setVisible(!copying && !m_import.result().isEmpty());
    m_lastError->setText(m_import.lastError());
    m_lastError->setVisible(!copying && !m_import.lastError().isEmpty());
    m_refusedHint->setVisible(!copying && m_import.showRefusedHint());
    m_notice->setText(m_import.notice());
    m_notice->setVisible(!m_import.notice().isEmpty());
    for (QWidget* choice : std::initializer_list<QWidget*>{m_photos, m_videos, m_period, m_from, m_to})
        choice->setEnabled(!copying);
}

void PhotoBackupView::renderChoices()
{
    const QSignalBlocker blockPhotos(m_photos);
    const QSignalBlocker blockVideos(m_videos);
    const QSignalBlocker blockFrom(m_from);
    const QSignalBlocker blockTo(m_to);
    m_photos->setChecked(m_import.includePhotos());
    m_videos->setChecked(m_import.includeVideos());
    m_period->setCurrentIndex(int(std::find(periods.begin(), periods.end(), m_import.period()) - periods.begin()));
    const bool custom = m_import.period() == Period::Custom;
    m_from->setVisible(custom);
    m_to->setVisible(custom);
    if (m_import.fromDate().isValid())
        m_from->setDate(m_import.fromDate());
    if (m_import.toDate().isValid())
        m_to->setDate(m_import.toDate());
    m_summary->setText(m_import.selectionSummary());
    m_summary->setVisible(!m_import.selectionSummary().isEmpty());
}

void PhotoBackupView::renderLibrary()
{
    using State = PhotosLibraryBackup::State;
    const State state = m_library.state();
    const bool busy = m_library.busy();
    m_libraryPath->setText(m_library.package().isEmpty() ? QString() : QDir::toNativeSeparators(m_library.package()));
    m_chooseLibrary->setEnabled(!busy);
    const bool again = state == State::Finished || state == State::Failed || state == State::EmptyLibrary;
    m_libraryStart->setText(again ? L("Recommencer") : L("Tout copier"));
    m_libraryStart->setEnabled(!busy && !m_library.package().isEmpty());
    m_libraryStop->setVisible(busy);
    m_libraryProgress->setVisible(busy);
    m_libraryProgress->setValue(int(m_library.progress() * 1000));
    m_libraryStatus->setText(m_library.status());
    m_libraryStatus->setVisible(!m_library.status().isEmpty());
}

} // namespace nuvrel
