#include "engines/transfer/LocalFileServer.h"

#include <QFile>
#include <QFileInfo>
#include <QNetworkInterface>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>

namespace nuvrel {

namespace {

constexpr qint64 readPiece = qint64(256) * 1024;
constexpr qint64 progressStep = qint64(4) * 1024 * 1024;

bool isPrivate(const QHostAddress& address)
{
    return address.isInSubnet(QHostAddress(QStringLiteral("10.0.0.0")), 8) ||
           address.isInSubnet(QHostAddress(QStringLiteral("172.16.0.0")), 12) ||
           address.isInSubnet(QHostAddress(QStringLiteral("192.168.0.0")), 16);
}

bool isLocalNetworkInterface(const QString& name)
{
    return name.startsWith(QLatin1String("wl")) || name.startsWith(QLatin1String("en")) ||
           name.startsWith(QLatin1String("eth"));
}

} // namespace

/// One connection: its head read within the deadline, its answer written, its file streamed as the
/// client takes it. Deletes itself when the connection ends.
class LocalFileServer::Exchange final : public QObject
{
public:
    Exchange(LocalFileServer& server, QTcpSocket* socket)
        : QObject(&server)
        , m_server(server)
        , m_socket(socket)
    {
        m_socket->setParent(this);
        m_deadline.setSingleShot(true);
        m_deadline.start(server.m_headDeadlineMs);
        connect(&m_deadline, &QTimer::timeout, this, [this] { m_socket->abort(); });
        connect(m_socket, &QTcpSocket::readyRead, this, &Exchange::read);
        connect(m_socket, &QTcpSocket::bytesWritten, this, &Exchange::pump);
        connect(m_socket, &QTcpSocket::disconnected, this, &Exchange::end);
        connect(m_socket, &QTcpSocket::errorOccurred, this, [this] {
            if (m_socket->state() == QAbstractSocket::UnconnectedState)
                end();
        });
    }

    /// Reads what already arrived; separate from the constructor, since it may end the exchange.
    void begin() { read(); }

    /// Ends the connection at once, without a word to the server: it is stopping.
    void cut()
    {
        m_ended = true;
        m_socket->disconnect(this);
        m_socket->abort();
    }

private:
    void read()
    {
        if (m_answered) {
            m_socket->readAll(); // one request per connection: the rest is not ours to read
            return;
        }
        const QByteArray bytes = m_socket->readAll();
        switch (m_reader.feed(bytes)) {
        case HttpRequestReader::State::NeedMore: return;
        case HttpRequestReader::State::TooLarge: m_socket->abort(); return;
        case HttpRequestReader::State::Complete: break;
        }
        m_answered = true;
        m_deadline.stop();
        answer(HttpAnswers::answer(m_reader.request(), m_server.m_token, m_server.m_files));
    }

    void answer(HttpAnswer answer)
    {
        if (answer.file >= 0) {
            const ServedFile& served = m_server.m_files.at(answer.file);
            m_file.setFileName(served.path);
            // A file gone or changed since it was chosen is not served half right.
            if (!m_file.open(QIODevice::ReadOnly) || m_file.size() != served.size || !m_file.seek(answer.offset)) {
                m_file.close();
                answer = HttpAnswer{404, HttpAnswers::notFound, {}, -1, 0, 0};
            } else {
                m_remaining = answer.length;
                m_download = m_server.m_nextDownload++;
                Q_EMIT m_server.downloadStarted(m_download, answer.file, answer.length);
            }
        }
        m_socket->write(answer.head);
        if (!answer.body.isEmpty())
            m_socket->write(answer.body);
        pump();
    }

    /// Reads from the disk only what the socket can take soon: memory stays near sendWindow per
    /// connection, whatever the file's size.
    void pump()
    {
        while (m_remaining > 0 && m_socket->bytesToWrite() < sendWindow) {
            const qint64 piece = std::min(readPiece, m_remaining);
            const QByteArray bytes = m_file.read(piece);
            if (bytes.size() != piece) { // shorter than it was: this download ends here
                m_failed = true;
                m_socket->abort();
                return;
            }
            m_socket->write(bytes);
            m_remaining -= piece;
            m_sent += piece;
        }
        // A few signals a second even at full speed: each crosses threads to the page.
        if (m_download >= 0 && m_sent > m_reported && (m_sent - m_reported >= progressStep || m_remaining == 0)) {
            m_reported = m_sent;
            Q_EMIT m_server.downloadProgress(m_download, m_sent);
        }
        if (m_answered && m_remaining == 0 && m_socket->bytesToWrite() == 0 &&
            m_socket->state() == QAbstractSocket::ConnectedState)
            m_socket->disconnectFromHost();
    }

    void end()
    {
        if (m_ended)
            return;
        m_ended = true;
        if (m_download >= 0)
            Q_EMIT m_server.downloadFinished(m_download,
                                             !m_failed && m_remaining == 0 && m_socket->bytesToWrite() == 0);
        m_server.exchangeEnded(this);
        deleteLater();
    }

    LocalFileServer& m_server;
    QTcpSocket* m_socket;
    QTimer m_deadline;
    HttpRequestReader m_reader;
    QFile m_file;
    qint64 m_remaining = 0;
    qint64 m_sent = 0;
    qint64 m_reported = 0;
    int m_download = -1;
    bool m_answered = false;
    bool m_failed = false;
    bool m_ended = false;
};

LocalFileServer::LocalFileServer(QObject* parent)
    : QObject(parent)
    , m_server(new QTcpServer(this))
{
    // Room in the system's queue for a burst of phones and tabs beyond what is served at once.
    m_server->setListenBacklogSize(maxConnections);
    connect(m_server, &QTcpServer::newConnection, this, &LocalFileServer::accept);
}

LocalFileServer::~LocalFileServer()
{
    stop();
}

QList<LocalAddress> LocalFileServer::candidateAddresses()
{
    QList<LocalAddress> found;
    const QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface& interface : interfaces) {
        const auto flags = interface.flags();
        if (!flags.testFlag(QNetworkInterface::IsUp) || !flags.testFlag(QNetworkInterface::IsRunning) ||
            flags.testFlag(QNetworkInterface::IsLoopBack))
            continue;
        const QList<QNetworkAddressEntry> entries = interface.addressEntries();
        for (const QNetworkAddressEntry& entry : entries) {
            const QHostAddress address = entry.ip();
            if (address.protocol() != QAbstractSocket::IPv4Protocol || address.isLoopback())
                continue;
            found.append(
                {address, interface.name(),
                 interface.type() == QNetworkInterface::Wifi || interface.name().startsWith(QLatin1String("wl"))});
        }
    }
    return ranked(found);
}

QList<LocalAddress> LocalFileServer::ranked(QList<LocalAddress> addresses)
{
    const auto rank = [](const LocalAddress& candidate) {
        return std::pair{isLocalNetworkInterface(candidate.interfaceName) || candidate.wireless ? 0 : 1,
                         isPrivate(candidate.address) ? 0 : 1};
    };
    std::stable_sort(addresses.begin(), addresses.end(),
                     [&rank](const LocalAddress& a, const LocalAddress& b) { return rank(a) < rank(b); });
    return addresses;
}

bool LocalFileServer::start(const QList<ServedFile>& files, const QHostAddress& address, quint16 port)
{
    stop();
    if (address.isNull() || !m_server->listen(address, port))
        return false;
    m_files = files;
    m_token = HttpAnswers::newToken();
    return true;
}

void LocalFileServer::stop()
{
    m_server->close();
    m_token.clear();
    // Every connection goes with its listener; what they were sending is cut.
    const QSet<Exchange*> exchanges = std::exchange(m_exchanges, {});
    for (Exchange* exchange : exchanges) {
        exchange->cut();
        delete exchange;
    }
}

bool LocalFileServer::isRunning() const
{
    return m_server->isListening();
}

QString LocalFileServer::url() const
{
    if (!isRunning())
        return {};
    return QStringLiteral("http://%1:%2/%3/")
        .arg(m_server->serverAddress().toString())
        .arg(m_server->serverPort())
        .arg(m_token);
}

void LocalFileServer::accept()
{
    while (m_exchanges.size() < maxConnections && m_server->hasPendingConnections()) {
        auto* exchange = new Exchange(*this, m_server->nextPendingConnection());
        m_exchanges.insert(exchange); // before it runs: it may end at once
        exchange->begin();
    }
    // More wait in the system's queue until a connection ends.
    if (m_exchanges.size() >= maxConnections)
        m_server->pauseAccepting();
}

void LocalFileServer::exchangeEnded(Exchange* exchange)
{
    m_exchanges.remove(exchange);
    if (m_server->isListening() && m_exchanges.size() < maxConnections) {
        m_server->resumeAccepting();
        accept();
    }
}

} // namespace nuvrel
