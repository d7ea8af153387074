#pragma once

#include "engines/transfer/LocalFileServer.h"
#include "platform/NearbyShare.h"
#include "platform/Services.h"

#include <QImage>
#include <QObject>
#include <QStringList>
#include <QThread>

#include <functional>
#include <memory>

namespace nuvrel {

class Job;
class TransferPrep;

/// The "Mac vers iPhone" page: files and folders chosen, then served to a phone's browser on the local
/// network (a folder as one zip archive) from the address and QR code shown, with the downloads as
/// they happen; or handed to the system's nearby share (AirDrop, KDE Connect). The server runs on a
/// thread of its own, so that a busy window never slows a download, and stops with the model.
class TransferModel final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QStringList items READ items NOTIFY itemsChanged)
    Q_PROPERTY(bool isPreparing READ isPreparing NOTIFY stateChanged)
    Q_PROPERTY(bool isRunning READ isRunning NOTIFY stateChanged)
    Q_PROPERTY(double progress READ progress NOTIFY stateChanged)
    Q_PROPERTY(QString urlString READ urlString NOTIFY stateChanged)
    Q_PROPERTY(QImage qrImage READ qrImage NOTIFY stateChanged)
    Q_PROPERTY(QString status READ status NOTIFY statusChanged)
    Q_PROPERTY(QStringList addressChoices READ addressChoices NOTIFY addressesChanged)
    Q_PROPERTY(int addressIndex READ addressIndex WRITE setAddressIndex NOTIFY addressesChanged)
    Q_PROPERTY(bool canSendNearby READ canSendNearby NOTIFY nearbyChanged)
    Q_PROPERTY(QString nearbyTitle READ nearbyTitle NOTIFY nearbyChanged)
    Q_PROPERTY(QString nearbyButtonText READ nearbyButtonText NOTIFY nearbyChanged)
    Q_PROPERTY(QString nearbyText READ nearbyText NOTIFY nearbyChanged)
    Q_PROPERTY(QStringList nearbyDevices READ nearbyDevices NOTIFY nearbyChanged)

public:
    /// One download by a phone, as the list shows it.
    struct Download
    {
        enum class State { Running, Done, Interrupted };
        int id = 0;
        QString name;
        qint64 length = 0; ///< bytes asked: the whole file, or what remained of it
        qint64 sent = 0;
        State state = State::Running;
    };

    /// Where the server may listen; tests give loopback.
    using AddressSource = std::function<QList<LocalAddress>()>;

    explicit TransferModel(Services services, AddressSource addresses = &LocalFileServer::candidateAddresses,
                           QObject* parent = nullptr);
    ~TransferModel() override;

    /// The files and folders chosen, in their order.
    const QStringList& items() const { return m_items; }
    bool isPreparing() const;
    bool isRunning() const { return !m_url.isEmpty(); }
    /// 0..1 while folders are compressed; -1 when it cannot be told.
    double progress() const { return m_progress; }
    /// "http://192.168.1.20:50123/TOKEN/", what the QR code holds; empty while stopped.
    QString urlString() const { return m_url; }
    /// One pixel per module, the quiet zone included: the view scales it by whole factors.
    QImage qrImage() const { return m_qrImage; }
    /// The last step or error, in the language in force.
    QString status() const { return m_status ? m_status() : QString(); }
    /// What is served, in the order chosen (folders as their archives).
    const QList<ServedFile>& servedFiles() const { return m_served; }
    /// The downloads since the start, the latest last.
    const QList<Download>& downloads() const { return m_downloads; }

    /// "192.168.1.20 (wlp2s0, Wi-Fi)"; the first is the best.
    QStringList addressChoices() const;
    int addressIndex() const { return m_addressIndex; }
    /// Takes effect at the next start.
    void setAddressIndex(int index);

    bool canSendNearby() const;
    /// "AirDrop en un clic", "KDE Connect en un clic"
    QString nearbyTitle() const;
    /// "Envoyer par AirDrop", "Envoyer avec KDE Connect"
    QString nearbyButtonText() const;
    /// What the nearby share is for, or why it cannot be used here.
    QString nearbyText() const;
    /// The phones KDE Connect can reach; empty where the system chooses (AirDrop).
    QStringList nearbyDevices() const;

    /// The chooser's answer: replaces the list. Ignored while serving.
    Q_INVOKABLE void setItems(const QStringList& paths);
    /// Files dropped on the page: added to the list, each once. Ignored while serving.
    Q_INVOKABLE void addItems(const QStringList& paths);
    /// Prepares the folders, then serves everything on the chosen address under a new port and token.
    Q_INVOKABLE void start();
    /// Stops preparing or serving (every connection cut) and forgets the archives made for it.
    Q_INVOKABLE void stop();
    /// Stops and empties the list, for the user to choose again.
    Q_INVOKABLE void changeFiles();
    /// Looks again for this machine's addresses (a network joined or left).
    Q_INVOKABLE void refreshAddresses();
    /// Asks the nearby share what it can reach now.
    Q_INVOKABLE void refreshNearby();
    /// Hands the chosen items (folders as archives) to the nearby share, to device `index` of
    /// nearbyDevices() (ignored where the system chooses).
    Q_INVOKABLE void sendNearby(int index = 0);

Q_SIGNALS:
    void itemsChanged();
    void stateChanged();
    void statusChanged();
    void addressesChanged();
    void nearbyChanged();
    /// The list of downloads changed: one added, or one moved on (a few times a second at most).
    void downloadsChanged();

private:
    using Text = std::function<QString()>;

    void setStatus(Text status);
    void serve(std::shared_ptr<TransferPrep> prep, QList<ServedFile> files, const QStringList& failed);
    void downloadStarted(int id, int file, qint64 length);
    void downloadProgress(int id, qint64 sent);
    void downloadFinished(int id, bool complete);
    Download* download(int id);

    Services m_services;
    AddressSource m_addressSource;
    Job* m_job;        ///< folders being compressed
    quint64 m_run = 0; ///< which start a preparation belongs to: a stop makes it stale
    Job* m_nearbyJob;  ///< the nearby share asked or given files
    QThread m_serverThread;
    LocalFileServer* m_server;                          ///< lives on m_serverThread
    std::shared_ptr<TransferPrep> m_prep;               ///< the archives served; they go with it
    QList<std::shared_ptr<TransferPrep>> m_nearbyPreps; ///< archives the nearby share may still read

    QStringList m_items;
    QList<ServedFile> m_served;
    QList<LocalAddress> m_addresses;
    int m_addressIndex = 0;
    QString m_url;
    QImage m_qrImage;
    double m_progress = -1;
    Text m_status;
    QList<Download> m_downloads;
    qint64 m_lastDownloadsSignal = 0;
    NearbyShare::Availability m_nearby;
    bool m_nearbyKnown = false;
};

} // namespace nuvrel
