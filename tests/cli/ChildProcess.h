#pragma once

// Runs nuvrel-cli as a child process under conditions a test chooses: a watchdog, a limit on the size
// of the files it may write (the write that crosses it gets SIGXFSZ, which ends the program there: a
// signal at a chosen write), a command to run it through (unshare), and the child's peak memory.

#include <QByteArray>
#include <QFile>
#include <QMap>
#include <QProcessEnvironment>
#include <QStandardPaths>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <optional>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace nuvrel::test {

struct ChildLimits
{
    std::chrono::milliseconds watchdog{30'000}; ///< far beyond any honest run, so that a hang shows
    std::optional<qint64> maxFileBytes;
    QByteArray input;
    QMap<QString, QString> environment;
    QStringList prefix; ///< a command the CLI runs through, e.g. {"unshare", "-m", "sh", "-c", …}
};

struct ChildRun
{
    int exitCode = -1; ///< -1 when a signal ended it
    int signal = 0;
    bool hung = false; ///< the watchdog had to kill it
    QString out;
    QString err;
    qint64 peakKiB = 0; ///< the largest resident set the child reached
};

inline ChildRun runChild(const QString& program, const QStringList& arguments, const ChildLimits& limits = {})
{
    QTemporaryDir io;
    const QString in = io.filePath(QStringLiteral("in")), out = io.filePath(QStringLiteral("out")),
                  err = io.filePath(QStringLiteral("err"));
    {
        QFile file(in);
        file.open(QIODevice::WriteOnly);
        file.write(limits.input);
    }
    // Everything the child needs is made before fork(): between fork() and exec() a child of a threaded
    // program may only make system calls (another thread may have held the allocator's lock).
    QList<QByteArray> words;
    for (const QString& word : limits.prefix)
        words.append(word.toUtf8());
    words.append(program.toUtf8());
    for (const QString& argument : arguments)
        words.append(argument.toUtf8());
    const QByteArray executable = QFile::encodeName(QStandardPaths::findExecutable(QString::fromUtf8(words.front())));
    std::vector<char*> argv;
    for (QByteArray& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    QMap<QString, QString> variables;
    const QProcessEnvironment system = QProcessEnvironment::systemEnvironment();
    for (const QString& key : system.keys())
        variables.insert(key, system.value(key));
    variables.remove(QStringLiteral("NUVREL_BACKUP_ROOT"));
    variables.insert(QStringLiteral("TZ"), QStringLiteral("UTC"));
    variables.insert(QStringLiteral("LANGUAGE"), QStringLiteral("fr_FR"));
    variables.insert(QStringLiteral("LC_ALL"), QStringLiteral("fr_FR.UTF-8"));
    for (auto it = limits.environment.cbegin(); it != limits.environment.cend(); ++it)
        variables.insert(it.key(), it.value());
    QList<QByteArray> environment;
    for (auto it = variables.cbegin(); it != variables.cend(); ++it)
        environment.append((it.key() + u'=' + it.value()).toUtf8());
    std::vector<char*> envp;
    for (QByteArray& variable : environment)
        envp.push_back(variable.data());
    envp.push_back(nullptr);
    const QByteArray inPath = QFile::encodeName(in), outPath = QFile::encodeName(out), errPath = QFile::encodeName(err);
    const rlimit size{rlim_t(limits.maxFileBytes.value_or(0)), rlim_t(limits.maxFileBytes.value_or(0))};

    const pid_t pid = ::fork();
    if (pid == 0) {
        const auto redirect = [](const char* path, int fd, int flags) {
            const int opened = ::open(path, flags, 0600);
            ::dup2(opened, fd);
            ::close(opened);
        };
        redirect(inPath.constData(), STDIN_FILENO, O_RDONLY);
        redirect(outPath.constData(), STDOUT_FILENO, O_WRONLY | O_CREAT | O_TRUNC);
        redirect(errPath.constData(), STDERR_FILENO, O_WRONLY | O_CREAT | O_TRUNC);
        if (limits.maxFileBytes)
            ::setrlimit(RLIMIT_FSIZE, &size);
        ::signal(SIGXFSZ, SIG_DFL);
        ::execve(executable.constData(), argv.data(), envp.data());
        ::_exit(127);
    }
    ChildRun run;
    if (pid < 0)
        return run;
    const auto deadline = std::chrono::steady_clock::now() + limits.watchdog;
    int status = 0;
    rusage usage{};
    while (::wait4(pid, &status, WNOHANG, &usage) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            run.hung = true;
            ::kill(pid, SIGKILL);
            ::wait4(pid, &status, 0, &usage);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (WIFEXITED(status))
        run.exitCode = WEXITSTATUS(status);
    else if (WIFSIGNALED(status))
        run.signal = WTERMSIG(status);
    run.peakKiB = usage.ru_maxrss;
    const auto text = [](const QString& path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    };
    run.out = text(out);
    run.err = text(err);
    return run;
}

} // namespace nuvrel::test
