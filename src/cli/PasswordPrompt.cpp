#include "cli/PasswordPrompt.h"

#include "l10n/L.h"

#include <csignal>
#include <string>
#include <termios.h>
#include <unistd.h>

namespace nuvrel::cli {

namespace {

// The terminal as it was, for a signal that ends the program while the echo is off.
termios savedTerminal;
volatile sig_atomic_t echoIsOff = 0;
constexpr int endingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

extern "C" void restoreEchoAndEnd(int signal)
{
    if (echoIsOff)
        ::tcsetattr(STDIN_FILENO, TCSANOW, &savedTerminal);
    // The signal's own action then: the program ends (or stops) as it would have.
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

// One line of the terminal, read byte by byte so that nothing after it is taken from the input.
std::string readLine()
{
    std::string line;
    char c = 0;
    while (::read(STDIN_FILENO, &c, 1) == 1 && c != '\n')
        line += c;
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return line;
}

} // namespace

QString readPasswordFromStdin(QTextStream& err)
{
    if (::isatty(STDIN_FILENO) != 1) {
        QTextStream in(stdin);
        return in.readLine();
    }
    if (::tcgetattr(STDIN_FILENO, &savedTerminal) != 0) {
        err << L("Mot de passe de la sauvegarde : ");
        err.flush();
        return QString::fromUtf8(readLine());
    }

    struct sigaction previous[std::size(endingSignals)] = {};
    struct sigaction restore = {};
    restore.sa_handler = restoreEchoAndEnd;
    sigemptyset(&restore.sa_mask);
    for (size_t i = 0; i < std::size(endingSignals); ++i)
        ::sigaction(endingSignals[i], &restore, &previous[i]);

    // The echo goes off before the prompt shows, and nothing typed is discarded: a person or a script
    // answering the prompt at once is read whole, and never shown.
    termios quiet = savedTerminal;
    quiet.c_lflag &= ~tcflag_t(ECHO);
    echoIsOff = ::tcsetattr(STDIN_FILENO, TCSANOW, &quiet) == 0;
    err << L("Mot de passe de la sauvegarde : ");
    err.flush();
    const std::string line = readLine();
    if (echoIsOff)
        ::tcsetattr(STDIN_FILENO, TCSANOW, &savedTerminal);
    echoIsOff = 0;
    for (size_t i = 0; i < std::size(endingSignals); ++i)
        ::sigaction(endingSignals[i], &previous[i], nullptr);

    err << '\n'; // the line end the user typed was not echoed either
    err.flush();
    return QString::fromUtf8(line.data(), qsizetype(line.size()));
}

} // namespace nuvrel::cli
