#pragma once

// Runs the real nuvrel-cli binary, as a script would, in UTC and with a French system locale.

#include <QMap>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace nuvrel::test {

struct CliRun
{
    int exitCode = -1;
    QString out;
    QString err;
};

inline CliRun runCli(const QStringList& arguments, const QMap<QString, QString>& environment = {},
                     const QByteArray& input = {})
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("TZ"), QStringLiteral("UTC"));
    env.insert(QStringLiteral("LANGUAGE"), QStringLiteral("fr_FR"));
    env.insert(QStringLiteral("LC_ALL"), QStringLiteral("fr_FR.UTF-8"));
    env.remove(QStringLiteral("NUVREL_BACKUP_ROOT"));
    for (auto it = environment.cbegin(); it != environment.cend(); ++it)
        env.insert(it.key(), it.value());
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(NUVREL_CLI), arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(60'000))
        return {};
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

} // namespace nuvrel::test
