// The command line as a person at a terminal meets it: a pseudo-terminal stands for the keyboard and the
// screen, so that what the terminal echoes is seen as the person would see it.

#include "support/SampleBackup.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <poll.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#if defined(__APPLE__)
#include <util.h>
#else
#include <pty.h>
#endif

using namespace nuvrel::test;

namespace {

// A run of nuvrel-cli on a pseudo-terminal: everything the screen shows, and how the program ended.
struct TerminalRun
{
    QByteArray screen;
    int status = -1;
};

// Reads the screen until `until` shows up or the program ends; false after ten seconds of silence.
bool readScreen(int master, QByteArray& screen, const QByteArray& until = {})
{
    while (until.isEmpty() || !screen.contains(until)) {
        pollfd ready{master, POLLIN, 0};
        if (::poll(&ready, 1, 10'000) <= 0)
            return false;
        char buffer[4096];
        const ssize_t read = ::read(master, buffer, sizeof buffer);
        if (read <= 0)
            return until.isEmpty(); // the program closed the terminal
        screen.append(buffer, read);
    }
    return true;
}

// Starts the CLI with `arguments`; once `prompt` shows, types `typed`; then, if `signal`, sends it.
TerminalRun runOnTerminal(const QStringList& arguments, const QByteArray& prompt, const QByteArray& typed,
                          int signal = 0)
{
    QList<QByteArray> words{QByteArray(NUVREL_CLI)};
    for (const QString& argument : arguments)
        words.append(argument.toUtf8());
    std::vector<char*> argv;
    for (QByteArray& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    int master = -1;
    const pid_t child = ::forkpty(&master, nullptr, nullptr, nullptr);
    if (child == 0) {
        ::setenv("LANGUAGE", "fr_FR", 1);
        ::setenv("LC_ALL", "fr_FR.UTF-8", 1);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    TerminalRun run;
    if (child < 0)
        return run;
    // At once, as a script would: the program must take what is typed as soon as its prompt shows.
    bool ended = false;
    if (readScreen(master, run.screen, prompt)) {
        if (signal != 0) {
            ::kill(child, signal);
        } else {
            (void)!::write(master, typed.constData(), size_t(typed.size()));
        }
        ended = readScreen(master, run.screen);
    }
    if (!ended) {
        run.screen += "\n<no end: killed>";
        ::kill(child, SIGKILL);
    }
    // The terminal's modes when the program left it: the echo must be back on.
    termios modes{};
    if (::tcgetattr(master, &modes) == 0 && !(modes.c_lflag & ECHO))
        run.screen += "\n<echo left off>";
    int status = 0;
    ::waitpid(child, &status, 0);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    ::close(master);
    return run;
}

} // namespace

TEST(Terminal, APasswordTypedAtTheTerminalIsNeverShown)
{
    QTemporaryDir root;
    SampleBackup locked;
    locked.id = QStringLiteral("locked");
    locked.password = QStringLiteral("s3cret-é");
    locked.files = cameraRollPhotos(1);
    locked.write(root.path());
    const QStringList arguments{QStringLiteral("files"), QStringLiteral("locked"), QStringLiteral("--password-stdin"),
                                QStringLiteral("--root"), root.path()};

    const TerminalRun typed = runOnTerminal(arguments, "Mot de passe", "s3cret-\xC3\xA9\n");
    EXPECT_EQ(typed.status, 0) << typed.screen.constData();
    EXPECT_TRUE(typed.screen.contains("IMG_0001.JPG")) << typed.screen.constData();
    EXPECT_FALSE(typed.screen.contains("s3cret")) << typed.screen.constData();

    // Interrupted at the prompt: the program ends as interrupted, and the terminal echoes again.
    const TerminalRun interrupted = runOnTerminal(arguments, "Mot de passe", {}, SIGINT);
    EXPECT_EQ(interrupted.status, 128 + SIGINT) << interrupted.screen.constData();
    EXPECT_FALSE(interrupted.screen.contains("<echo left off>")) << interrupted.screen.constData();
}
