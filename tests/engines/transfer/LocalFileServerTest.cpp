// The transfer server on loopback, with curl as the phone: downloads byte for byte, ranges, and the
// clients that misbehave (silent, endless, vanishing) closed without holding up the others.

#include "engines/transfer/LocalFileServer.h"
#include "engines/transfer/QrCode.h"
#include "support/BackupFixture.h"
#include "support/HttpFetch.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include <unistd.h>

using namespace nuvrel;
using namespace nuvrel::test;

namespace {

class LocalFileServerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (QStandardPaths::findExecutable(QStringLiteral("curl")).isEmpty())
            GTEST_SKIP() << "curl is not installed";
        m_bytes = noise(5'000'001, 21);
        const QString path = m_folder.filePath(QStringLiteral("vidéo.mov"));
        writeFile(path, m_bytes);
        m_files = {{path, QStringLiteral("vidéo.mov"), m_bytes.size(), QFileInfo(path).lastModified()}};
        ASSERT_TRUE(m_server.start(m_files, QHostAddress::LocalHost));
    }

    QTemporaryDir m_folder;
    QByteArray m_bytes;
    QList<ServedFile> m_files;
    LocalFileServer m_server;
};

} // namespace

TEST_F(LocalFileServerTest, ServesTheListedFilesToWhoeverHasTheToken)
{
    const QString url = m_server.url();
    ASSERT_TRUE(url.startsWith(QStringLiteral("http://127.0.0.1:")));
    QSignalSpy finished(&m_server, &LocalFileServer::downloadFinished);

    const Fetched index = fetch(url);
    EXPECT_EQ(index.status, 200);
    EXPECT_TRUE(index.body.contains("vid\xC3\xA9o.mov</a>"));
    const Fetched whole = fetch(url + QStringLiteral("f/0"));
    EXPECT_EQ(whole.status, 200);
    EXPECT_TRUE(whole.body == m_bytes);
    ASSERT_TRUE(QTest::qWaitFor([&] { return finished.count() == 1; }, 5000));
    EXPECT_TRUE(finished.at(0).at(1).toBool());

    const Fetched part = fetch(url + QStringLiteral("f/0"), {QStringLiteral("-r"), QStringLiteral("4999990-")});
    EXPECT_EQ(part.status, 206);
    EXPECT_EQ(part.body, m_bytes.right(11));

    // Without the token, or with another one: nothing.
    const QString root = url.section(u'/', 0, 2);
    EXPECT_EQ(fetch(root + QStringLiteral("/")).status, 404);
    EXPECT_EQ(fetch(root + QStringLiteral("/f/0")).status, 404);
    EXPECT_EQ(fetch(root + QStringLiteral("/aaaaaaaaaaaaaaaaaaaaaaaaaa/f/0")).status, 404);

    // A file changed since it was chosen is not served half right.
    writeFile(m_files[0].path + QStringLiteral(".new"), QByteArrayLiteral("short"));
    QFile::remove(m_files[0].path);
    QFile::rename(m_files[0].path + QStringLiteral(".new"), m_files[0].path);
    EXPECT_EQ(fetch(url + QStringLiteral("f/0")).status, 404);

    m_server.stop();
    EXPECT_FALSE(m_server.isRunning());
    EXPECT_TRUE(m_server.url().isEmpty());
    EXPECT_EQ(fetch(url).status, 0); // nothing listens any more
}

TEST_F(LocalFileServerTest, ClientsThatMisbehaveAreClosedWithoutHoldingUpTheOthers)
{
    m_server.setHeadDeadline(1500);
    const QUrl url(m_server.url());
    const auto connectClient = [&url] {
        auto* socket = new QTcpSocket;
        socket->connectToHost(QHostAddress::LocalHost, quint16(url.port()));
        return socket;
    };

    // Silent clients, a head that never ends, and one that leaves mid-download.
    QList<QTcpSocket*> silent;
    for (int i = 0; i < 20; ++i)
        silent.append(connectClient());
    QTcpSocket* endless = connectClient();
    ASSERT_TRUE(endless->waitForConnected(5000));
    endless->write("GET " + url.path().toLatin1() + " HTTP/1.1\r\n");
    for (int i = 0; i < 40; ++i)
        endless->write("X-Padding: " + QByteArray(1000, 'p') + "\r\n");
    QTcpSocket* leaving = connectClient();
    ASSERT_TRUE(leaving->waitForConnected(5000));
    leaving->write("GET " + url.path().toLatin1() + "f/0 HTTP/1.1\r\n\r\n");
    QSignalSpy finished(&m_server, &LocalFileServer::downloadFinished);
    ASSERT_TRUE(QTest::qWaitFor([&] { return leaving->bytesAvailable() > 1000; }, 5000));
    leaving->abort();
    ASSERT_TRUE(QTest::qWaitFor([&] { return finished.count() == 1; }, 10'000));
    EXPECT_FALSE(finished.at(0).at(1).toBool());

    // Meanwhile a phone still downloads the whole file.
    const Fetched whole = fetch(url.toString() + QStringLiteral("f/0"));
    EXPECT_EQ(whole.status, 200);
    EXPECT_TRUE(whole.body == m_bytes);

    // The endless head is cut at 16 KiB without an answer; the silent ones at the deadline.
    EXPECT_TRUE(QTest::qWaitFor([&] { return endless->state() == QAbstractSocket::UnconnectedState; }, 5000));
    EXPECT_TRUE(endless->readAll().isEmpty());
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            return std::all_of(silent.cbegin(), silent.cend(),
                               [](QTcpSocket* s) { return s->state() == QAbstractSocket::UnconnectedState; });
        },
        10'000));
    EXPECT_TRUE(QTest::qWaitFor([&] { return m_server.connectionCount() == 0; }, 5000));
    qDeleteAll(silent);
    delete endless;
    delete leaving;
}

TEST_F(LocalFileServerTest, LongHeadsAreReadInPiecesUpToTheirCapAndSlowSendersTimeOut)
{
    m_server.setHeadDeadline(4000);
    const QUrl url(m_server.url());
    const auto connectClient = [&url] {
        auto* socket = new QTcpSocket;
        socket->connectToHost(QHostAddress::LocalHost, quint16(url.port()));
        socket->waitForConnected(5000);
        return socket;
    };

    // A request line over 8,192 bytes, in pieces: read whole, answered (the query is not ours).
    std::unique_ptr<QTcpSocket> longLine(connectClient());
    const QByteArray line = "GET " + url.path().toLatin1() + "f/0?" + QByteArray(9000, 'q') + " HTTP/1.1\r\n\r\n";
    for (qsizetype at = 0; at < line.size(); at += 1000) {
        longLine->write(line.mid(at, 1000));
        longLine->flush();
        QTest::qWait(5);
    }
    QByteArray answer;
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            answer += longLine->readAll();
            return longLine->state() == QAbstractSocket::UnconnectedState || answer.size() > m_bytes.size();
        },
        10'000));
    answer += longLine->readAll();
    EXPECT_TRUE(answer.startsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_TRUE(answer.endsWith(m_bytes.right(1000)));

    // A 1 MB header: cut at the cap, without a word.
    std::unique_ptr<QTcpSocket> huge(connectClient());
    huge->write("GET " + url.path().toLatin1() + " HTTP/1.1\r\nX-Huge: " + QByteArray(1'000'000, 'h') + "\r\n\r\n");
    ASSERT_TRUE(QTest::qWaitFor([&] { return huge->state() == QAbstractSocket::UnconnectedState; }, 10'000));
    EXPECT_TRUE(huge->readAll().isEmpty());

    // Fifty clients sending a byte every 200 ms: closed at the deadline, while a phone downloads.
    std::vector<std::unique_ptr<QTcpSocket>> slow;
    slow.reserve(50);
    for (int i = 0; i < 50; ++i)
        slow.emplace_back(connectClient());
    QTimer drip;
    const QByteArray request = "GET " + url.path().toLatin1() + " HTTP/1.1\r\nX-Slow: " + QByteArray(100, 's');
    qsizetype sent = 0;
    QObject::connect(&drip, &QTimer::timeout, [&] {
        for (const auto& socket : slow) {
            if (socket->state() == QAbstractSocket::ConnectedState)
                socket->write(request.mid(sent % request.size(), 1));
        }
        ++sent;
    });
    drip.start(200);
    const Fetched whole = fetch(url.toString() + QStringLiteral("f/0"));
    EXPECT_TRUE(whole.body == m_bytes);
    // Done while they still dripped: it never waited for them.
    EXPECT_TRUE(std::any_of(slow.cbegin(), slow.cend(),
                            [](const auto& s) { return s->state() == QAbstractSocket::ConnectedState; }));
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            return std::all_of(slow.cbegin(), slow.cend(),
                               [](const auto& s) { return s->state() == QAbstractSocket::UnconnectedState; });
        },
        10'000));
    drip.stop();
    EXPECT_TRUE(QTest::qWaitFor([&] { return m_server.connectionCount() == 0; }, 5000));
}

TEST_F(LocalFileServerTest, APhoneSizedChromiumOpensTheListTheQrCodeLeadsTo)
{
    const QString chromium = QStandardPaths::findExecutable(QStringLiteral("chromium"));
    const QString zbarimg = QStandardPaths::findExecutable(QStringLiteral("zbarimg"));
    const QString pdftotext = QStandardPaths::findExecutable(QStringLiteral("pdftotext"));
    if (chromium.isEmpty() || zbarimg.isEmpty() || pdftotext.isEmpty())
        GTEST_SKIP() << "chromium, zbarimg (zbar-tools) or pdftotext (poppler-utils) is not installed";
    const QString tricky = m_folder.filePath(QStringLiteral("a <b> & c.txt"));
    writeFile(tricky, QByteArrayLiteral("<b>not bold</b>"));
    m_files.append({tricky, QStringLiteral("a <b> & c.txt"), 15, QFileInfo(tricky).lastModified()});
    ASSERT_TRUE(m_server.start(m_files, QHostAddress::LocalHost));

    // The address as a camera reads it from the code.
    const std::optional<QrCode> code = QrCode::encode(m_server.url().toUtf8());
    ASSERT_TRUE(code);
    const QImage image = code->toImage();
    const QString png = m_folder.filePath(QStringLiteral("code.png"));
    ASSERT_TRUE(image.scaled(image.size() * 6, Qt::IgnoreAspectRatio, Qt::FastTransformation).save(png));
    QProcess zbar;
    zbar.start(zbarimg, {QStringLiteral("--quiet"), QStringLiteral("--raw"), png});
    ASSERT_TRUE(zbar.waitForFinished(30'000));
    const QString scanned = QString::fromUtf8(zbar.readAllStandardOutput().trimmed());
    EXPECT_EQ(scanned, m_server.url());

    // A phone-sized window prints what it shows; the server's loop turns meanwhile.
    const QString pdf = m_folder.filePath(QStringLiteral("page.pdf"));
    QProcess browser;
    browser.setProcessChannelMode(QProcess::MergedChannels);
    browser.start(chromium,
                  {QStringLiteral("--headless"), QStringLiteral("--no-sandbox"), QStringLiteral("--disable-gpu"),
                   QStringLiteral("--no-first-run"), QStringLiteral("--window-size=390,844"),
                   QStringLiteral("--user-data-dir=") + m_folder.filePath(QStringLiteral("profile")),
                   QStringLiteral("--print-to-pdf=") + pdf, scanned});
    ASSERT_TRUE(browser.waitForStarted(10'000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return browser.state() == QProcess::NotRunning; }, 120'000));
    ASSERT_TRUE(QFileInfo::exists(pdf)) << browser.readAll().constData();
    QProcess text;
    text.start(pdftotext, {QStringLiteral("-enc"), QStringLiteral("UTF-8"), pdf, QStringLiteral("-")});
    ASSERT_TRUE(text.waitForFinished(30'000));
    const QString shown = QString::fromUtf8(text.readAllStandardOutput());
    EXPECT_TRUE(shown.contains(QStringLiteral("a <b> & c.txt"))) << qPrintable(shown);
    EXPECT_TRUE(shown.contains(QStringLiteral("vidéo.mov"))) << qPrintable(shown);

    // Its links lead to the files, byte for byte.
    EXPECT_EQ(fetch(scanned + QStringLiteral("f/1")).body, QByteArrayLiteral("<b>not bold</b>"));
    EXPECT_TRUE(fetch(scanned + QStringLiteral("f/0")).body == m_bytes);
}

TEST(LocalFileServerAddresses, WiFiAndEthernetFirstThenPrivateRanges)
{
    const auto at = [](const char* address, const char* name, bool wireless = false) {
        return LocalAddress{QHostAddress(QString::fromLatin1(address)), QString::fromLatin1(name), wireless};
    };
    const QList<LocalAddress> ranked = LocalFileServer::ranked({
        at("172.17.0.1", "docker0"), at("100.101.102.103", "tailscale0"), at("203.0.113.7", "enp3s0"),
        at("192.168.1.20", "wlp2s0"), at("10.8.0.2", "tun0"), at("169.254.3.4", "eth0"), at("10.0.0.5", "eno1"),
        at("192.168.50.2", "ath0", true), // a wireless card of another name
    });
    QStringList order;
    for (const LocalAddress& address : ranked)
        order.append(address.interfaceName);
    EXPECT_EQ(order, (QStringList{QStringLiteral("wlp2s0"), QStringLiteral("eno1"), QStringLiteral("ath0"),
                                  QStringLiteral("enp3s0"), QStringLiteral("eth0"), QStringLiteral("docker0"),
                                  QStringLiteral("tun0"), QStringLiteral("tailscale0")}));
    // What this machine offers: never loopback, never IPv6.
    for (const LocalAddress& address : LocalFileServer::candidateAddresses()) {
        EXPECT_FALSE(address.address.isLoopback()) << qPrintable(address.interfaceName);
        EXPECT_EQ(address.address.protocol(), QAbstractSocket::IPv4Protocol);
    }
}

TEST_F(LocalFileServerTest, ListensOnItsOneAddressAndLetsExtraConnectionsWait)
{
    // Another loopback address of this machine, same port: nothing listens there.
    const quint16 port = quint16(QUrl(m_server.url()).port());
    QTcpSocket other;
    other.connectToHost(QHostAddress(QStringLiteral("127.0.0.2")), port);
    EXPECT_FALSE(other.waitForConnected(3000));

    // More silent clients than it serves at once: the rest wait in the system's queue, and a phone
    // behind them is served once the silent ones time out, not refused.
    m_server.setHeadDeadline(1500);
    std::vector<std::unique_ptr<QTcpSocket>> silent;
    silent.reserve(LocalFileServer::maxConnections + 40);
    for (int i = 0; i < LocalFileServer::maxConnections + 40; ++i) {
        silent.push_back(std::make_unique<QTcpSocket>());
        silent.back()->connectToHost(QHostAddress::LocalHost, port);
    }
    ASSERT_TRUE(QTest::qWaitFor([&] { return m_server.connectionCount() == LocalFileServer::maxConnections; }, 10'000));
    const Fetched whole = fetch(m_server.url() + QStringLiteral("f/0"));
    EXPECT_EQ(whole.status, 200);
    EXPECT_TRUE(whole.body == m_bytes);
    EXPECT_TRUE(QTest::qWaitFor([&] { return m_server.connectionCount() == 0; }, 15'000));
}

TEST_F(LocalFileServerTest, AnotherMachineOnTheLinkDownloadsFromTheChosenAddress)
{
    // A second machine as a network namespace behind a veth pair; root only.
    if (::geteuid() != 0 || QStandardPaths::findExecutable(QStringLiteral("ip")).isEmpty())
        GTEST_SKIP() << "needs root and iproute2";
    const QString ns = QStringLiteral("nuvrel-test-%1").arg(QCoreApplication::applicationPid());
    const QString host = QStringLiteral("nvh%1").arg(QCoreApplication::applicationPid() % 100000);
    const QString peer = QStringLiteral("nvp%1").arg(QCoreApplication::applicationPid() % 100000);
    const auto ip = [](const QStringList& arguments) {
        return QProcess::execute(QStringLiteral("ip"), arguments) == 0;
    };
    if (!ip({QStringLiteral("netns"), QStringLiteral("add"), ns}))
        GTEST_SKIP() << "network namespaces are not available here";
    const auto cleanup = qScopeGuard([&] {
        ip({QStringLiteral("link"), QStringLiteral("del"), host});
        ip({QStringLiteral("netns"), QStringLiteral("del"), ns});
    });
    ASSERT_TRUE(ip({QStringLiteral("link"), QStringLiteral("add"), host, QStringLiteral("type"), QStringLiteral("veth"),
                    QStringLiteral("peer"), QStringLiteral("name"), peer}));
    ASSERT_TRUE(ip({QStringLiteral("link"), QStringLiteral("set"), peer, QStringLiteral("netns"), ns}));
    ASSERT_TRUE(ip(
        {QStringLiteral("addr"), QStringLiteral("add"), QStringLiteral("10.231.7.1/24"), QStringLiteral("dev"), host}));
    ASSERT_TRUE(ip({QStringLiteral("link"), QStringLiteral("set"), host, QStringLiteral("up")}));
    ASSERT_TRUE(ip({QStringLiteral("netns"), QStringLiteral("exec"), ns, QStringLiteral("ip"), QStringLiteral("addr"),
                    QStringLiteral("add"), QStringLiteral("10.231.7.2/24"), QStringLiteral("dev"), peer}));
    ASSERT_TRUE(ip({QStringLiteral("netns"), QStringLiteral("exec"), ns, QStringLiteral("ip"), QStringLiteral("link"),
                    QStringLiteral("set"), peer, QStringLiteral("up")}));

    ASSERT_TRUE(m_server.start(m_files, QHostAddress(QStringLiteral("10.231.7.1"))));
    const QString url = m_server.url();
    // From the other side of the link, as a phone on the Wi-Fi: the list and the file, whole.
    const auto fetchThere = [&](const QString& address) {
        QTemporaryDir out;
        const QString body = out.filePath(QStringLiteral("body"));
        QProcess curl;
        curl.start(QStringLiteral("ip"),
                   {QStringLiteral("netns"), QStringLiteral("exec"), ns, QStringLiteral("curl"), QStringLiteral("-s"),
                    QStringLiteral("--max-time"), QStringLiteral("30"), QStringLiteral("-o"), body,
                    QStringLiteral("-w"), QStringLiteral("%{http_code}"), address});
        if (!curl.waitForStarted() || !QTest::qWaitFor([&] { return curl.state() == QProcess::NotRunning; }, 40'000))
            return Fetched{};
        return Fetched{curl.readAllStandardOutput().toInt(), readFile(body), {}};
    };
    EXPECT_EQ(fetchThere(url).status, 200);
    EXPECT_TRUE(fetchThere(url + QStringLiteral("f/0")).body == m_bytes);
    // A stranger on the same link without the token gets nothing.
    EXPECT_EQ(fetchThere(url.section(u'/', 0, 2) + QStringLiteral("/f/0")).status, 404);
    // And the server is not on this machine's other addresses.
    EXPECT_EQ(fetch(QStringLiteral("http://127.0.0.1:%1/").arg(QUrl(url).port())).status, 0);
}
