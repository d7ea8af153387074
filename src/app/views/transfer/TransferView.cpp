#include "app/views/transfer/TransferView.h"

#include "app/views/transfer/QrCodeView.h"
#include "l10n/L.h"

#include <QComboBox>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QFrame>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QListWidget>
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

enum DownloadColumn { FileColumn, ProgressColumn };

QStringList localItems(const QMimeData* data)
{
    QStringList items;
    if (!data || !data->hasUrls())
        return items;
    const QList<QUrl> urls = data->urls();
    for (const QUrl& url : urls) {
        if (url.isLocalFile())
            items.append(url.toLocalFile());
    }
    return items;
}

QFrame* card(QVBoxLayout*& layout)
{
    auto* frame = new QFrame;
    frame->setObjectName(QStringLiteral("card"));
    layout = new QVBoxLayout(frame);
    layout->setContentsMargins(18, 16, 18, 16);
    layout->setSpacing(10);
    return frame;
}

QString percent(qint64 sent, qint64 length)
{
    const int value = length > 0 ? int(sent * 100 / length) : 100;
    return L("%@ %", Localizer::locale().toString(value));
}

} // namespace

TransferView::TransferView(TransferModel& model, QWidget* parent)
    : QWidget(parent)
    , m_model(model)
    , m_title(new QLabel)
    , m_intro(new QLabel)
    , m_nearbyTitle(new QLabel)
    , m_nearbyText(new QLabel)
    , m_nearbyDevice(new QComboBox)
    , m_nearbySend(new QPushButton)
    , m_wifiTitle(new QLabel)
    , m_wifiText(new QLabel)
    , m_wifiPages(new QStackedWidget)
    , m_chosen(new QListWidget)
    , m_dropHint(new QLabel)
    , m_chooseFiles(new QPushButton)
    , m_chooseFolder(new QPushButton)
    , m_addressLabel(new QLabel)
    , m_address(new QComboBox)
    , m_start(new QPushButton)
    , m_preparing(new QProgressBar)
    , m_qr(new QrCodeView)
    , m_instructions(new QLabel)
    , m_url(new QLabel)
    , m_servedTitle(new QLabel)
    , m_served(new QListWidget)
    , m_downloadsTitle(new QLabel)
    , m_downloads(new QTreeWidget)
    , m_change(new QPushButton)
    , m_stop(new QPushButton)
    , m_status(new QLabel)
{
    setAcceptDrops(true);
    m_title->setObjectName(QStringLiteral("pageTitle"));
    for (QLabel* heading : {m_nearbyTitle, m_wifiTitle, m_servedTitle, m_downloadsTitle})
        heading->setObjectName(QStringLiteral("sectionTitle"));
    for (QLabel* text : {m_intro, m_nearbyText, m_wifiText, m_dropHint, m_instructions, m_status}) {
        text->setWordWrap(true);
        text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    }
    for (QLabel* text : {m_intro, m_nearbyText, m_wifiText, m_dropHint})
        text->setObjectName(QStringLiteral("muted"));
    m_start->setObjectName(QStringLiteral("primary"));
    m_nearbySend->setObjectName(QStringLiteral("primary"));
    m_url->setObjectName(QStringLiteral("sectionTitle"));
    m_url->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_url->setAlignment(Qt::AlignHCenter);
    m_instructions->setAlignment(Qt::AlignHCenter);
    m_preparing->setTextVisible(false);
    m_chosen->setSelectionMode(QAbstractItemView::NoSelection);
    m_served->setSelectionMode(QAbstractItemView::NoSelection);
    m_downloads->setRootIsDecorated(false);
    m_downloads->setUniformRowHeights(true);
    m_downloads->setSelectionMode(QAbstractItemView::NoSelection);
    m_downloads->header()->setStretchLastSection(false);
    m_downloads->header()->setSectionResizeMode(FileColumn, QHeaderView::Stretch);
    m_downloads->header()->setSectionResizeMode(ProgressColumn, QHeaderView::ResizeToContents);

    // The nearby share.
    QVBoxLayout* nearbyLayout = nullptr;
    QFrame* nearbyCard = card(nearbyLayout);
    nearbyLayout->addWidget(m_nearbyTitle);
    nearbyLayout->addWidget(m_nearbyText);
    auto* nearbyRow = new QHBoxLayout;
    nearbyRow->addWidget(m_nearbyDevice);
    nearbyRow->addWidget(m_nearbySend);
    nearbyRow->addStretch(1);
    nearbyLayout->addLayout(nearbyRow);

    // Wi-Fi, choosing.
    auto* choosing = new QWidget;
    auto* choosingLayout = new QVBoxLayout(choosing);
    choosingLayout->setContentsMargins(0, 0, 0, 0);
    choosingLayout->addWidget(m_chosen, 1);
    choosingLayout->addWidget(m_dropHint);
    auto* chooseRow = new QHBoxLayout;
    chooseRow->addWidget(m_chooseFiles);
    chooseRow->addWidget(m_chooseFolder);
    chooseRow->addStretch(1);
    chooseRow->addWidget(m_addressLabel);
    chooseRow->addWidget(m_address);
    chooseRow->addWidget(m_start);
    choosingLayout->addLayout(chooseRow);
    choosingLayout->addWidget(m_preparing);

    // Wi-Fi, serving: the code on the left, what happens on the right.
    auto* serving = new QWidget;
    auto* servingLayout = new QHBoxLayout(serving);
    servingLayout->setContentsMargins(0, 0, 0, 0);
    servingLayout->setSpacing(20);
    auto* codeColumn = new QVBoxLayout;
    codeColumn->addWidget(m_instructions);
    codeColumn->addWidget(m_qr, 1);
    codeColumn->addWidget(m_url);
    servingLayout->addLayout(codeColumn, 1);
    auto* listColumn = new QVBoxLayout;
    listColumn->addWidget(m_servedTitle);
    listColumn->addWidget(m_served, 1);
    listColumn->addWidget(m_downloadsTitle);
    listColumn->addWidget(m_downloads, 2);
    auto* servingButtons = new QHBoxLayout;
    servingButtons->addStretch(1);
    servingButtons->addWidget(m_change);
    servingButtons->addWidget(m_stop);
    listColumn->addLayout(servingButtons);
    servingLayout->addLayout(listColumn, 1);

    m_wifiPages->addWidget(choosing);
    m_wifiPages->addWidget(serving);
    QVBoxLayout* wifiLayout = nullptr;
    QFrame* wifiCard = card(wifiLayout);
    wifiLayout->addWidget(m_wifiTitle);
    wifiLayout->addWidget(m_wifiText);
    wifiLayout->addWidget(m_wifiPages, 1);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 24, 28, 16);
    layout->setSpacing(12);
    layout->addWidget(m_title);
    layout->addWidget(m_intro);
    layout->addWidget(nearbyCard);
    layout->addWidget(wifiCard, 1);
    layout->addWidget(m_status);

    connect(m_chooseFiles, &QPushButton::clicked, this, &TransferView::pickFiles);
    connect(m_chooseFolder, &QPushButton::clicked, this, &TransferView::pickFolder);
    // While folders are compressed, the same button stops.
    connect(m_start, &QPushButton::clicked, this, [this] { m_model.isPreparing() ? m_model.stop() : m_model.start(); });
    connect(m_stop, &QPushButton::clicked, &m_model, &TransferModel::stop);
    connect(m_change, &QPushButton::clicked, this, [this] {
        m_model.changeFiles();
        pickFiles();
    });
    connect(m_nearbySend, &QPushButton::clicked, this,
            [this] { m_model.sendNearby(std::max(0, m_nearbyDevice->currentIndex())); });
    connect(m_address, &QComboBox::activated, &m_model, &TransferModel::setAddressIndex);
    connect(&m_model, &TransferModel::itemsChanged, this, &TransferView::renderItems);
    connect(&m_model, &TransferModel::stateChanged, this, &TransferView::render);
    connect(&m_model, &TransferModel::statusChanged, this, &TransferView::render);
    connect(&m_model, &TransferModel::addressesChanged, this, &TransferView::renderAddresses);
    connect(&m_model, &TransferModel::nearbyChanged, this, &TransferView::renderNearby);
    connect(&m_model, &TransferModel::downloadsChanged, this, &TransferView::renderDownloads);
    retranslate();
}

void TransferView::retranslate()
{
    m_title->setText(L("Mac vers iPhone"));
    m_intro->setText(L("Rien ne passe par Internet : les fichiers vont directement de cet appareil à l'iPhone."));
    m_wifiTitle->setText(L("Gros fichier par Wi-Fi local"));
    m_wifiText->setText(L("Pour les fichiers ou les dossiers trop gros pour AirDrop. Rien ne passe par Internet : le "
                          "Mac et l'iPhone doivent juste être sur le même Wi-Fi. Un dossier choisi est d'abord "
                          "compressé en un seul fichier .zip, pour un envoi fiable en une fois."));
    m_dropHint->setText(L("Glisse des fichiers ou des dossiers ici."));
    m_chooseFiles->setText(L("Choisir un ou plusieurs fichiers…"));
    m_chooseFolder->setText(L("Choisir un dossier…"));
    m_addressLabel->setText(L("Réseau :"));
    m_instructions->setText(
        L("Sur l'iPhone : ouvre l'appareil photo et vise ce code QR, ou ouvre Safari et tape l'adresse en dessous."));
    m_servedTitle->setText(L("Fichiers proposés"));
    m_downloadsTitle->setText(L("Téléchargements"));
    m_downloads->setHeaderLabels({L("Fichier"), L("Progression")});
    m_change->setText(L("Changer de fichiers"));
    m_stop->setText(L("Arrêter"));
    renderItems();
    renderAddresses();
    renderNearby();
    renderDownloads();
    render();
}

void TransferView::render()
{
    const bool running = m_model.isRunning();
    const bool preparing = m_model.isPreparing();
    m_wifiPages->setCurrentIndex(running ? 1 : 0);
    m_start->setText(preparing ? L("Arrêter") : L("Démarrer l'envoi"));
    m_start->setEnabled(preparing || !m_model.items().isEmpty());
    m_chooseFiles->setEnabled(!preparing);
    m_chooseFolder->setEnabled(!preparing);
    m_address->setEnabled(!preparing);
    m_preparing->setVisible(preparing);
    if (m_model.progress() < 0) {
        m_preparing->setRange(0, 0);
    } else {
        m_preparing->setRange(0, 1000);
        m_preparing->setValue(int(m_model.progress() * 1000));
    }
    m_qr->setImage(m_model.qrImage());
    m_url->setText(m_model.urlString());
    m_served->clear();
    for (const ServedFile& file : m_model.servedFiles())
        m_served->addItem(QStringLiteral("%1  ·  %2").arg(file.name, Localizer::formatByteCount(file.size)));
    m_status->setText(m_model.status());
    m_status->setVisible(!m_model.status().isEmpty());
    renderNearby();
}

void TransferView::renderItems()
{
    m_chosen->clear();
    for (const QString& item : m_model.items()) {
        const QFileInfo info(item);
        auto* row = new QListWidgetItem(
            info.isDir() ? L("%@ (dossier, envoyé en .zip)", info.fileName()) : info.fileName(), m_chosen);
        row->setToolTip(QDir::toNativeSeparators(item));
    }
    m_dropHint->setVisible(m_model.items().isEmpty());
    render();
}

void TransferView::renderAddresses()
{
    const QStringList choices = m_model.addressChoices();
    m_address->clear();
    m_address->addItems(choices);
    m_address->setCurrentIndex(m_model.addressIndex());
    // A choice only when there is one to make.
    m_address->setVisible(choices.size() > 1);
    m_addressLabel->setVisible(choices.size() > 1);
}

void TransferView::renderNearby()
{
    m_nearbyTitle->setText(m_model.nearbyTitle());
    m_nearbyText->setText(m_model.nearbyText());
    m_nearbySend->setText(m_model.nearbyButtonText());
    const QStringList devices = m_model.nearbyDevices();
    const int keep = m_nearbyDevice->currentIndex();
    m_nearbyDevice->clear();
    m_nearbyDevice->addItems(devices);
    m_nearbyDevice->setCurrentIndex(std::clamp(keep, 0, int(devices.size()) - 1));
    m_nearbyDevice->setVisible(devices.size() > 1);
    m_nearbySend->setVisible(!m_model.nearbyButtonText().isEmpty() &&
                             (m_model.canSendNearby() || !m_model.nearbyDevices().isEmpty()));
    m_nearbySend->setEnabled(m_model.canSendNearby());
}

void TransferView::renderDownloads()
{
    const QList<TransferModel::Download>& downloads = m_model.downloads();
    // Rows are kept and updated in place: a download moves on many times a second.
    while (m_downloads->topLevelItemCount() > downloads.size())
        delete m_downloads->takeTopLevelItem(m_downloads->topLevelItemCount() - 1);
    for (int i = 0; i < downloads.size(); ++i) {
        const TransferModel::Download& download = downloads.at(i);
        QTreeWidgetItem* row = m_downloads->topLevelItem(i);
        if (!row)
            row = new QTreeWidgetItem(m_downloads);
        row->setText(FileColumn, download.name);
        switch (download.state) {
        case TransferModel::Download::State::Running:
            row->setText(ProgressColumn, percent(download.sent, download.length));
            break;
        case TransferModel::Download::State::Done: row->setText(ProgressColumn, L("Terminé")); break;
        case TransferModel::Download::State::Interrupted: row->setText(ProgressColumn, L("Interrompu")); break;
        }
        row->setTextAlignment(ProgressColumn, Qt::AlignRight | Qt::AlignVCenter);
    }
}

void TransferView::pickFiles()
{
    const QStringList files =
        m_pickFiles ? m_pickFiles()
                    : QFileDialog::getOpenFileNames(this, L("Choisir un ou plusieurs fichiers…"),
                                                    QStandardPaths::writableLocation(QStandardPaths::HomeLocation));
    if (!files.isEmpty())
        m_model.setItems(files);
}

void TransferView::pickFolder()
{
    const QString folder =
        m_pickFolder
            ? m_pickFolder()
            : QFileDialog::getExistingDirectory(this, L("Choisir un dossier…"),
                                                QStandardPaths::writableLocation(QStandardPaths::HomeLocation));
    if (!folder.isEmpty())
        m_model.addItems({folder});
}

void TransferView::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    // A network joined or a phone paired while the page was out of sight.
    if (!m_model.isRunning())
        m_model.refreshAddresses();
    m_model.refreshNearby();
}

void TransferView::dragEnterEvent(QDragEnterEvent* event)
{
    if (!m_model.isRunning() && !m_model.isPreparing() && !localItems(event->mimeData()).isEmpty())
        event->acceptProposedAction();
}

void TransferView::dropEvent(QDropEvent* event)
{
    const QStringList items = localItems(event->mimeData());
    if (items.isEmpty())
        return;
    event->acceptProposedAction();
    m_model.addItems(items);
}

} // namespace nuvrel
