#pragma once

// Runs a command as a child process and measures it alone: wall time, and the peak resident memory
// of that command. The memory is GNU time's figure: a process started straight from this one would
// report this process's own peak too, which the kernel carries over into a child at its exec.

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QString>
#include <QTemporaryFile>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

extern char** environ;

namespace nuvrel::bench {

struct ChildRun
{
    bool ok = false;   ///< started and exited with status 0
    int exitCode = -1; ///< the exit status, -1 when it did not exit normally
    double seconds = 0;
    double peakMegabytes = 0;
};

/// Runs `program` with `arguments`, its standard output going to `output` ("/dev/null" by default)
/// and its standard error to /dev/null.
inline ChildRun runChild(const QString& program, const QList<QString>& arguments,
                         const QString& output = QStringLiteral("/dev/null"))
{
    QTemporaryFile peak;
    peak.open();
#ifdef __APPLE__
    const QByteArray gnuTime = "gtime"; // Homebrew's gnu-time
#else
    const QByteArray gnuTime = "/usr/bin/time";
#endif
    std::vector<QByteArray> storage{gnuTime, "-f", "%M", "-o", peak.fileName().toLocal8Bit(), program.toLocal8Bit()};
    storage.reserve(storage.size() + static_cast<size_t>(arguments.size()));
    for (const QString& argument : arguments)
        storage.push_back(argument.toLocal8Bit());
    std::vector<char*> argv;
    argv.reserve(storage.size() + 1);
    for (QByteArray& argument : storage)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const QByteArray out = output.toLocal8Bit();
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);

    ChildRun run;
    QElapsedTimer clock;
    clock.start();
    pid_t pid = 0;
    const int spawned = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0)
        return run;
    int status = 0;
    if (waitpid(pid, &status, 0) != pid)
        return run;
    run.seconds = static_cast<double>(clock.nsecsElapsed()) / 1e9;
    // GNU time writes the kilobytes last, after a note when the command failed.
    run.peakMegabytes = peak.readAll().trimmed().split('\n').constLast().toDouble() / 1024.0;
    if (WIFEXITED(status))
        run.exitCode = WEXITSTATUS(status);
    run.ok = run.exitCode == 0;
    return run;
}

} // namespace nuvrel::bench
