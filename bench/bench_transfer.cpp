// The Wi-Fi transfer server against nginx, both on loopback in the same run:
// - one 2 GB download with curl, nuvrel-cli serve against nginx with sendfile on (one worker, as ours
//   is one thread); the median of three each, taken in turns (target: at least 0.8x nginx's speed);
// - 200 concurrent connections with `wrk --timeout 30s` on a small file for 10 seconds: requests per
//   second, and errors (target: none);
// - nuvrel-cli serve's peak memory over both (target: under 100 MB).
//   build/default/bench/bench_transfer        (bench/run.sh builds and runs it)

#include "cli/ChildProcess.h"
#include "support/MediaFixtures.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <csignal>
#include <optional>

namespace {

using nuvrel::test::ChildLimits;
using nuvrel::test::runChild;

constexpr qint64 bigSize = qint64(2'000'000'000);
constexpr quint16 nuvrelPort = 18'461;
constexpr quint16 nginxPort = 18'462;

QTemporaryDir& workFolder()
{
    static QTemporaryDir folder;
    return folder;
}

QString path(const QString& name)
{
    return workFolder().filePath(name);
}

bool makeFiles()
{
    static const bool made = [] {
        // nginx's workers run as another user: the files must be readable by all.
        QFile::setPermissions(workFolder().path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                                       QFile::ReadOther | QFile::ExeOther);
        QDir().mkpath(path(QStringLiteral("www")));
        QFile small(path(QStringLiteral("www/small.jpg")));
        if (!small.open(QIODevice::WriteOnly) || small.write(QByteArray(20'000, 's')) != 20'000)
            return false;
        QFile big(path(QStringLiteral("www/big.bin")));
        if (!big.open(QIODevice::WriteOnly))
            return false;
        QByteArray block(qsizetype(4) * 1024 * 1024, Qt::Uninitialized);
        QRandomGenerator random(7);
        for (qint64 written = 0; written < bigSize; written += block.size()) {
            random.fillRange(reinterpret_cast<quint32*>(block.data()), block.size() / 4);
            const qint64 length = std::min<qint64>(block.size(), bigSize - written);
            if (big.write(block.constData(), length) != length)
                return false;
        }
        return true;
    }();
    return made;
}

/// A server process, stopped with the object.
class Server
{
public:
    ~Server()
    {
        if (m_process.state() != QProcess::NotRunning) {
            ::kill(pid_t(m_process.processId()), SIGINT);
            if (!m_process.waitForFinished(10'000))
                m_process.kill();
            m_process.waitForFinished();
        }
    }
    QProcess& process() { return m_process; }
    QString url;

private:
    QProcess m_process;
};

std::unique_ptr<Server> startNuvrel()
{
    auto server = std::make_unique<Server>();
    // Its log goes to a file: a pipe nobody reads would stop it once full.
    const QString log = path(QStringLiteral("serve.log"));
    server->process().setStandardOutputFile(log);
    server->process().start(QStringLiteral(NUVREL_CLI),
                            {QStringLiteral("serve"), path(QStringLiteral("www/big.bin")),
                             path(QStringLiteral("www/small.jpg")), QStringLiteral("--address"),
                             QStringLiteral("127.0.0.1"), QStringLiteral("--port"), QString::number(nuvrelPort)});
    if (!server->process().waitForStarted())
        return nullptr;
    static const QRegularExpression address(QStringLiteral("^http://\\S+/$"), QRegularExpression::MultilineOption);
    for (int i = 0; i < 100 && server->url.isEmpty(); ++i) {
        QThread::msleep(100);
        QFile out(log);
        if (out.open(QIODevice::ReadOnly))
            server->url = address.match(QString::fromUtf8(out.readAll())).captured(0);
    }
    return server->url.isEmpty() ? nullptr : std::move(server);
}

std::unique_ptr<Server> startNginx()
{
    const QString prefix = path(QStringLiteral("nginx"));
    QDir().mkpath(prefix);
    QFile conf(prefix + QStringLiteral("/nginx.conf"));
    if (!conf.open(QIODevice::WriteOnly))
        return nullptr;
    conf.write(QStringLiteral("worker_processes 1;\ndaemon off;\npid %1/nginx.pid;\nerror_log %1/error.log;\n"
                              "events { worker_connections 1024; }\n"
                              "http { access_log off; sendfile on; tcp_nopush on;\n"
                              "  client_body_temp_path %1; proxy_temp_path %1; fastcgi_temp_path %1;\n"
                              "  uwsgi_temp_path %1; scgi_temp_path %1;\n"
                              "  server { listen 127.0.0.1:%2; root %3; } }\n")
                   .arg(prefix)
                   .arg(nginxPort)
                   .arg(path(QStringLiteral("www")))
                   .toUtf8());
    conf.close();
    auto server = std::make_unique<Server>();
    server->process().start(QStringLiteral("nginx"),
                            {QStringLiteral("-c"), conf.fileName(), QStringLiteral("-p"), prefix});
    if (!server->process().waitForStarted())
        return nullptr;
    QThread::msleep(500);
    server->url = QStringLiteral("http://127.0.0.1:%1/").arg(nginxPort);
    return server;
}

/// curl's average speed over one whole download, in MB/s.
std::optional<double> downloadSpeed(const QString& url)
{
    ChildLimits limits;
    limits.watchdog = std::chrono::minutes(5);
    const auto run = runChild(QStringLiteral("curl"),
                              {QStringLiteral("-s"), QStringLiteral("-o"), QStringLiteral("/dev/null"),
                               QStringLiteral("-w"), QStringLiteral("%{speed_download} %{size_download}"), url},
                              limits);
    const QStringList fields = run.out.split(u' ');
    if (fields.size() != 2 || fields[1].toLongLong() != bigSize)
        return std::nullopt;
    return fields[0].toDouble() / 1e6;
}

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

qint64 peakMegabytes(const QProcess& process)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(process.processId()));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    static const QRegularExpression peak(QStringLiteral("VmHWM:\\s+(\\d+) kB"));
    return peak.match(QString::fromLatin1(status.readAll())).captured(1).toLongLong() / 1024;
}

struct WrkResult
{
    double requestsPerSecond = 0;
    qint64 errors = -1;
};

WrkResult hammer(const QString& url)
{
    ChildLimits limits;
    limits.watchdog = std::chrono::minutes(2);
    const auto run = runChild(QStringLiteral("wrk"),
                              {QStringLiteral("-t2"), QStringLiteral("-c200"), QStringLiteral("-d10s"),
                               QStringLiteral("--timeout"), QStringLiteral("30s"), url},
                              limits);
    WrkResult result;
    static const QRegularExpression rate(QStringLiteral("Requests/sec:\\s+([\\d.]+)"));
    static const QRegularExpression socketErrors(
        QStringLiteral("Socket errors: connect (\\d+), read (\\d+), write (\\d+), timeout (\\d+)"));
    static const QRegularExpression non2xx(QStringLiteral("Non-2xx or 3xx responses: (\\d+)"));
    const auto found = rate.match(run.out);
    if (!found.hasMatch())
        return result;
    result.requestsPerSecond = found.captured(1).toDouble();
    result.errors = 0;
    if (const auto errors = socketErrors.match(run.out); errors.hasMatch()) {
        // A read "error" is a peer closing after its answer, as both servers do here.
        result.errors +=
            errors.captured(1).toLongLong() + errors.captured(3).toLongLong() + errors.captured(4).toLongLong();
    }
    if (const auto bad = non2xx.match(run.out); bad.hasMatch())
        result.errors += bad.captured(1).toLongLong();
    return result;
}

void Transfer_2GBAndWrk200_AgainstNginx(benchmark::State& state)
{
    for (const QString& tool : {QStringLiteral("curl"), QStringLiteral("nginx"), QStringLiteral("wrk")}) {
        if (!nuvrel::test::hasTool(tool)) {
            state.SkipWithError(qPrintable(tool + QStringLiteral(" is not installed")));
            return;
        }
    }
    if (!makeFiles()) {
        state.SkipWithError("could not write the 2 GB file");
        return;
    }
    const std::unique_ptr<Server> nuvrel = startNuvrel();
    const std::unique_ptr<Server> nginx = startNginx();
    if (!nuvrel || !nginx) {
        state.SkipWithError("a server did not start");
        return;
    }
    for (auto _ : state) {
        QList<double> ours, theirs;
        for (int round = 0; round < 3; ++round) {
            const auto a = downloadSpeed(nuvrel->url + QStringLiteral("f/0"));
            const auto b = downloadSpeed(nginx->url + QStringLiteral("big.bin"));
            if (!a || !b) {
                state.SkipWithError("a download came short");
                return;
            }
            ours.append(*a);
            theirs.append(*b);
        }
        const WrkResult ourLoad = hammer(nuvrel->url + QStringLiteral("f/1"));
        const WrkResult theirLoad = hammer(nginx->url + QStringLiteral("small.jpg"));
        state.counters["nuvrel_MB_per_s"] = median(ours);
        state.counters["nginx_MB_per_s"] = median(theirs);
        state.counters["ratio_to_nginx"] = median(ours) / median(theirs);
        state.counters["nuvrel_wrk_req_per_s"] = ourLoad.requestsPerSecond;
        state.counters["nuvrel_wrk_errors"] = double(ourLoad.errors);
        state.counters["nginx_wrk_req_per_s"] = theirLoad.requestsPerSecond;
        state.counters["nginx_wrk_errors"] = double(theirLoad.errors);
        state.counters["nuvrel_peak_MB"] = double(peakMegabytes(nuvrel->process()));
    }
}
BENCHMARK(Transfer_2GBAndWrk200_AgainstNginx)->Iterations(1)->Unit(benchmark::kSecond);

} // namespace

BENCHMARK_MAIN();
