#include "app/shell/UpdateChecker.h"

#include "l10n/L.h"

#include <QCoreApplication>
#include <QSettings>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace nuvrel;

namespace {

/// A one-file HTTP server on the loopback interface: answers every request with `status` and `body`,
/// and counts the requests and the paths asked for.
class LoopbackServer final : public QObject
{
public:
    LoopbackServer()
    {
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    m_request += socket->readAll();
                    if (!m_request.contains("\r\n\r\n"))
                        return;
                    paths.append(QString::fromLatin1(m_request.split(' ').value(1)));
                    m_request.clear();
                    socket->write("HTTP/1.1 " + QByteArray::number(status) +
                                  " X\r\nContent-Type: application/json\r\n"
                                  "Content-Length: " +
                                  QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
                    socket->disconnectFromHost();
                });
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
        m_server.listen(QHostAddress::LocalHost);
    }

    QUrl base() const { return QUrl(QStringLiteral("http://127.0.0.1:%1/updates").arg(m_server.serverPort())); }

    int status = 200;
    QByteArray body;
    QStringList paths;

private:
    QTcpServer m_server;
    QByteArray m_request;
};

class UpdateCheckerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        QSettings().remove(UpdateChecker::lastCheckKey);
        QSettings().remove(UpdateChecker::notifiedVersionKey);
        m_version = QCoreApplication::applicationVersion();
        QCoreApplication::setApplicationVersion(QStringLiteral("1.2.0"));
    }
    void TearDown() override { QCoreApplication::setApplicationVersion(m_version); }

    /// Runs one check at `now` and returns the versions announced.
    QStringList check(const QDateTime& now)
    {
        UpdateChecker checker(m_server.base());
        checker.setAlertDelay(10);
        checker.setClock([now] { return now; });
        QSignalSpy announced(&checker, &UpdateChecker::updateAvailable);
        QSignalSpy finished(&checker, &UpdateChecker::finished);
        checker.startIfNeeded();
        checker.startIfNeeded(); // once per launch
        EXPECT_TRUE(finished.count() > 0 || finished.wait(10'000));
        QStringList versions;
        for (const QList<QVariant>& arguments : announced)
            versions << arguments.at(0).toString();
        return versions;
    }

    LoopbackServer m_server;
    QString m_version;
    const QDateTime m_day = QDateTime(QDate(2026, 11, 22), QTime(9, 0), QTimeZone::utc());
};

TEST_F(UpdateCheckerTest, AnnouncesANewVersionOnceAndChecksAtMostDaily)
{
    m_server.body = R"({"version": "1.3.0", "page": "https://example.org/nuvrel"})";
    EXPECT_EQ(check(m_day), QStringList{QStringLiteral("1.3.0")});
    EXPECT_EQ(m_server.paths, QStringList{QStringLiteral("/updates/") + QCoreApplication::applicationName().toLower() +
                                          QStringLiteral(".json")});
    EXPECT_EQ(QSettings().value(UpdateChecker::lastCheckKey).toLongLong(), m_day.toSecsSinceEpoch());

    // Within 24 hours: no request at all.
    EXPECT_TRUE(check(m_day.addSecs(86'399)).isEmpty());
    EXPECT_EQ(m_server.paths.size(), 1);

    // The next day, the same version is not announced again; a newer one is.
    EXPECT_TRUE(check(m_day.addSecs(86'400)).isEmpty());
    EXPECT_EQ(m_server.paths.size(), 2);
    m_server.body = R"({"version": "1.4.0", "page": "https://example.org/nuvrel"})";
    EXPECT_EQ(check(m_day.addSecs(2 * 86'400)), QStringList{QStringLiteral("1.4.0")});

    // A clock set back in time does not stop the checks for good.
    EXPECT_TRUE(check(m_day.addSecs(-10 * 86'400)).isEmpty());
    EXPECT_EQ(m_server.paths.size(), 4);
}

TEST_F(UpdateCheckerTest, FailuresAndOddRepliesAreSilent)
{
    const auto once = [this](int status, const QByteArray& body, int day) {
        m_server.status = status;
        m_server.body = body;
        return check(m_day.addSecs(qint64(day) * 86'400));
    };
    EXPECT_TRUE(once(200, R"({"version": "1.2.0", "page": "x"})", 0).isEmpty()); // the running version
    EXPECT_TRUE(once(404, R"({"version": "9.0.0"})", 1).isEmpty());
    EXPECT_TRUE(once(500, "", 2).isEmpty());
    EXPECT_TRUE(once(200, "not json", 3).isEmpty());
    EXPECT_TRUE(once(200, R"(["version", "9.0.0"])", 4).isEmpty());
    EXPECT_TRUE(once(200, R"({"page": "https://example.org"})", 5).isEmpty());
    QByteArray big = R"({"version": "9.9.9", "page": ")" + QByteArray(10'000, 'p') + R"("})";
    EXPECT_TRUE(once(200, big, 6).isEmpty());
    EXPECT_TRUE(once(200, R"({"version": "1.1.9", "page": "https://example.org"})", 7).isEmpty()); // older
    EXPECT_TRUE(once(200, R"({"version": "1.3.0", "page": "file:///etc/passwd"})", 8).isEmpty());
    EXPECT_TRUE(once(200, R"({"version": "1.3.0", "page": "http://example.org"})", 9).isEmpty());
    EXPECT_TRUE(once(200, R"({"version": "soon", "page": "https://example.org"})", 10).isEmpty());
    EXPECT_EQ(m_server.paths.size(), 11);
    EXPECT_FALSE(QSettings().contains(UpdateChecker::notifiedVersionKey));

    // No server at all.
    UpdateChecker nowhere(QUrl(QStringLiteral("http://127.0.0.1:1/")));
    nowhere.setClock([this] { return m_day.addSecs(30 * 86'400); });
    QSignalSpy finished(&nowhere, &UpdateChecker::finished);
    nowhere.startIfNeeded();
    EXPECT_TRUE(finished.wait(10'000));
}

TEST_F(UpdateCheckerTest, AlertTextsInEveryLanguageEndWithTheRunningVersion)
{
    for (const AppLanguage language : allAppLanguages) {
        const QString text = UpdateChecker::alertText(language, QStringLiteral("2.0"), QStringLiteral("https://x.org"),
                                                      QStringLiteral("1.2.0"));
        EXPECT_TRUE(text.contains(QStringLiteral("2.0")) && text.contains(QStringLiteral("https://x.org")))
            << text.toStdString();
        EXPECT_TRUE(text.endsWith(QStringLiteral("1.2.0.")) || text.endsWith(QStringLiteral("1.2.0")))
            << text.toStdString();
        EXPECT_FALSE(UpdateChecker::alertTitle(language).isEmpty());
    }
    EXPECT_EQ(UpdateChecker::alertTitle(AppLanguage::En), QStringLiteral("A new version is available"));
}

} // namespace
