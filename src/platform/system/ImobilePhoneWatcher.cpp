#include "platform/system/ImobilePhoneWatcher.h"

#include "ground/Dates.h"
#include "l10n/L.h"

#include <QCoreApplication>
#include <QDir>
#include <QMetaObject>
#include <QPointer>
#include <QRegularExpression>

#include <libimobiledevice/afc.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>

#include <mutex>
#include <thread>

namespace nuvrel {

namespace {

const char* const label = "Nuvrel";

// The few phones a computer sees, and only one watcher: its events go through this, guarded.
std::mutex watcherMutex;
QPointer<ImobilePhoneWatcher> currentWatcher;

// A phone's services answer a few seconds after it appears: the handshake is tried again meanwhile.
constexpr int handshakeAttempts = 5;
constexpr int handshakeRetryMs = 1500;

struct DeviceDeleter
{
    void operator()(idevice_private* device) const { idevice_free(device); }
};
struct LockdownDeleter
{
    void operator()(lockdownd_client_private* client) const { lockdownd_client_free(client); }
};
struct AfcDeleter
{
    void operator()(afc_client_private* client) const { afc_client_free(client); }
};
using Device = std::unique_ptr<idevice_private, DeviceDeleter>;
using Lockdown = std::unique_ptr<lockdownd_client_private, LockdownDeleter>;
using Afc = std::unique_ptr<afc_client_private, AfcDeleter>;

Device openDevice(const QString& udid)
{
    idevice_t device = nullptr;
    if (idevice_new_with_options(&device, udid.toUtf8().constData(), IDEVICE_LOOKUP_USBMUX) != IDEVICE_E_SUCCESS)
        return nullptr;
    return Device(device);
}

// The phone's name, which it tells before it trusts this computer.
QString nameOf(idevice_t device)
{
    lockdownd_client_t client = nullptr;
    if (lockdownd_client_new(device, &client, label) != LOCKDOWN_E_SUCCESS)
        return {};
    const Lockdown held(client);
    char* name = nullptr;
    if (lockdownd_get_device_name(client, &name) != LOCKDOWN_E_SUCCESS || !name)
        return {};
    QString text = QString::fromUtf8(name).left(200);
    free(name);
    return text;
}

// The key/value list AFC answers with, as a map; the list is freed.
QHash<QByteArray, QByteArray> infoMap(char** list)
{
    QHash<QByteArray, QByteArray> map;
    if (!list)
        return map;
    for (int i = 0; list[i] && list[i + 1]; i += 2)
        map.insert(QByteArray(list[i]), QByteArray(list[i + 1]));
    afc_dictionary_free(list);
    return map;
}

class AfcReader final : public CameraFileReader
{
public:
    AfcReader(std::shared_ptr<std::mutex> mutex, std::shared_ptr<afc_client_private> afc, quint64 handle)
        : m_mutex(std::move(mutex))
        , m_afc(std::move(afc))
        , m_handle(handle)
    {}
    ~AfcReader() override
    {
        const std::lock_guard lock(*m_mutex);
        afc_file_close(m_afc.get(), m_handle);
    }
    Q_DISABLE_COPY_MOVE(AfcReader)

    qint64 read(char* into, qint64 capacity) override
    {
        const std::lock_guard lock(*m_mutex);
        uint32_t got = 0;
        const afc_error_t error =
            afc_file_read(m_afc.get(), m_handle, into, uint32_t(std::min<qint64>(capacity, 1 << 20)), &got);
        if (error != AFC_E_SUCCESS) {
            m_error = L("l'iPhone a refusé de donner ce fichier (erreur %@)", int(error));
            return -1;
        }
        return got;
    }
    QString errorText() const override { return m_error; }

private:
    std::shared_ptr<std::mutex> m_mutex;
    std::shared_ptr<afc_client_private> m_afc;
    quint64 m_handle;
    QString m_error;
};

// The camera roll of a phone that trusts this computer, read through one AFC connection: one file at
// a time, as the import reads them.
class AfcCamera final : public CameraSource
{
public:
    AfcCamera(QString udid, QString name, Device device, std::shared_ptr<afc_client_private> afc)
        : m_udid(std::move(udid))
        , m_name(std::move(name))
        , m_device(std::move(device))
        , m_connection{std::move(afc), std::make_shared<std::mutex>()}
    {}

    Kind kind() const override { return Kind::Phone; }
    QString deviceName() const override { return m_name; }

    QList<CameraFile> mediaFiles(const std::atomic<bool>* cancel) override
    {
        QList<CameraFile> files;
        walk(QByteArrayLiteral("/DCIM"), 0, files, cancel);
        return files;
    }

    std::unique_ptr<CameraFileReader> open(const CameraFile& file, QString& error) override
    {
        const Connection connection = current();
        const std::lock_guard lock(*connection.mutex);
        uint64_t handle = 0;
        const afc_error_t status =
            afc_file_open(connection.afc.get(), file.path.toUtf8().constData(), AFC_FOPEN_RDONLY, &handle);
        if (status != AFC_E_SUCCESS) {
            error = L("l'iPhone a refusé de donner ce fichier (erreur %@)", int(status));
            return nullptr;
        }
        return std::make_unique<AfcReader>(connection.mutex, connection.afc, handle);
    }

    bool isPresent() override { return openDevice(m_udid) != nullptr; }

    void reconnect() override
    {
        afc_client_t afc = nullptr;
        if (afc_client_start_service(m_device.get(), &afc, label) != AFC_E_SUCCESS)
            return; // the next files fail on the old connection, and the run ends as the phone's silence
        const std::lock_guard lock(m_swap);
        m_connection = {std::shared_ptr<afc_client_private>(afc, AfcDeleter()), std::make_shared<std::mutex>()};
    }

private:
    // One AFC connection and the lock its requests take turns with; a reader holds both while it lives.
    struct Connection
    {
        std::shared_ptr<afc_client_private> afc;
        std::shared_ptr<std::mutex> mutex;
    };

    Connection current() const
    {
        const std::lock_guard lock(m_swap);
        return m_connection;
    }

    void walk(const QByteArray& folder, int depth, QList<CameraFile>& files, const std::atomic<bool>* cancel)
    {
        const Connection connection = current();
        if (depth > 8 || (cancel && cancel->load()))
            return;
        char** names = nullptr;
        {
            const std::lock_guard lock(*connection.mutex);
            if (afc_read_directory(connection.afc.get(), folder.constData(), &names) != AFC_E_SUCCESS)
                return;
        }
        QList<QByteArray> entries;
        for (int i = 0; names && names[i]; ++i)
            entries.append(QByteArray(names[i]));
        afc_dictionary_free(names);
        std::sort(entries.begin(), entries.end());
        for (const QByteArray& entry : std::as_const(entries)) {
            // Names come from the phone: no separators, no climbing, no hidden entries.
            if (entry.isEmpty() || entry.startsWith('.') || entry.contains('/'))
                continue;
            const QByteArray path = folder + '/' + entry;
            char** info = nullptr;
            {
                const std::lock_guard lock(*connection.mutex);
                if (afc_get_file_info(connection.afc.get(), path.constData(), &info) != AFC_E_SUCCESS)
                    continue;
            }
            const QHash<QByteArray, QByteArray> map = infoMap(info);
            const QByteArray type = map.value("st_ifmt");
            if (type == "S_IFDIR") {
                walk(path, depth + 1, files, cancel);
            } else if (type == "S_IFREG") {
                CameraFile file;
                file.path = QString::fromUtf8(path);
                file.name = QString::fromUtf8(entry);
                file.size = map.value("st_size").toLongLong();
                // The phone's own dates, in nanoseconds since 1970.
                bool known = false;
                const qint64 born = map.value("st_birthtime").toLongLong(&known);
                if (known && born > 0)
                    file.created = utcFromMSecsSinceEpoch(born / 1'000'000);
                if (file.name.endsWith(QLatin1String(".AAE"), Qt::CaseInsensitive))
                    continue; // edit sidecars, not photos
                files.append(std::move(file));
            }
        }
    }

    QString m_udid;
    QString m_name;
    Device m_device;
    mutable std::mutex m_swap;
    Connection m_connection;
};

extern "C" void onDeviceEvent(const idevice_event_t* event, void*)
{
    if (!event || !event->udid || event->conn_type != CONNECTION_USBMUXD)
        return;
    deliverDeviceEvent(QString::fromUtf8(event->udid), event->event == IDEVICE_DEVICE_REMOVE);
}

} // namespace

void deliverDeviceEvent(const QString& udid, bool removed)
{
    const std::lock_guard lock(watcherMutex);
    if (!currentWatcher)
        return;
    // From libimobiledevice's thread to the watcher's.
    QMetaObject::invokeMethod(
        currentWatcher.data(),
        [watcher = currentWatcher, udid, removed] {
            if (!watcher)
                return;
            removed ? watcher->deviceRemoved(udid) : watcher->deviceAdded(udid);
        },
        Qt::QueuedConnection);
}

struct ImobilePhoneWatcher::Shared
{
    std::atomic<int> run{0}; ///< bumped at each handshake: an older one's answer is dropped
    // The ready phone, for camera(), which any thread may call.
    std::mutex readyMutex;
    QString readyUdid;
    QString readyName;
};

ImobilePhoneWatcher::ImobilePhoneWatcher(QObject* parent)
    : PhoneWatcher(parent)
    , m_shared(std::make_shared<Shared>())
{
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, [this] {
        if (!m_subscribed)
            start();
        else
            handshake();
    });
}

ImobilePhoneWatcher::~ImobilePhoneWatcher()
{
    stop();
}

PhoneWatcher::State ImobilePhoneWatcher::stateOfHandshake(int lockdownError)
{
    switch (lockdownError) {
    case LOCKDOWN_E_SUCCESS: return State::Ready;
    case LOCKDOWN_E_PASSWORD_PROTECTED:
    case LOCKDOWN_E_PAIRING_DIALOG_RESPONSE_PENDING: return State::Locked;
    case LOCKDOWN_E_USER_DENIED_PAIRING: return State::Refused;
    case LOCKDOWN_E_MUX_ERROR:
    case LOCKDOWN_E_RECEIVE_TIMEOUT: return State::Connecting; // its services are not up yet
    default: return State::Failed;
    }
}

void ImobilePhoneWatcher::start()
{
    {
        const std::lock_guard lock(watcherMutex);
        currentWatcher = this;
    }
    if (!m_subscribed) {
        m_subscribed = idevice_event_subscribe(onDeviceEvent, nullptr) == IDEVICE_E_SUCCESS;
        if (!m_subscribed) {
            // No usbmuxd (or its socket is not there yet): no phone can be seen; look again later.
            setState(State::NoDevice, {});
            m_retry.start(3000);
            return;
        }
    }
    setState(m_udid.isEmpty() ? State::Searching : m_state, m_name);
    // usbmuxd announces the phones already there; none announced soon means none is there.
    QTimer::singleShot(1500, this, [this] {
        if (m_state == State::Searching)
            setState(State::NoDevice, {});
    });
}

void ImobilePhoneWatcher::stop()
{
    m_retry.stop();
    ++m_shared->run;
    {
        const std::lock_guard lock(watcherMutex);
        if (currentWatcher == this)
            currentWatcher = nullptr;
    }
    if (m_subscribed)
        idevice_event_unsubscribe();
    m_subscribed = false;
}

void ImobilePhoneWatcher::refresh()
{
    if (m_udid.isEmpty()) {
        stop();
        start();
        return;
    }
    m_attempt = 0;
    handshake();
}

void ImobilePhoneWatcher::deviceAdded(const QString& udid)
{
    if (!m_udid.isEmpty() && m_udid != udid)
        return; // one phone at a time: the first one plugged
    m_udid = udid;
    m_attempt = 0;
    handshake();
}

void ImobilePhoneWatcher::deviceRemoved(const QString& udid)
{
    if (udid != m_udid)
        return;
    ++m_shared->run;
    m_retry.stop();
    m_udid.clear();
    setState(State::NoDevice, {});
}

void ImobilePhoneWatcher::handshake()
{
    setState(State::Connecting, m_name);
    const int run = ++m_shared->run;
    const QString udid = m_udid;
    // The handshake waits on the phone: never on the GUI thread.
    std::thread([shared = m_shared, watcher = QPointer<ImobilePhoneWatcher>(this), run, udid] {
        QString name;
        int result = LOCKDOWN_E_MUX_ERROR;
        if (const Device device = openDevice(udid)) {
            name = nameOf(device.get());
            lockdownd_client_t client = nullptr;
            result = lockdownd_client_new_with_handshake(device.get(), &client, label);
            if (client)
                lockdownd_client_free(client);
        }
        if (shared->run != run)
            return;
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [watcher, shared, run, result, name] {
                if (!watcher || shared->run != run)
                    return;
                const State state = stateOfHandshake(result);
                if (state == State::Connecting && ++watcher->m_attempt < handshakeAttempts) {
                    watcher->setState(State::Connecting, name);
                    watcher->m_retry.start(handshakeRetryMs);
                    return;
                }
                watcher->setState(state == State::Connecting ? State::Failed : state, name);
            },
            Qt::QueuedConnection);
    }).detach();
}

void ImobilePhoneWatcher::setState(State state, const QString& name)
{
    if (state == m_state && name == m_name)
        return;
    m_state = state;
    m_name = name;
    {
        const std::lock_guard lock(m_shared->readyMutex);
        m_shared->readyUdid = state == State::Ready ? m_udid : QString();
        m_shared->readyName = name;
    }
    Q_EMIT stateChanged();
}

std::shared_ptr<CameraSource> ImobilePhoneWatcher::camera()
{
    if (m_state != State::Ready)
        return nullptr;
    Device device = openDevice(m_udid);
    if (!device)
        return nullptr;
    afc_client_t afc = nullptr;
    if (afc_client_start_service(device.get(), &afc, label) != AFC_E_SUCCESS)
        return nullptr;
    return std::make_shared<AfcCamera>(m_udid, m_name, std::move(device),
                                       std::shared_ptr<afc_client_private>(afc, AfcDeleter()));
}

QString ImobilePhoneWatcher::nameOfMountedPhone(const QString& folder)
{
    // The desktop's file manager mounts a phone as ".../gvfs/afc:host=<UDID>…".
    static const QRegularExpression mounted(QStringLiteral("/afc:host=([0-9A-Fa-f-]{20,64})"));
    const QRegularExpressionMatch match = mounted.match(QDir::cleanPath(folder));
    if (!match.hasMatch())
        return {};
    const Device device = openDevice(match.captured(1));
    return device ? nameOf(device.get()) : QString();
}

} // namespace nuvrel
