#include "cli/ServeCommand.h"

#include "engines/transfer/LocalFileServer.h"
#include "engines/transfer/QrCode.h"
#include "engines/transfer/TransferPrep.h"
#include "l10n/L.h"
#include "l10n/Localizer.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QHash>
#include <QSocketNotifier>
#include <QTime>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace nuvrel::cli {

namespace {

constexpr int stoppingSignals[] = {SIGINT, SIGTERM, SIGHUP};

// The write end of the pipe a stopping signal is told through: the handler may only write a byte.
int signalPipe = -1;

extern "C" void tellStop(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(signalPipe, &byte, 1);
}

/// Ctrl+C (and the other stopping signals) end the event loop, so that the server closes its
/// connections and the archives made for this run are removed on the way out.
class StopOnSignals final
{
public:
    StopOnSignals()
    {
        if (::socketpair(AF_UNIX, SOCK_STREAM, 0, m_pair) != 0)
            return;
        signalPipe = m_pair[0];
        m_notifier = std::make_unique<QSocketNotifier>(m_pair[1], QSocketNotifier::Read);
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, qApp, [] { QCoreApplication::quit(); });
        struct sigaction action = {};
        action.sa_handler = tellStop;
        sigemptyset(&action.sa_mask);
        for (size_t i = 0; i < std::size(stoppingSignals); ++i)
            ::sigaction(stoppingSignals[i], &action, &m_previous[i]);
    }

    ~StopOnSignals()
    {
        if (signalPipe < 0)
            return;
        for (size_t i = 0; i < std::size(stoppingSignals); ++i)
            ::sigaction(stoppingSignals[i], &m_previous[i], nullptr);
        m_notifier.reset();
        ::close(m_pair[0]);
        ::close(m_pair[1]);
        signalPipe = -1;
    }

    StopOnSignals(const StopOnSignals&) = delete;
    StopOnSignals& operator=(const StopOnSignals&) = delete;

private:
    int m_pair[2] = {-1, -1};
    struct sigaction m_previous[std::size(stoppingSignals)] = {};
    std::unique_ptr<QSocketNotifier> m_notifier;
};

/// The address to listen on: the one asked for, else this machine's best; nothing when none.
std::optional<QHostAddress> listeningAddress(const CommandLine& line, QTextStream& err, int& failure)
{
    if (line.address) {
        const QHostAddress address(*line.address);
        if (address.isNull() || address.protocol() != QAbstractSocket::IPv4Protocol) {
            err << L("Adresse invalide : %@. Indique une adresse IPv4 de cet ordinateur, par exemple %@.",
                     *line.address, QStringLiteral("192.168.1.20"))
                << '\n';
            failure = BadUsage;
            return std::nullopt;
        }
        return address;
    }
    const QList<LocalAddress> candidates = LocalFileServer::candidateAddresses();
    if (candidates.isEmpty()) {
        err << L("Connecte le Mac au Wi-Fi pour utiliser l'envoi local.") << '\n';
        failure = NothingFound;
        return std::nullopt;
    }
    return candidates.constFirst().address;
}

QString now()
{
    return QTime::currentTime().toString(QStringLiteral("HH:mm:ss"));
}

} // namespace

int runServe(const CommandLine& line, QTextStream& out, QTextStream& err)
{
    if (line.arguments.isEmpty()) {
        err << L("Indique au moins un fichier ou un dossier à envoyer.") << '\n';
        return BadUsage;
    }
    quint16 port = 0;
    if (line.port) {
        bool ok = false;
        port = line.port->toUShort(&ok);
        if (!ok || port == 0) {
            err << L("Port invalide : %@. Choisis un nombre de 1 à 65535.", *line.port) << '\n';
            return BadUsage;
        }
    }
    int failure = 0;
    const std::optional<QHostAddress> address = listeningAddress(line, err, failure);
    if (!address)
        return failure;

    TransferPrep prep;
    const bool hasFolder = std::any_of(line.arguments.cbegin(), line.arguments.cend(), [](const QString& item) {
        const QFileInfo info(item);
        return info.isDir() && !info.isSymLink();
    });
    if (hasFolder) {
        err << L("Préparation du dossier (compression)…") << '\n';
        err.flush();
    }
    const TransferPrep::Result prepared = prep.prepare(line.arguments);
    for (const QString& failed : prepared.failed)
        err << L("« %@ » n'est pas proposé : il ne peut pas être lu, ou ce n'est ni un fichier ni un dossier.", failed)
            << '\n';
    if (prepared.files.isEmpty())
        return NothingFound;

    StopOnSignals stopOnSignals;
    LocalFileServer server;
    if (!server.start(prepared.files, *address, port)) {
        err << L("Impossible de démarrer le partage Wi-Fi.") << '\n';
        return ServeFailed;
    }
    const QString url = server.url();
    out << L("Sur l'iPhone : ouvre l'appareil photo et vise ce code QR, ou ouvre Safari et tape l'adresse en dessous.")
        << "\n\n";
    if (const std::optional<QrCode> code = QrCode::encode(url.toUtf8()))
        out << code->toTerminalText(::isatty(STDOUT_FILENO) == 1);
    out << '\n' << url << "\n\n";
    for (const ServedFile& file : prepared.files)
        out << "  " << file.name << "  (" << Localizer::formatByteCount(file.size) << ")\n";
    out << '\n' << L("Ctrl+C pour arrêter l'envoi.") << '\n';
    out.flush();

    QHash<int, QString> downloads;
    QObject::connect(&server, &LocalFileServer::downloadStarted, &server, [&](int id, int file, qint64 length) {
        const ServedFile& served = prepared.files.at(file);
        downloads.insert(id, served.name);
        out << now() << "  "
            << (length == served.size
                    ? L("Téléchargement de « %@ » commencé (%@).", served.name, Localizer::formatByteCount(length))
                    : L("Téléchargement de « %@ » repris (%@ restants).", served.name,
                        Localizer::formatByteCount(length)))
            << '\n';
        out.flush();
    });
    QObject::connect(&server, &LocalFileServer::downloadFinished, &server, [&](int id, bool complete) {
        const QString name = downloads.take(id);
        out << now() << "  "
            << (complete ? L("« %@ » envoyé.", name)
                         : L("« %@ » interrompu : le téléphone a arrêté le téléchargement.", name))
            << '\n';
        out.flush();
    });
    QCoreApplication::exec();
    server.stop();
    out << L("Envoi arrêté.") << '\n';
    return Found;
}

} // namespace nuvrel::cli
