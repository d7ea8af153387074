// The transfer server on loopback, with curl as the phone: downloads byte for byte, ranges, and the
// clients that misbehave (silent, endless, vanishing) closed without holding up the others.

#include "engines/transfer/LocalFileServer.h"
#include "support/BackupFixture.h"
#include "support/HttpFetch.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

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
