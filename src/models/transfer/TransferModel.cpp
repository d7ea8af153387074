#include "models/transfer/TransferModel.h"

#include "engines/transfer/QrCode.h"
#include "engines/transfer/TransferPrep.h"
#include "ground/Job.h"
#include "l10n/L.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFileInfo>
#include <QPointer>

#include <algorithm>

namespace nuvrel {

namespace {

/// A range this small that is not the whole file is a browser probing a video, not a download.
constexpr qint64 probeBelow = qint64(1024) * 1024;
constexpr qint64 downloadsSignalEveryMs = 200;

struct Prepared
{
    std::shared_ptr<TransferPrep> prep;
    TransferPrep::Result result;
};

struct NearbySent
{
    std::shared_ptr<TransferPrep> prep;
    NearbyShare::Outcome outcome = NearbyShare::Outcome::Failed;
    QStringList failed;
};

QString names(const QStringList& paths)
{
    QStringList shown;
    for (const QString& path : paths)
        shown.append(QFileInfo(path).fileName());
    return shown.join(QStringLiteral(", "));
}

} // namespace

TransferModel::TransferModel(Services services, AddressSource addresses, QObject* parent)
    : QObject(parent)
    , m_services(services)
    , m_addressSource(std::move(addresses))
    , m_job(new Job(this))
    , m_nearbyJob(new Job(this))
    , m_server(new LocalFileServer)
{
    m_serverThread.setObjectName(QStringLiteral("Nuvrel transfer"));
    m_server->moveToThread(&m_serverThread);
    connect(&m_serverThread, &QThread::finished, m_server, &QObject::deleteLater);
    m_serverThread.start();
    connect(m_server, &LocalFileServer::downloadStarted, this, &TransferModel::downloadStarted);
    connect(m_server, &LocalFileServer::downloadProgress, this, &TransferModel::downloadProgress);
    connect(m_server, &LocalFileServer::downloadFinished, this, &TransferModel::downloadFinished);

    connect(m_job, &Job::runningChanged, this, [this] {
        if (!m_job->isRunning())
            m_progress = -1;
        Q_EMIT stateChanged();
    });
    connect(m_job, &Job::progressChanged, this, [this](qint64 done, qint64 total) {
        m_progress = total > 0 ? double(done) / double(total) : -1;
        Q_EMIT stateChanged();
    });
    const auto internalError = [this] {
        setStatus([] { return L("L'opération a été interrompue par une erreur interne."); });
    };
    connect(m_job, &Job::failed, this, internalError);
    connect(m_nearbyJob, &Job::failed, this, internalError);
    connect(m_nearbyJob, &Job::runningChanged, this, &TransferModel::nearbyChanged);
    // Nothing is served once the application is gone.
    if (QCoreApplication* application = QCoreApplication::instance())
        connect(application, &QCoreApplication::aboutToQuit, this, &TransferModel::stop);
    refreshAddresses();
}

TransferModel::~TransferModel()
{
    stop();
    m_serverThread.quit();
    m_serverThread.wait();
}

bool TransferModel::isPreparing() const
{
    return m_job->isRunning();
}

void TransferModel::setStatus(Text status)
{
    m_status = std::move(status);
    Q_EMIT statusChanged();
}

QStringList TransferModel::addressChoices() const
{
    QStringList choices;
    for (const LocalAddress& candidate : m_addresses) {
        choices.append(candidate.wireless
                           ? L("%@ (%@, Wi-Fi)", candidate.address.toString(), candidate.interfaceName)
                           : QStringLiteral("%1 (%2)").arg(candidate.address.toString(), candidate.interfaceName));
    }
    return choices;
}

void TransferModel::setAddressIndex(int index)
{
    if (index < 0 || index >= m_addresses.size() || index == m_addressIndex)
        return;
    m_addressIndex = index;
    Q_EMIT addressesChanged();
}

void TransferModel::refreshAddresses()
{
    // The same interface keeps its place in the choice when the list changes.
    const QString chosen =
        m_addressIndex < m_addresses.size() ? m_addresses.at(m_addressIndex).interfaceName : QString();
    m_addresses = m_addressSource();
    const auto same = std::find_if(m_addresses.cbegin(), m_addresses.cend(),
                                   [&chosen](const LocalAddress& a) { return a.interfaceName == chosen; });
    m_addressIndex = same == m_addresses.cend() ? 0 : int(same - m_addresses.cbegin());
    Q_EMIT addressesChanged();
}

void TransferModel::setItems(const QStringList& paths)
{
    if (isRunning() || isPreparing())
        return;
    m_items.clear();
    addItems(paths);
    Q_EMIT itemsChanged(); // also when emptied
}

void TransferModel::addItems(const QStringList& paths)
{
    if (isRunning() || isPreparing())
        return;
    bool added = false;
    for (const QString& path : paths) {
        const QString absolute = QFileInfo(path).absoluteFilePath();
        if (!path.isEmpty() && !m_items.contains(absolute)) {
            m_items.append(absolute);
            added = true;
        }
    }
    if (added) {
        setStatus({});
        Q_EMIT itemsChanged();
        Q_EMIT nearbyChanged();
    }
}

void TransferModel::start()
{
    if (m_items.isEmpty() || isRunning() || isPreparing())
        return;
    refreshAddresses();
    if (m_addresses.isEmpty()) {
        setStatus([] { return L("Connecte le Mac au Wi-Fi pour utiliser l'envoi local."); });
        return;
    }
    const bool hasFolder = std::any_of(m_items.cbegin(), m_items.cend(), [](const QString& item) {
        const QFileInfo info(item);
        return info.isDir() && !info.isSymLink();
    });
    setStatus(hasFolder ? Text([] { return L("Préparation du dossier (compression)…"); }) : Text());
    const quint64 run = ++m_run;
    m_job->start(
        [items = m_items](JobContext& context) {
            Prepared prepared{std::make_shared<TransferPrep>(), {}};
            prepared.result = prepared.prep->prepare(
                items, [&context](qint64 done, qint64 total) { context.progress(done, total); },
                context.token().flag());
            return prepared;
        },
        [this, run](Prepared prepared) {
            // Stopped meanwhile: its archives go with it, unserved.
            if (prepared.result.cancelled || run != m_run)
                return;
            serve(std::move(prepared.prep), std::move(prepared.result.files), prepared.result.failed);
        });
    Q_EMIT stateChanged();
}

void TransferModel::serve(std::shared_ptr<TransferPrep> prep, QList<ServedFile> files, const QStringList& failed)
{
    if (files.isEmpty()) {
        setStatus([failed] { return L("Rien à envoyer : %@ n'a pas pu être lu ou compressé.", names(failed)); });
        return;
    }
    const QHostAddress address = m_addresses.value(m_addressIndex).address;
    QString url;
    QMetaObject::invokeMethod(
        m_server,
        [server = m_server, &files, &address, &url] {
            if (server->start(files, address))
                url = server->url();
        },
        Qt::BlockingQueuedConnection);
    if (url.isEmpty()) {
        setStatus([] { return L("Impossible de démarrer le partage Wi-Fi."); });
        return;
    }
    m_prep = std::move(prep);
    m_served = std::move(files);
    m_url = url;
    const std::optional<QrCode> code = QrCode::encode(m_url.toUtf8());
    m_qrImage = code ? code->toImage() : QImage();
    m_downloads.clear();
    Q_EMIT downloadsChanged();
    const qint64 count = m_served.size();
    if (failed.isEmpty()) {
        setStatus(
            [count] { return LN("Prêt : %@ fichier(s) à télécharger.", count, Localizer::locale().toString(count)); });
    } else {
        setStatus([failed] {
            return L("Prêt, sans %@ : ce dossier n'a pas pu être compressé, il n'est pas proposé.", names(failed));
        });
    }
    Q_EMIT stateChanged();
}

void TransferModel::stop()
{
    ++m_run;
    if (m_job->isRunning()) {
        m_job->cancel();
        setStatus({});
    }
    if (!isRunning())
        return;
    QMetaObject::invokeMethod(
        m_server, [server = m_server] { server->stop(); }, Qt::BlockingQueuedConnection);
    m_url.clear();
    m_qrImage = {};
    m_served.clear();
    m_prep.reset(); // the archives of this run go with it
    for (Download& download : m_downloads) {
        if (download.state == Download::State::Running)
            download.state = Download::State::Interrupted;
    }
    setStatus([] { return L("Envoi arrêté."); });
    Q_EMIT downloadsChanged();
    Q_EMIT stateChanged();
}

void TransferModel::changeFiles()
{
    stop();
    m_items.clear();
    m_downloads.clear();
    setStatus({});
    Q_EMIT downloadsChanged();
    Q_EMIT itemsChanged();
    Q_EMIT nearbyChanged();
}

TransferModel::Download* TransferModel::download(int id)
{
    const auto found =
        std::find_if(m_downloads.begin(), m_downloads.end(), [id](const Download& d) { return d.id == id; });
    return found == m_downloads.end() ? nullptr : &*found;
}

void TransferModel::downloadStarted(int id, int file, qint64 length)
{
    if (!isRunning() || file < 0 || file >= m_served.size())
        return;
    const ServedFile& served = m_served.at(file);
    if (length != served.size && length < probeBelow)
        return;
    m_downloads.append({id, served.name, length, 0, Download::State::Running});
    Q_EMIT downloadsChanged();
}

void TransferModel::downloadProgress(int id, qint64 sent)
{
    Download* found = download(id);
    if (!found || found->state != Download::State::Running)
        return;
    found->sent = sent;
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    if (now - m_lastDownloadsSignal >= downloadsSignalEveryMs) {
        m_lastDownloadsSignal = now;
        Q_EMIT downloadsChanged();
    }
}

void TransferModel::downloadFinished(int id, bool complete)
{
    Download* found = download(id);
    if (!found || found->state != Download::State::Running)
        return;
    found->state = complete ? Download::State::Done : Download::State::Interrupted;
    if (complete) {
        found->sent = found->length;
        setStatus([] { return L("Fichier envoyé !"); });
    }
    Q_EMIT downloadsChanged();
}

bool TransferModel::canSendNearby() const
{
    return m_nearbyKnown && m_nearby.kind == NearbyShare::Availability::Kind::Ready && !m_items.isEmpty() &&
           !m_nearbyJob->isRunning();
}

QString TransferModel::nearbyTitle() const
{
    return m_services.nearbyShare.service() == NearbyShare::Service::AirDrop ? L("AirDrop en un clic")
                                                                             : L("KDE Connect en un clic");
}

QString TransferModel::nearbyButtonText() const
{
    return m_services.nearbyShare.service() == NearbyShare::Service::AirDrop ? L("Envoyer par AirDrop")
                                                                             : L("Envoyer avec KDE Connect");
}

QString TransferModel::nearbyText() const
{
    if (!m_nearbyKnown)
        return {};
    using Kind = NearbyShare::Availability::Kind;
    if (m_services.nearbyShare.service() == NearbyShare::Service::AirDrop) {
        if (m_nearby.kind != Kind::Ready)
            return L("AirDrop n'est pas disponible : vérifie que le Wi-Fi et le Bluetooth sont activés.");
        return L("Pour les photos, vidéos et documents de taille normale. Ton iPhone et ton Mac doivent avoir le Wi-Fi "
                 "et le Bluetooth activés, et AirDrop réglé sur « Tout le monde » ou « Contacts uniquement » sur "
                 "l'iPhone (Réglages > Général > AirDrop).");
    }
    switch (m_nearby.kind) {
    case Kind::Ready:
        return L("Pour les photos, vidéos et documents de taille normale, vers un téléphone associé à KDE Connect "
                 "(l'application KDE Connect ouverte sur l'iPhone, sur le même Wi-Fi).");
    case Kind::NotInstalled:
        return L("KDE Connect n'est pas installé sur cet ordinateur, donc cet envoi n'est pas proposé. Installe-le, "
                 "avec son application sur l'iPhone, pour envoyer sans code QR ; l'envoi par Wi-Fi local marche sans "
                 "lui.");
    case Kind::NoDevice:
        return L("Aucun téléphone associé à KDE Connect n'est joignable, donc cet envoi n'est pas proposé : ouvre "
                 "KDE Connect sur l'iPhone, sur le même Wi-Fi, et associe-le à cet ordinateur.");
    }
    return {};
}

QStringList TransferModel::nearbyDevices() const
{
    QStringList devices;
    for (const NearbyShare::Device& device : m_nearby.devices)
        devices.append(device.name);
    return devices;
}

void TransferModel::refreshNearby()
{
    NearbyShare* share = &m_services.nearbyShare;
    m_nearbyJob->start([share](JobContext&) { return share->availability(); },
                       [this](NearbyShare::Availability availability) {
                           m_nearby = std::move(availability);
                           m_nearbyKnown = true;
                           Q_EMIT nearbyChanged();
                       });
}

void TransferModel::sendNearby(int index)
{
    if (!canSendNearby())
        return;
    NearbyShare* share = &m_services.nearbyShare;
    const NearbyShare::Device device = m_nearby.devices.value(index);
    m_nearbyJob->start(
        [share, items = m_items, id = device.id](JobContext& context) {
            NearbySent sent{std::make_shared<TransferPrep>(), NearbyShare::Outcome::Failed, {}};
            const TransferPrep::Result prepared = sent.prep->prepare(items, {}, context.token().flag());
            sent.failed = prepared.failed;
            QStringList paths;
            for (const ServedFile& file : prepared.files)
                paths.append(file.path);
            if (!paths.isEmpty() && !prepared.cancelled)
                sent.outcome = share->send(paths, id);
            return sent;
        },
        [this, name = device.name](NearbySent sent) {
            // The service reads the archives after it answered: they stay while the page lives.
            m_nearbyPreps.append(std::move(sent.prep));
            const bool airDrop = m_services.nearbyShare.service() == NearbyShare::Service::AirDrop;
            switch (sent.outcome) {
            case NearbyShare::Outcome::Sent:
                setStatus(
                    [name] { return L("Envoyé à %@ avec KDE Connect : suis l'envoi dans ses notifications.", name); });
                break;
            case NearbyShare::Outcome::PickerOpened:
                setStatus([] { return L("Choisis l'iPhone dans la fenêtre AirDrop qui vient de s'ouvrir."); });
                break;
            case NearbyShare::Outcome::NotAvailable:
                if (airDrop) {
                    setStatus([] {
                        return L("AirDrop n'est pas disponible : vérifie que le Wi-Fi et le Bluetooth sont activés.");
                    });
                } else {
                    setStatus([] {
                        return L("KDE Connect ne joint plus ce téléphone : vérifie qu'il est sur le même Wi-Fi, puis "
                                 "réessaie.");
                    });
                }
                break;
            case NearbyShare::Outcome::Failed:
                if (!sent.failed.isEmpty() && sent.failed.size() == m_items.size()) {
                    setStatus([failed = sent.failed] {
                        return L("Rien à envoyer : %@ n'a pas pu être lu ou compressé.", names(failed));
                    });
                } else {
                    setStatus([] {
                        return L("KDE Connect a refusé l'envoi : vérifie que le téléphone est toujours joignable.");
                    });
                }
                break;
            }
            if (sent.outcome == NearbyShare::Outcome::NotAvailable && !airDrop)
                refreshNearby();
        });
    Q_EMIT nearbyChanged();
}

} // namespace nuvrel
