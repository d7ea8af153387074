#include "app/views/lighten/LightenView.h"

#include "app/shell/Icons.h"
#include "app/shell/WindowStyler.h"
#include "app/widgets/IconLabel.h"
#include "app/widgets/Layouts.h"
#include "app/widgets/WrappingCheckBox.h"
#include "l10n/L.h"

#include <QApplication>
#include <QButtonGroup>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QListView>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QScrollArea>
#include <QSpinBox>
#include <QStyle>
#include <QStyledItemDelegate>
#include <QVBoxLayout>

namespace nuvrel {

namespace {

constexpr int padding = 8;
constexpr int thumbnailSide = 36;
constexpr int progressHeight = 6;

QStringList localFiles(const QMimeData* data)
{
    QStringList paths;
    if (!data || !data->hasUrls())
        return paths;
    for (const QUrl& url : data->urls()) {
        if (url.isLocalFile())
            paths.append(url.toLocalFile());
    }
    return paths;
}

QString iconOf(LightenRoute route)
{
    switch (route) {
    case LightenRoute::Photo: return QStringLiteral("photo");
    case LightenRoute::Video: return QStringLiteral("video");
    case LightenRoute::Pdf: return QStringLiteral("pdf");
    case LightenRoute::Other: return QStringLiteral("file");
    }
    return QStringLiteral("file");
}

// A row: the kind's icon, the name, what became of it (in red when it failed), and a progress bar
// while a video is worked.
class LightenRowDelegate final : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        QStyleOptionViewItem opt = option;
        initStyleOption(&opt, index);
        const QString name = opt.text;
        opt.text.clear();
        opt.icon = QIcon();
        const QWidget* widget = option.widget;
        QStyle* style = widget ? widget->style() : QApplication::style();
        style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);

        const bool selected = opt.state & QStyle::State_Selected;
        const auto state = LightenItem::State(index.data(LightenList::StateRole).toInt());
        QRect area = opt.rect.adjusted(padding, padding / 2, -padding, -padding / 2);
        const QRect iconRect(area.left(), area.center().y() - thumbnailSide / 2, thumbnailSide, thumbnailSide);
        const QImage thumbnail = index.data(Qt::DecorationRole).value<QImage>();
        if (!thumbnail.isNull()) {
            // The picture's middle, filling the square, with rounded corners.
            const QImage filled = thumbnail.scaled(iconRect.size() * painter->device()->devicePixelRatioF(),
                                                   Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
            const QRectF source((filled.width() - iconRect.width() * painter->device()->devicePixelRatioF()) / 2,
                                (filled.height() - iconRect.height() * painter->device()->devicePixelRatioF()) / 2,
                                iconRect.width() * painter->device()->devicePixelRatioF(),
                                iconRect.height() * painter->device()->devicePixelRatioF());
            painter->save();
            painter->setRenderHint(QPainter::Antialiasing);
            QPainterPath clip;
            clip.addRoundedRect(iconRect, 4, 4);
            painter->setClipPath(clip);
            painter->drawImage(QRectF(iconRect), filled, source);
            painter->restore();
        } else {
            Icons::icon(iconOf(LightenRoute(index.data(LightenList::RouteRole).toInt())))
                .paint(painter, iconRect.adjusted(4, 4, -4, -4), Qt::AlignCenter,
                       selected ? QIcon::Selected : QIcon::Normal);
        }
        area.setLeft(iconRect.right() + padding + 4);

        QFont nameFont = opt.font;
        nameFont.setWeight(QFont::DemiBold);
        const QFontMetrics nameMetrics(nameFont);
        const QFontMetrics statusMetrics(opt.font);
        const QString status = index.data(LightenList::StatusRole).toString();
        const double progress = index.data(LightenList::ProgressRole).toDouble();
        const int height = nameMetrics.height() + 2 + statusMetrics.height();
        int y = area.center().y() - height / 2;

        painter->save();
        const QColor text = opt.palette.color(QPalette::Normal, selected ? QPalette::HighlightedText : QPalette::Text);
        painter->setFont(nameFont);
        painter->setPen(text);
        painter->drawText(QRect(area.left(), y, area.width(), nameMetrics.height()), Qt::AlignLeft | Qt::AlignVCenter,
                          nameMetrics.elidedText(name, Qt::ElideMiddle, area.width()));
        y += nameMetrics.height() + 2;
        QColor detail = text;
        if (state == LightenItem::State::Failed && !selected)
            detail = WindowStyler::errorColour();
        else
            detail.setAlphaF(selected ? 0.85f : 0.62f);
        painter->setFont(opt.font);
        painter->setPen(detail);
        int statusWidth = area.width();
        if (state == LightenItem::State::Working && progress >= 0)
            statusWidth = area.width() / 2 - padding;
        painter->drawText(QRect(area.left(), y, statusWidth, statusMetrics.height()), Qt::AlignLeft | Qt::AlignVCenter,
                          statusMetrics.elidedText(status, Qt::ElideRight, statusWidth));
        if (state == LightenItem::State::Working && progress >= 0) {
            // A thin bar in the row's right half, in the palette's accent.
            const QRect track(area.left() + area.width() / 2, y + (statusMetrics.height() - progressHeight) / 2,
                              area.width() / 2, progressHeight);
            QColor trackColour = text;
            trackColour.setAlphaF(0.15f);
            painter->setPen(Qt::NoPen);
            painter->setRenderHint(QPainter::Antialiasing);
            painter->setBrush(trackColour);
            painter->drawRoundedRect(track, 3, 3);
            painter->setBrush(opt.palette.color(QPalette::Highlight));
            QRect done = track;
            done.setWidth(std::max(progressHeight, int(track.width() * std::clamp(progress, 0.0, 1.0))));
            painter->drawRoundedRect(done, 3, 3);
        }
        painter->restore();
    }

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const override
    {
        QFont nameFont = option.font;
        nameFont.setWeight(QFont::DemiBold);
        const int text = QFontMetrics(nameFont).height() + 2 + QFontMetrics(option.font).height();
        return {240, std::max(text, thumbnailSide) + padding * 2};
    }
};

} // namespace

DropZone::DropZone(QWidget* parent)
    : QFrame(parent)
{
    setObjectName(QStringLiteral("dropZone"));
    setAcceptDrops(true);
    setProperty("highlighted", false);
}

void DropZone::setHighlighted(bool highlighted)
{
    if (highlighted == m_highlighted)
        return;
    m_highlighted = highlighted;
    // The window's style sheet draws the highlight: a change of light or dark follows it.
    setProperty("highlighted", highlighted);
    style()->unpolish(this);
    style()->polish(this);
    update();
}

void DropZone::dragEnterEvent(QDragEnterEvent* event)
{
    if (localFiles(event->mimeData()).isEmpty())
        return;
    event->acceptProposedAction();
    setHighlighted(true);
}

void DropZone::dragMoveEvent(QDragMoveEvent* event)
{
    if (!localFiles(event->mimeData()).isEmpty())
        event->acceptProposedAction();
}

void DropZone::dragLeaveEvent(QDragLeaveEvent* event)
{
    setHighlighted(false);
    QFrame::dragLeaveEvent(event);
}

void DropZone::dropEvent(QDropEvent* event)
{
    setHighlighted(false);
    const QStringList paths = localFiles(event->mimeData());
    if (paths.isEmpty())
        return;
    event->acceptProposedAction();
    Q_EMIT dropped(paths);
}

LightenView::LightenView(AllegerModel& model, QWidget* parent)
    : QWidget(parent)
    , m_model(model)
{
    auto* content = new QWidget;
    m_title = new QLabel(content);
    m_title->setObjectName(QStringLiteral("pageTitle"));
    m_subtitle = wrappingLabel(content, QStringLiteral("muted"));

    // The drop area, with the two ways to pick.
    m_dropZone = new DropZone(content);
    auto* dropIcon = new IconLabel(QStringLiteral("lighten"), 36, m_dropZone);
    m_dropText = wrappingLabel(m_dropZone);
    m_dropText->setAlignment(Qt::AlignCenter);
    m_choose = new QPushButton(Icons::icon(QStringLiteral("folder")), QString(), m_dropZone);
    m_choose->setObjectName(QStringLiteral("primary"));
    m_photos = new QPushButton(Icons::icon(QStringLiteral("photo")), QString(), m_dropZone);
    auto* pickers = new QHBoxLayout;
    pickers->addStretch(1);
    pickers->addWidget(m_choose);
    pickers->addWidget(m_photos);
    pickers->addStretch(1);
    auto* dropLayout = new QVBoxLayout(m_dropZone);
    dropLayout->setContentsMargins(20, 18, 20, 18);
    dropLayout->setSpacing(10);
    dropLayout->addWidget(dropIcon, 0, Qt::AlignHCenter);
    dropLayout->addWidget(m_dropText);
    dropLayout->addLayout(pickers);
    connect(m_dropZone, &DropZone::dropped, this, [this](const QStringList& paths) { m_model.add(paths); });
    connect(m_choose, &QPushButton::clicked, this, [this] { choose(false); });
    connect(m_photos, &QPushButton::clicked, this, [this] { choose(true); });

    // The channel, in the targets' order, each with its limit.
    m_targetTitle = new QLabel(content);
    m_targetTitle->setObjectName(QStringLiteral("sectionTitle"));
    m_targets = new QButtonGroup(this);
    m_targets->setExclusive(true);
    auto* targetRow = new QHBoxLayout;
    targetRow->setSpacing(8);
    for (LightenTarget target : allLightenTargets) {
        auto* button = new QPushButton(content);
        button->setCheckable(true);
        button->setMinimumHeight(44);
        button->setProperty("target", true);
        m_targets->addButton(button, int(target));
        m_targetButtons.append(button);
        targetRow->addWidget(button, 1);
    }
    connect(m_targets, &QButtonGroup::idClicked, this, [this](int target) { m_model.setTarget(target); });

    m_strip = new WrappingCheckBox(content);
    m_convert = new WrappingCheckBox(content);
    m_automatic = new WrappingCheckBox(content);
    connect(m_strip, &WrappingCheckBox::toggled, this, [this](bool on) { m_model.setStripLocation(on); });
    connect(m_convert, &WrappingCheckBox::toggled, this, [this](bool on) { m_model.setConvertHeic(on); });
    connect(m_automatic, &WrappingCheckBox::toggled, this, [this](bool on) { m_model.setAutoLighten(on); });
    m_limitLabel = new QLabel(content);
    m_limit = new QSpinBox(content);
    m_limit->setRange(1, 100'000);
    m_limitLabel->setBuddy(m_limit);
    connect(m_limit, &QSpinBox::valueChanged, this, [this](int megabytes) { m_model.setLimitMB(megabytes); });
    auto* options = new QHBoxLayout;
    options->setSpacing(18);
    options->addWidget(m_strip);
    options->addWidget(m_convert);
    options->addWidget(m_automatic);
    options->addWidget(m_limitLabel);
    options->addWidget(m_limit);
    options->addStretch(1);

    // The list: drag a lightened row out into any application.
    m_list = new QListView(content);
    m_list->setModel(&m_model.items());
    m_list->setItemDelegate(new LightenRowDelegate(m_list));
    m_list->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->setDragEnabled(true);
    m_list->setDragDropMode(QAbstractItemView::DragOnly);
    m_list->setDefaultDropAction(Qt::CopyAction);
    m_list->setMinimumHeight(150);
    m_list->installEventFilter(this);
    m_empty = wrappingLabel(content, QStringLiteral("muted"));
    m_total = new QLabel(content);
    m_total->setObjectName(QStringLiteral("muted"));
    m_notice = wrappingLabel(content);

    m_run = new QPushButton(Icons::icon(QStringLiteral("lighten")), QString(), content);
    m_stop = new QPushButton(content);
    m_remove = new QPushButton(content);
    m_clearList = new QPushButton(content);
    m_clearFolder = new QPushButton(content);
    m_send = new QPushButton(content);
    m_send->setObjectName(QStringLiteral("primary"));
    connect(m_run, &QPushButton::clicked, &m_model, &AllegerModel::run);
    connect(m_stop, &QPushButton::clicked, &m_model, &AllegerModel::stop);
    connect(m_remove, &QPushButton::clicked, this, &LightenView::removeSelected);
    connect(m_clearList, &QPushButton::clicked, &m_model, &AllegerModel::clear);
    connect(m_clearFolder, &QPushButton::clicked, &m_model, &AllegerModel::clearOutputFolder);
    connect(m_send, &QPushButton::clicked, &m_model, &AllegerModel::send);
    connect(m_list->selectionModel(), &QItemSelectionModel::selectionChanged, this, &LightenView::render);

    auto* listButtons = new QHBoxLayout;
    listButtons->addWidget(m_total, 1);
    listButtons->addWidget(m_remove);
    listButtons->addWidget(m_clearList);
    auto* actions = new QHBoxLayout;
    actions->addWidget(m_clearFolder);
    actions->addStretch(1);
    actions->addWidget(m_run);
    actions->addWidget(m_stop);
    actions->addWidget(m_send);

    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(28, 24, 28, 24);
    layout->setSpacing(10);
    layout->addWidget(m_title);
    layout->addWidget(m_subtitle);
    layout->addSpacing(4);
    layout->addWidget(m_dropZone);
    layout->addSpacing(6);
    layout->addWidget(m_targetTitle);
    layout->addLayout(targetRow);
    layout->addLayout(options);
    layout->addSpacing(6);
    layout->addWidget(m_empty);
    layout->addWidget(m_list, 1);
    layout->addStretch(0); // takes the room the list leaves while it is hidden
    layout->addLayout(listButtons);
    layout->addWidget(m_notice);
    layout->addLayout(actions);

    auto* scroll = new QScrollArea;
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setWidget(content);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(scroll);

    connect(&m_model, &AllegerModel::optionsChanged, this, &LightenView::render);
    connect(&m_model, &AllegerModel::runningChanged, this, &LightenView::render);
    connect(&m_model, &AllegerModel::noticeChanged, this, &LightenView::render);
    connect(&m_model, &AllegerModel::showClearFolderChanged, this, &LightenView::render);
    connect(&m_model, &AllegerModel::itemsChanged, this, &LightenView::render);
    retranslate();
}

QPushButton* LightenView::targetButton(LightenTarget target) const
{
    return m_targetButtons.value(int(target));
}

void LightenView::retranslate()
{
    m_title->setText(L("Alléger"));
    m_subtitle->setText(L("Des copies plus légères de tes photos, vidéos et PDF, pour les envoyer sans dépasser la "
                          "limite de WhatsApp, Telegram ou du courrier. Les originaux ne changent pas."));
    m_dropText->setText(L("Dépose ici des photos, des vidéos, des PDF ou des dossiers"));
    m_choose->setText(L("Choisir des fichiers…"));
    m_photos->setText(L("Choisir dans Photos"));
    m_targetTitle->setText(L("Pour"));
    for (LightenTarget target : allLightenTargets) {
        QPushButton* button = targetButton(target);
        button->setText(title(target) + u'\n' + limitText(target));
        button->setAccessibleName(title(target) + QStringLiteral(", ") + limitText(target));
    }
    m_strip->setText(L("Retirer la position"));
    m_convert->setText(L("Convertir les HEIC en JPEG"));
    m_automatic->setText(L("Alléger dès l'ajout"));
    m_limitLabel->setText(L("Ta limite :"));
    m_limit->setSuffix(u' ' + L("Mo"));
    m_empty->setText(L("Aucun fichier pour l'instant. Les copies allégées vont dans le dossier « %@ » de tes images.",
                       QStringLiteral("Nuvrel-Alleges")));
    m_run->setText(L("Alléger"));
    m_stop->setText(L("Arrêter"));
    m_remove->setText(L("Retirer"));
    m_clearList->setText(L("Vider la liste"));
    m_clearFolder->setText(L("Vider le dossier des fichiers allégés"));
    m_model.items().refresh();
    render();
}

void LightenView::render()
{
    const auto target = LightenTarget(m_model.target());
    if (QAbstractButton* checked = m_targets->button(int(target)); checked && !checked->isChecked())
        checked->setChecked(true);
    const QSignalBlocker stripBlocker(m_strip);
    const QSignalBlocker convertBlocker(m_convert);
    const QSignalBlocker automaticBlocker(m_automatic);
    const QSignalBlocker limitBlocker(m_limit);
    m_strip->setChecked(m_model.stripLocation());
    m_convert->setChecked(m_model.convertHeic());
    m_automatic->setChecked(m_model.autoLighten());
    m_limit->setValue(m_model.limitMB());
    m_limitLabel->setVisible(target == LightenTarget::Free);
    m_limit->setVisible(target == LightenTarget::Free);

    const bool running = m_model.running();
    const int rows = m_model.items().rowCount();
    m_empty->setVisible(rows == 0);
    m_list->setVisible(rows > 0);
    m_total->setVisible(rows > 0);
    m_total->setText(m_model.totalText());
    m_remove->setVisible(rows > 0);
    m_remove->setEnabled(m_list->selectionModel()->hasSelection());
    m_clearList->setVisible(rows > 0);
    m_clearList->setEnabled(!running);
    m_run->setVisible(!running && m_model.waitingCount() > 0);
    m_stop->setVisible(running);
    m_stop->setEnabled(!m_model.stopping());
    m_clearFolder->setVisible(m_model.showClearFolder());
    m_clearFolder->setEnabled(!running);
    m_send->setText(target == LightenTarget::Free ? L("Copier les fichiers") : L("Envoyer vers %@", title(target)));
    const QString notice = m_model.notice();
    m_notice->setText(notice);
    m_notice->setVisible(!notice.isEmpty());
}

void LightenView::choose(bool photos)
{
    const QStringList files = pickFiles(photos);
    if (files.isEmpty())
        return;
    if (!photos)
        m_model.rememberPickedFolder(QFileInfo(files.constFirst()).absolutePath());
    m_model.add(files);
}

QStringList LightenView::pickFiles(bool photos)
{
    if (m_pickFiles)
        return m_pickFiles(photos);
    if (photos)
        return QFileDialog::getOpenFileNames(this, L("Choisir dans Photos"), AllegerModel::photosFolder(),
                                             AllegerModel::photosNameFilters().join(QStringLiteral(";;")));
    return QFileDialog::getOpenFileNames(this, AllegerModel::pickerPrompt(), m_model.pickerFolder());
}

bool LightenView::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_list && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Delete || key == Qt::Key_Backspace) {
            removeSelected();
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

void LightenView::removeSelected()
{
    QList<int> rows;
    for (const QModelIndex& index : m_list->selectionModel()->selectedRows())
        rows.append(index.row());
    std::sort(rows.begin(), rows.end(), std::greater<>());
    for (int row : rows)
        m_model.remove(row);
}

} // namespace nuvrel
