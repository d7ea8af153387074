#pragma once

#include "engines/transfer/HttpAnswer.h"

#include <QHostAddress>
#include <QObject>
#include <QSet>

class QTcpServer;

namespace nuvrel {

/// An address of this machine a phone on the same network can reach.
struct LocalAddress
{
    QHostAddress address;
    QString interfaceName; ///< "wlp2s0", "en0"…
    bool wireless = false;
};

/// The small HTTP server a phone's browser downloads from: one listening address (never every
/// interface), a random port and a random token, one request per connection. It reads at most a
/// 16 KiB head within a deadline, holds at most `maxConnections` connections (more wait in the
/// system's queue), and streams each file from the disk with back-pressure, never whole in memory.
/// Lives on the thread that made it.
class LocalFileServer final : public QObject
{
    Q_OBJECT

public:
    static constexpr int maxConnections = 256;
    static constexpr int defaultHeadDeadlineMs = 10'000;
    /// What may wait in a connection's send buffer before the next read from the disk.
    static constexpr qint64 sendWindow = qint64(1024) * 1024;

    explicit LocalFileServer(QObject* parent = nullptr);
    ~LocalFileServer() override;

    /// This machine's addresses a phone may reach, best first: Wi-Fi and Ethernet before others,
    /// private ranges before others. Up, running, IPv4, never loopback.
    static QList<LocalAddress> candidateAddresses();
    /// The same order for any list: Wi-Fi and Ethernet first (wl*, en*, eth*, or a wireless one),
    /// then private ranges; otherwise as given.
    static QList<LocalAddress> ranked(QList<LocalAddress> addresses);

    /// Serves `files` on `address` (a system-chosen port when `port` is 0) under a new token; false
    /// when it cannot listen there. Stops a previous run first.
    bool start(const QList<ServedFile>& files, const QHostAddress& address, quint16 port = 0);
    /// Closes the listener and every connection.
    void stop();

    bool isRunning() const;
    /// "http://192.168.1.20:50123/TOKEN/", what the QR code carries; empty while stopped.
    QString url() const;
    QString token() const { return m_token; }
    const QList<ServedFile>& files() const { return m_files; }
    int connectionCount() const { return int(m_exchanges.size()); }
    /// How long a client has to send its request's head before it is closed.
    void setHeadDeadline(int ms) { m_headDeadlineMs = ms; }

Q_SIGNALS:
    /// A download began: `id` names it in the signals that follow.
    void downloadStarted(int id, int file, qint64 length);
    void downloadProgress(int id, qint64 sent);
    /// `complete` false when the client left or the file changed on the way.
    void downloadFinished(int id, bool complete);

private:
    class Exchange;
    void accept();
    void exchangeEnded(Exchange* exchange);

    QTcpServer* m_server;
    QList<ServedFile> m_files;
    QString m_token;
    QSet<Exchange*> m_exchanges;
    int m_nextDownload = 0;
    int m_headDeadlineMs = defaultHeadDeadlineMs;
};

} // namespace nuvrel
