#include "support/HttpFetch.h"

#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

namespace nuvrel::test {

Fetched fetch(const QString& url, const QStringList& extra)
{
    QTemporaryDir out;
    const QString body = out.filePath(QStringLiteral("body"));
    const QString head = out.filePath(QStringLiteral("head"));
    QProcess curl;
    QEventLoop loop;
    QObject::connect(&curl, &QProcess::finished, &loop, &QEventLoop::quit);
    QObject::connect(&curl, &QProcess::errorOccurred, &loop, &QEventLoop::quit);
    QTimer::singleShot(70'000, &loop, &QEventLoop::quit);
    curl.start(QStringLiteral("curl"),
               QStringList{QStringLiteral("-s"), QStringLiteral("-o"), body, QStringLiteral("-D"), head,
                           QStringLiteral("-w"), QStringLiteral("%{http_code}"), QStringLiteral("--max-time"),
                           QStringLiteral("60")} +
                   extra + QStringList{url});
    loop.exec();
    if (curl.state() != QProcess::NotRunning) {
        curl.kill();
        curl.waitForFinished();
        return {};
    }
    Fetched fetched;
    fetched.status = curl.readAllStandardOutput().toInt();
    QFile bodyFile(body);
    if (bodyFile.open(QIODevice::ReadOnly))
        fetched.body = bodyFile.readAll();
    QFile headFile(head);
    if (headFile.open(QIODevice::ReadOnly))
        fetched.head = headFile.readAll();
    return fetched;
}

} // namespace nuvrel::test
