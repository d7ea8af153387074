#include "app/views/duplicates/DuplicatesView.h"

#include "app/shell/Page.h"
#include "app/widgets/IconLabel.h"
#include "l10n/L.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QResizeEvent>
#include <QScrollArea>
#include <QStyle>
#include <QVBoxLayout>

namespace nuvrel {

namespace {

constexpr int tileColumns = 4;
constexpr int pictureWidth = DuplicatesModel::thumbnailSide;
constexpr int pictureHeight = DuplicatesModel::thumbnailSide * 3 / 4;

QString folderOf(const QString& path)
{
    return QDir::toNativeSeparators(QFileInfo(path).absolutePath());
}

QString sizeAndDate(const DupFile& file)
{
    return Localizer::formatByteCount(file.size) + QStringLiteral(" · ") + Localizer::formatDateTime(file.created);
}

QLabel* mutedLabel(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setObjectName(QStringLiteral("muted"));
    return label;
}

void setMarkedLook(QWidget* tile, bool marked)
{
    tile->setProperty("marked", marked);
    tile->style()->unpolish(tile);
    tile->style()->polish(tile);
}

} // namespace

SimilarPreview::SimilarPreview(DuplicatesModel& model, const DupGroup& group, QWidget* parent)
    : QDialog(parent)
    , m_model(model)
    , m_group(group)
{
    setWindowTitle(L("Comparer les photos"));
    auto* panes = new QHBoxLayout;
    for (Pane* pane : {&m_left, &m_right}) {
        pane->choice = new QComboBox(this);
        for (const DupItem& item : m_group.items)
            pane->choice->addItem(QFileInfo(item.file.path).fileName());
        pane->picture = new QLabel(this);
        pane->picture->setAlignment(Qt::AlignCenter);
        pane->picture->setMinimumSize(side / 2, side / 2);
        pane->details = mutedLabel({}, this);
        pane->details->setWordWrap(true);
        auto* column = new QVBoxLayout;
        column->addWidget(pane->choice);
        column->addWidget(pane->picture, 1);
        column->addWidget(pane->details);
        panes->addLayout(column, 1);
        connect(pane->choice, &QComboBox::currentIndexChanged, this, [this, pane] { showChoice(*pane); });
    }
    m_right.choice->setCurrentIndex(std::min<int>(1, int(m_group.items.size()) - 1));
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(panes, 1);
    layout->addWidget(buttons);

    connect(&m_model, &DuplicatesModel::imageReady, this, [this](const QString& path, int size, const QImage& image) {
        if (size != side)
            return;
        for (Pane* pane : {&m_left, &m_right}) {
            const int index = pane->choice->currentIndex();
            if (index < 0 || m_group.items[index].file.path != path)
                continue;
            pane->image = image;
            if (image.isNull())
                pane->picture->setText(L("Aperçu impossible"));
            fit(*pane);
        }
    });
    showChoice(m_left);
    showChoice(m_right);
    resize(side * 2 + 60, side + 120);
}

void SimilarPreview::showChoice(Pane& pane)
{
    const int index = pane.choice->currentIndex();
    if (index < 0)
        return;
    const DupFile& file = m_group.items[index].file;
    pane.details->setText(folderOf(file.path) + u'\n' + sizeAndDate(file));
    pane.image = QImage();
    pane.picture->setPixmap({});
    pane.picture->setText(L("Chargement…"));
    m_model.requestImage(file.path, side);
}

void SimilarPreview::fit(Pane& pane)
{
    if (pane.image.isNull())
        return;
    pane.picture->setPixmap(QPixmap::fromImage(pane.image.scaled(pane.picture->size().boundedTo(pane.image.size()),
                                                                 Qt::KeepAspectRatio, Qt::SmoothTransformation)));
}

void SimilarPreview::resizeEvent(QResizeEvent* event)
{
    QDialog::resizeEvent(event);
    fit(m_left);
    fit(m_right);
}

DuplicatesView::DuplicatesView(DuplicatesModel& model, QWidget* parent)
    : QWidget(parent)
    , m_model(model)
    , m_title(new QLabel)
    , m_subtitle(new QLabel)
    , m_folder(new QLabel)
    , m_choose(new QPushButton)
    , m_scan(new QPushButton)
    , m_stop(new QPushButton)
    , m_progress(new QProgressBar)
    , m_progressText(new QLabel)
    , m_summary(new QLabel)
    , m_empty(new QLabel)
    , m_notice(new QLabel)
    , m_trash(new QPushButton)
{
    m_title->setObjectName(QStringLiteral("pageTitle"));
    m_subtitle->setObjectName(QStringLiteral("muted"));
    m_subtitle->setWordWrap(true);
    m_folder->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_folder->setWordWrap(true);
    m_scan->setObjectName(QStringLiteral("primary"));
    m_trash->setObjectName(QStringLiteral("primary"));
    m_progress->setRange(0, 1000);
    m_progress->setTextVisible(false);
    m_progressText->setObjectName(QStringLiteral("muted"));
    m_summary->setObjectName(QStringLiteral("sectionTitle"));
    m_summary->setWordWrap(true);
    m_empty->setObjectName(QStringLiteral("muted"));
    m_empty->setWordWrap(true);
    m_notice->setWordWrap(true);
    m_notice->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto* content = new QWidget;
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(28, 24, 28, 24);
    layout->setSpacing(10);
    layout->addWidget(m_title);
    layout->addWidget(m_subtitle);
    auto* folderRow = new QHBoxLayout;
    folderRow->addWidget(new IconLabel(QStringLiteral("folder"), 20, content));
    folderRow->addWidget(m_folder, 1);
    folderRow->addWidget(m_choose);
    folderRow->addWidget(m_scan);
    folderRow->addWidget(m_stop);
    layout->addLayout(folderRow);
    layout->addWidget(m_progress);
    layout->addWidget(m_progressText);
    layout->addWidget(m_summary);
    layout->addWidget(m_empty);
    for (Section* part : {&m_identical, &m_similar}) {
        part->title = new QLabel(content);
        part->title->setObjectName(QStringLiteral("sectionTitle"));
        part->cards = new QWidget(content);
        part->layout = new QVBoxLayout(part->cards);
        part->layout->setContentsMargins(0, 0, 0, 0);
        part->layout->setSpacing(10);
        part->more = new QPushButton(content);
        part->more->setObjectName(QStringLiteral("link"));
        layout->addSpacing(6);
        layout->addWidget(part->title);
        layout->addWidget(part->cards);
        layout->addWidget(part->more, 0, Qt::AlignLeft);
    }
    layout->addStretch(1);

    auto* scroll = new QScrollArea;
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setWidget(content);
    // Tab goes through the cards, which the area scrolls into view; the area itself takes no focus.
    scroll->setFocusPolicy(Qt::NoFocus);
    auto* bottom = new QHBoxLayout;
    bottom->setContentsMargins(28, 8, 28, 16);
    bottom->addWidget(m_notice, 1);
    bottom->addWidget(m_trash, 0, Qt::AlignRight | Qt::AlignBottom);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->setSpacing(0);
    outer->addWidget(scroll, 1);
    outer->addLayout(bottom);

    connect(m_choose, &QPushButton::clicked, this, &DuplicatesView::chooseFolder);
    connect(m_scan, &QPushButton::clicked, &m_model, &DuplicatesModel::scan);
    connect(m_stop, &QPushButton::clicked, &m_model, &DuplicatesModel::stop);
    connect(m_trash, &QPushButton::clicked, this, &DuplicatesView::confirmTrash);
    connect(m_identical.more, &QPushButton::clicked, this, [this] { showMore(DupGroup::Kind::Identical); });
    connect(m_similar.more, &QPushButton::clicked, this, [this] { showMore(DupGroup::Kind::Similar); });
    connect(&m_model, &DuplicatesModel::folderChanged, this, &DuplicatesView::render);
    connect(&m_model, &DuplicatesModel::busyChanged, this, &DuplicatesView::render);
    connect(&m_model, &DuplicatesModel::progressChanged, this, &DuplicatesView::renderProgress);
    connect(&m_model, &DuplicatesModel::marksChanged, this, &DuplicatesView::render);
    connect(&m_model, &DuplicatesModel::noticeChanged, this, &DuplicatesView::render);
    connect(&m_model, &DuplicatesModel::groupsChanged, this, &DuplicatesView::rebuildGroups);
    connect(&m_model, &DuplicatesModel::imageReady, this, [this](const QString& path, int side, const QImage& image) {
        if (side == DuplicatesModel::thumbnailSide)
            setPicture(path, image);
    });
    retranslate();
}

void DuplicatesView::retranslate()
{
    m_title->setText(title(Page::Duplicates));
    m_subtitle->setText(L("Trouve les fichiers identiques et les photos qui se ressemblent dans un dossier. Le plus "
                          "ancien de chaque groupe est gardé ; ce que tu coches va à la Corbeille, d'où tu peux le "
                          "récupérer."));
    m_choose->setText(L("Choisir un dossier…"));
    m_scan->setText(L("Rechercher"));
    m_stop->setText(L("Arrêter"));
    m_identical.title->setText(L("Fichiers identiques"));
    m_similar.title->setText(L("Photos qui se ressemblent"));
    rebuildGroups();
}

void DuplicatesView::renderProgress()
{
    const bool busy = m_model.scanning() || m_model.trashing();
    m_progress->setVisible(busy);
    m_progress->setValue(int(m_model.progress() * 1000));
    m_progressText->setVisible(busy && !m_model.progressText().isEmpty());
    m_progressText->setText(m_model.progressText());
}

void DuplicatesView::render()
{
    const QString folder = m_model.folder();
    m_folder->setText(folder.isEmpty() ? L("Aucun dossier choisi") : QDir::toNativeSeparators(folder));
    const bool scanning = m_model.scanning();
    const bool busy = scanning || m_model.trashing();
    m_choose->setEnabled(!busy);
    m_scan->setVisible(!busy);
    m_scan->setEnabled(!folder.isEmpty());
    m_stop->setVisible(busy);
    m_stop->setEnabled(!m_model.stopping());
    renderProgress();

    m_summary->setText(m_model.summary());
    m_summary->setVisible(m_model.scanned());
    m_empty->setVisible(!m_model.scanned() && !scanning);
    m_empty->setText(L("Choisis un dossier, puis lance la recherche. Rien n'est touché sans ton accord."));

    m_trash->setText(m_model.trashButtonText());
    m_trash->setEnabled(!busy && m_model.markedCount() > 0);
    m_trash->setVisible(m_model.scanned());
    const QString notice = m_model.notice();
    m_notice->setText(notice);
    m_notice->setVisible(!notice.isEmpty());

    // The ticks as the model holds them (a refused tick springs back), and "à garder" on what stays:
    // the oldest while nothing is ticked, else every file left unticked.
    for (auto it = m_checks.cbegin(); it != m_checks.cend(); ++it) {
        const auto kind = DupGroup::Kind(it.key().first);
        const auto [group, item] = it.key().second;
        const QList<DupGroup>& groups = m_model.groups(kind);
        if (group >= groups.size() || item >= groups[group].items.size())
            continue;
        const QList<DupItem>& items = groups[group].items;
        const bool marked = items[item].marked;
        if (it.value()->isChecked() != marked) {
            const QSignalBlocker blocker(it.value());
            it.value()->setChecked(marked);
        }
        it.value()->setEnabled(!busy);
        if (QWidget* tile = it.value()->parentWidget(); tile->property("marked").toBool() != marked)
            setMarkedLook(tile, marked);
        const bool anyMarked =
            std::any_of(items.cbegin(), items.cend(), [](const DupItem& each) { return each.marked; });
        if (QLabel* keep = m_keepBadges.value(it.key()))
            keep->setVisible(anyMarked ? !marked : item == 0);
    }
}

void DuplicatesView::rebuildGroups()
{
    m_checks.clear();
    m_keepBadges.clear();
    m_pictures.clear();
    for (Section* part : {&m_identical, &m_similar}) {
        while (QLayoutItem* item = part->layout->takeAt(0)) {
            delete item->widget();
            delete item;
        }
        part->shown = 0;
    }
    appendCards(DupGroup::Kind::Identical);
    appendCards(DupGroup::Kind::Similar);
    render();
}

void DuplicatesView::showMore(DupGroup::Kind kind)
{
    appendCards(kind);
    render();
}

void DuplicatesView::appendCards(DupGroup::Kind kind)
{
    Section& part = section(kind);
    const QList<DupGroup>& groups = m_model.groups(kind);
    const int until = std::min<int>(int(groups.size()), part.shown + groupsPerPage);
    for (int i = part.shown; i < until; ++i)
        part.layout->addWidget(makeCard(kind, i));
    part.shown = until;
    part.title->setVisible(!groups.isEmpty());
    part.cards->setVisible(!groups.isEmpty());
    const int rest = int(groups.size()) - part.shown;
    part.more->setVisible(rest > 0);
    part.more->setText(LN("Afficher %@ groupe(s) de plus", std::min(rest, groupsPerPage),
                          Localizer::locale().toString(std::min(rest, groupsPerPage))));
}

QWidget* DuplicatesView::makeCard(DupGroup::Kind kind, int index)
{
    const DupGroup& group = m_model.groups(kind)[index];
    auto* card = new QFrame;
    card->setObjectName(QStringLiteral("card"));
    auto* layout = new QVBoxLayout(card);
    layout->setContentsMargins(14, 12, 14, 12);
    auto* header = new QHBoxLayout;
    const qint64 size = group.items.constFirst().file.size;
    const QString heading = kind == DupGroup::Kind::Identical
                                ? LN("%@ copie(s) de %@", group.items.size(),
                                     Localizer::locale().toString(group.items.size()), Localizer::formatByteCount(size))
                                : LN("%@ photo(s) qui se ressemblent", group.items.size(),
                                     Localizer::locale().toString(group.items.size()));
    auto* label = new QLabel(heading, card);
    label->setStyleSheet(QStringLiteral("font-weight: 600;"));
    header->addWidget(label, 1);
    if (kind == DupGroup::Kind::Similar) {
        auto* compare = new QPushButton(L("Comparer"), card);
        connect(compare, &QPushButton::clicked, this, [this, index] {
            if (index >= m_model.groups(DupGroup::Kind::Similar).size())
                return;
            auto* preview = new SimilarPreview(m_model, m_model.groups(DupGroup::Kind::Similar)[index], this);
            preview->setAttribute(Qt::WA_DeleteOnClose);
            preview->open();
        });
        header->addWidget(compare);
    }
    layout->addLayout(header);
    auto* tiles = new QGridLayout;
    tiles->setSpacing(10);
    for (int i = 0; i < group.items.size(); ++i)
        tiles->addWidget(makeTile(kind, index, i, card), i / tileColumns, i % tileColumns, Qt::AlignTop);
    for (int column = 0; column < tileColumns; ++column)
        tiles->setColumnStretch(column, 1);
    layout->addLayout(tiles);
    return card;
}

QWidget* DuplicatesView::makeTile(DupGroup::Kind kind, int group, int item, QWidget* parent)
{
    const DupItem& entry = m_model.groups(kind)[group].items[item];
    const DupFile& file = entry.file;
    auto* tile = new QFrame(parent);
    tile->setObjectName(QStringLiteral("dupTile"));
    auto* layout = new QVBoxLayout(tile);
    layout->setContentsMargins(8, 8, 8, 8);
    layout->setSpacing(4);

    if (DuplicateScanner::isImage(file.path)) {
        auto* picture = new QLabel(tile);
        picture->setFixedSize(pictureWidth, pictureHeight);
        picture->setAlignment(Qt::AlignCenter);
        layout->addWidget(picture);
        m_pictures.insert(file.path, picture);
        const QImage cached = m_model.cachedImage(file.path, DuplicatesModel::thumbnailSide);
        if (cached.isNull())
            m_model.requestImage(file.path, DuplicatesModel::thumbnailSide);
        else
            setPicture(file.path, cached);
    } else {
        layout->addWidget(new IconLabel(QStringLiteral("file"), 40, tile));
    }

    auto* check = new QCheckBox(QFileInfo(file.path).fileName(), tile);
    check->setChecked(entry.marked);
    check->setToolTip(QDir::toNativeSeparators(file.path));
    check->setAccessibleDescription(L("À mettre à la Corbeille"));
    layout->addWidget(check);
    m_checks.insert({int(kind), {group, item}}, check);
    auto* keep = new QLabel(L("à garder"), tile);
    keep->setObjectName(QStringLiteral("keepBadge"));
    keep->setVisible(false); // render() says which files stay
    layout->addWidget(keep, 0, Qt::AlignLeft);
    m_keepBadges.insert({int(kind), {group, item}}, keep);
    auto* folder = mutedLabel(folderOf(file.path), tile);
    folder->setWordWrap(true);
    folder->setToolTip(folderOf(file.path));
    layout->addWidget(folder);
    layout->addWidget(mutedLabel(sizeAndDate(file), tile));

    auto* actions = new QHBoxLayout;
    auto* openButton = new QPushButton(L("Ouvrir"), tile);
    auto* revealButton = new QPushButton(L("Afficher dans le dossier"), tile);
    for (QPushButton* button : {openButton, revealButton}) {
        button->setObjectName(QStringLiteral("link"));
        actions->addWidget(button);
    }
    actions->addStretch(1);
    layout->addLayout(actions);
    connect(openButton, &QPushButton::clicked, this, [this, path = file.path] { m_model.open(path); });
    connect(revealButton, &QPushButton::clicked, this, [this, path = file.path] { m_model.reveal(path); });
    connect(check, &QCheckBox::toggled, this, [this, kind, group, item, check](bool marked) {
        if (!m_model.setMarked(kind, group, item, marked)) {
            const QSignalBlocker blocker(check);
            check->setChecked(!marked);
        }
    });
    setMarkedLook(tile, entry.marked);
    return tile;
}

void DuplicatesView::setPicture(const QString& path, const QImage& image)
{
    if (image.isNull())
        return; // the tile keeps its empty frame
    for (QLabel* picture : m_pictures.values(path)) {
        picture->setPixmap(QPixmap::fromImage(
            image.scaled(QSize(pictureWidth, pictureHeight), Qt::KeepAspectRatio, Qt::SmoothTransformation)));
    }
}

QCheckBox* DuplicatesView::checkBox(DupGroup::Kind kind, int group, int item) const
{
    return m_checks.value({int(kind), {group, item}});
}

void DuplicatesView::chooseFolder()
{
    QString folder;
    if (m_pickFolder)
        folder = m_pickFolder();
    else
        folder = QFileDialog::getExistingDirectory(this, L("Choisir le dossier où chercher les doublons"),
                                                   m_model.pickerFolder());
    if (folder.isEmpty())
        return;
    m_model.setFolder(folder);
    m_model.scan();
}

void DuplicatesView::confirmTrash()
{
    const int files = m_model.markedCount();
    const qint64 bytes = m_model.recoverable();
    if (files == 0)
        return;
    bool confirmed = false;
    if (m_confirm) {
        confirmed = m_confirm(files, bytes);
    } else {
        QMessageBox box(QMessageBox::Question, L("Mettre à la Corbeille ?"),
                        L("Les fichiers cochés seront envoyés à la Corbeille macOS, récupérables normalement "
                          "jusqu'à ce qu'elle soit vidée."),
                        QMessageBox::NoButton, this);
        box.setInformativeText(L("%@ seront libérés. Chaque fichier est vérifié juste avant : s'il a changé depuis "
                                 "la recherche, il reste en place.",
                                 Localizer::formatByteCount(bytes)));
        QPushButton* accept = box.addButton(L("Mettre à la Corbeille"), QMessageBox::AcceptRole);
        box.addButton(L("Annuler"), QMessageBox::RejectRole);
        box.setDefaultButton(accept);
        box.exec();
        confirmed = box.clickedButton() == accept;
    }
    if (confirmed)
        m_model.moveMarkedToTrash();
}

} // namespace nuvrel
