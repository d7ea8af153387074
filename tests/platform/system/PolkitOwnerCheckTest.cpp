// The owner check against a real polkitd on a private system bus, which tools/with-private-polkit.sh
// starts with the tests' own actions installed (NUVREL_POLKIT_TEST=1, as root). polkit grants root
// everything, so the other cases run this binary again as nobody, for the probe at the end.

#include "platform/system/PolkitOwnerCheck.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QUuid>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string>

#include <gtest/gtest.h>

using namespace nuvrel;

namespace nuvrel {
void PrintTo(OwnerCheck::Outcome outcome, std::ostream* out);
}

namespace {

constexpr char probeActionVariable[] = "NUVREL_POLKIT_PROBE_ACTION";
constexpr char probeAgentVariable[] = "NUVREL_POLKIT_PROBE_TERMINAL_AGENT";
constexpr char nobody[] = "65534";

// tests/platform/system/polkit/app.nuvrel.test-owner-check.policy
const QString grantedAction = QStringLiteral("app.nuvrel.test-granted");
const QString refusedAction = QStringLiteral("app.nuvrel.test-refused");
const QString passwordAction = QStringLiteral("app.nuvrel.test-password");

/// Why the polkit cases cannot run here; nothing when they can.
std::string whyNotHere()
{
    if (qEnvironmentVariable("NUVREL_POLKIT_TEST") != QLatin1StringView("1"))
        return "needs polkitd on a private bus with the tests' actions: tools/with-private-polkit.sh";
    if (::geteuid() != 0)
        return "runs as root, which polkit always grants, and checks the refusals as nobody";
    return {};
}

QString nameOf(OwnerCheck::Outcome outcome)
{
    switch (outcome) {
    case OwnerCheck::Outcome::Confirmed: return QStringLiteral("Confirmed");
    case OwnerCheck::Outcome::Refused: return QStringLiteral("Refused");
    case OwnerCheck::Outcome::Unavailable: return QStringLiteral("Unavailable");
    }
    return QStringLiteral("?");
}

/// A pseudo-terminal for the probe to have as its controlling terminal, as in a terminal window.
class Terminal
{
public:
    Terminal()
    {
        m_master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (m_master < 0 || ::grantpt(m_master) != 0 || ::unlockpt(m_master) != 0)
            return;
        m_slave = QByteArray(::ptsname(m_master));
        // Owned by the account that logs in on it, as a login would leave it.
        if (::chown(m_slave.constData(), 65534, 65534) != 0)
            m_slave.clear();
        ::fcntl(m_master, F_SETFL, ::fcntl(m_master, F_GETFL) | O_NONBLOCK);
    }
    ~Terminal()
    {
        if (m_master >= 0)
            ::close(m_master);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    bool isValid() const { return !m_slave.isEmpty(); }
    const QByteArray& slave() const { return m_slave; }

    /// What was written on the terminal since the last call; waits at most `ms` for it.
    QByteArray read(int ms)
    {
        pollfd ready{m_master, POLLIN, 0};
        if (::poll(&ready, 1, ms) <= 0)
            return {};
        char buffer[4096];
        const ssize_t got = ::read(m_master, buffer, sizeof buffer);
        return got > 0 ? QByteArray(buffer, got) : QByteArray();
    }

    void type(const QByteArray& keys) { ASSERT_EQ(::write(m_master, keys.constData(), keys.size()), keys.size()); }

private:
    int m_master = -1;
    QByteArray m_slave;
};

struct ProbeRun
{
    QString outcome;     ///< as the probe printed it; empty when it printed none
    int agentsLeft = -1; ///< pkttyagent processes still serving the probe when the check returned
    QString output;
    QByteArray terminal; ///< what appeared on its terminal
    qint64 pid = 0;
    qint64 elapsedMs = 0;
};

/// What the probe checks, and how it runs.
struct Probe
{
    explicit Probe(QString checked)
        : action(std::move(checked))
    {}
    Probe& withTerminalAgent()
    {
        terminalAgent = true;
        return *this;
    }
    Probe& on(Terminal& given)
    {
        terminal = &given;
        return *this;
    }
    Probe& typingAtPasswordPrompt(QByteArray keys)
    {
        typed = std::move(keys);
        return *this;
    }
    Probe& onSystemBus(QString address)
    {
        systemBus = std::move(address);
        return *this;
    }
    Probe& asThisAccount()
    {
        asNobody = false;
        return *this;
    }

    QString action;
    bool terminalAgent = false;
    Terminal* terminal = nullptr;
    QByteArray typed;
    QString systemBus; ///< another DBUS_SYSTEM_BUS_ADDRESS
    bool asNobody = true;
};

/// Runs the probe test of this binary in a process of its own, as nobody unless told otherwise.
ProbeRun run(const Probe& probe)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(probeActionVariable), probe.action);
    environment.insert(QString::fromLatin1(probeAgentVariable),
                       probe.terminalAgent ? QStringLiteral("1") : QStringLiteral("0"));
    // Ours is private to root; the probe makes its own scratch folders under it.
    environment.insert(QStringLiteral("TMPDIR"), QStringLiteral("/tmp"));
    environment.remove(QStringLiteral("XDG_RUNTIME_DIR"));
    environment.remove(QStringLiteral("GTEST_OUTPUT"));
    if (!probe.systemBus.isEmpty())
        environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), probe.systemBus);

    QStringList arguments{QCoreApplication::applicationFilePath(),
                          QStringLiteral("--gtest_filter=PolkitOwnerCheckProbe.PrintsTheOutcome")};
    QString program = arguments.takeFirst();
    if (probe.asNobody) {
        arguments.prepend(program);
        arguments.prepend(QStringLiteral("--clear-groups"));
        arguments.prepend(QStringLiteral("--regid=") + QLatin1StringView(nobody));
        arguments.prepend(QStringLiteral("--reuid=") + QLatin1StringView(nobody));
        program = QStringLiteral("setpriv");
    }

    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardInputFile(QProcess::nullDevice());
    // A session of its own, without the terminal the tests may run in (pkttyagent would ask there),
    // and with ours as its controlling terminal when the case gives one.
    const QByteArray slave = probe.terminal ? probe.terminal->slave() : QByteArray();
    process.setChildProcessModifier([slave] {
        ::setsid();
        if (slave.isEmpty())
            return;
        const int fd = ::open(slave.constData(), O_RDWR);
        if (fd >= 0) {
            ::ioctl(fd, TIOCSCTTY, 0);
            ::close(fd);
        }
    });
    ProbeRun result;
    QElapsedTimer clock;
    clock.start();
    process.start(program, arguments);
    if (!process.waitForStarted(10'000)) {
        result.output = process.errorString();
        return result;
    }
    result.pid = process.processId();
    bool typed = false;
    // A probe that hangs fails the test instead of the run.
    const QDeadlineTimer deadline(60'000);
    while (!process.waitForFinished(probe.terminal ? 20 : 1000) && !deadline.hasExpired()) {
        if (!probe.terminal)
            continue;
        result.terminal += probe.terminal->read(20);
        if (!typed && !probe.typed.isEmpty() && result.terminal.contains("Password:")) {
            probe.terminal->type(probe.typed);
            typed = true;
        }
    }
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(5'000);
        result.output = QStringLiteral("probe killed after 60 s\n");
    }
    result.elapsedMs = clock.elapsed();
    if (probe.terminal)
        result.terminal += probe.terminal->read(0);
    result.output += QString::fromLocal8Bit(process.readAll());
    const QRegularExpressionMatch printed =
        QRegularExpression(QStringLiteral("probe-outcome: (\\w+)")).match(result.output);
    if (printed.hasMatch())
        result.outcome = printed.captured(1);
    const QRegularExpressionMatch agents =
        QRegularExpression(QStringLiteral("probe-agents-left: (\\d+)")).match(result.output);
    if (agents.hasMatch())
        result.agentsLeft = agents.captured(1).toInt();
    return result;
}

/// pkttyagent processes still serving the process `pid`.
int agentsServing(qint64 pid)
{
    int agents = 0;
    const QStringList processes = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& process : processes) {
        QFile file(QStringLiteral("/proc/%1/cmdline").arg(process));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QList<QByteArray> argv = file.readAll().split('\0');
        if (argv.isEmpty() || !argv.constFirst().endsWith("pkttyagent"))
            continue;
        const qsizetype flag = argv.indexOf("--process");
        if (flag >= 0 && flag + 1 < argv.size() && argv.at(flag + 1).split(',').constFirst() == QByteArray::number(pid))
            ++agents;
    }
    return agents;
}

} // namespace

void nuvrel::PrintTo(OwnerCheck::Outcome outcome, std::ostream* out)
{
    *out << nameOf(outcome).toStdString();
}

TEST(PolkitOwnerCheck, AnswersAsPolkitDecidesForTheAccount)
{
    if (const std::string why = whyNotHere(); !why.empty())
        GTEST_SKIP() << why;

    // Root: polkit grants it any registered action, the shipped one included, without asking.
    EXPECT_EQ(PolkitOwnerCheck(grantedAction).confirmOwner(QStringLiteral("test")), OwnerCheck::Outcome::Confirmed);
    EXPECT_EQ(PolkitOwnerCheck().confirmOwner(QStringLiteral("test")), OwnerCheck::Outcome::Confirmed);

    // Another account, in no login session (no logind here): polkit applies allow_any.
    const ProbeRun granted = run(Probe(grantedAction));
    EXPECT_EQ(granted.outcome, QStringLiteral("Confirmed")) << granted.output.toStdString();
    const ProbeRun refused = run(Probe(refusedAction));
    EXPECT_EQ(refused.outcome, QStringLiteral("Refused")) << refused.output.toStdString();
    // polkit wants the password, and no agent serves this process: it answers "not authorised,
    // challenge", which is no refusal by the person.
    const ProbeRun unasked = run(Probe(passwordAction));
    EXPECT_EQ(unasked.outcome, QStringLiteral("Unavailable")) << unasked.output.toStdString();
    const ProbeRun vault = run(Probe(QString::fromLatin1(PolkitOwnerCheck::vaultAction)));
    EXPECT_EQ(vault.outcome, QStringLiteral("Unavailable")) << vault.output.toStdString();
}

TEST(PolkitOwnerCheck, IsUnavailableWhenNothingCanCheck)
{
    if (const std::string why = whyNotHere(); !why.empty())
        GTEST_SKIP() << why;

    // Actions polkit does not know: never mistaken for a refusal, nor for a near name.
    const QStringList unknown{
        QStringLiteral("app.nuvrel.test-missing-") + QUuid::createUuid().toString(QUuid::WithoutBraces),
        QString(),
        QStringLiteral("app.nuvrel.test-grant"),
        QStringLiteral("app.nuvrel.test-granted "),
        QStringLiteral("APP.NUVREL.TEST-GRANTED"),
        grantedAction + QStringLiteral("\n"),
        QStringLiteral("app.nuvrel.test-granted/../test-granted"),
        QStringLiteral("app.nuvrel.test-gränted"),
        QString(70'000, QLatin1Char('a')),
    };
    for (const QString& action : unknown)
        EXPECT_EQ(PolkitOwnerCheck(action).confirmOwner(QStringLiteral("test")), OwnerCheck::Outcome::Unavailable)
            << action.left(80).toStdString();

    // No system bus at all. libdbus reads the address once per process: another process.
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    const ProbeRun noBus = run(Probe(grantedAction)
                                   .onSystemBus(QStringLiteral("unix:path=") + folder.filePath(QStringLiteral("none")))
                                   .asThisAccount());
    EXPECT_EQ(noBus.outcome, QStringLiteral("Unavailable")) << noBus.output.toStdString();

    // A bus where polkitd is not running.
    QProcess bus;
    bus.start(QStringLiteral("dbus-daemon"),
              {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--print-address"),
               QStringLiteral("--address=unix:dir=") + folder.path()});
    ASSERT_TRUE(bus.waitForReadyRead(10'000)) << bus.errorString().toStdString();
    const QString address = QString::fromUtf8(bus.readLine()).trimmed();
    const ProbeRun noPolkit = run(Probe(grantedAction).onSystemBus(address).asThisAccount());
    bus.terminate();
    bus.waitForFinished(5'000);
    EXPECT_EQ(noPolkit.outcome, QStringLiteral("Unavailable")) << address.toStdString() << "\n"
                                                               << noPolkit.output.toStdString();
}

TEST(PolkitOwnerCheck, AsksOnTheTerminalWhenNoAgentAnswers)
{
    if (const std::string why = whyNotHere(); !why.empty())
        GTEST_SKIP() << why;

    {
        // Nothing to ask: the answer comes as without the agent, and nothing shows on the terminal.
        Terminal terminal;
        ASSERT_TRUE(terminal.isValid());
        const ProbeRun granted = run(Probe(grantedAction).withTerminalAgent().on(terminal));
        EXPECT_EQ(granted.outcome, QStringLiteral("Confirmed")) << granted.output.toStdString();
        EXPECT_FALSE(granted.terminal.contains("AUTHENTICATING")) << granted.terminal.toStdString();
        EXPECT_EQ(granted.agentsLeft, 0);
        EXPECT_EQ(agentsServing(granted.pid), 0);
    }
    {
        // The password asked on the terminal, for our action and this account, and a wrong one typed.
        // The probe is in no login session: polkit must still take the terminal's agent.
        Terminal terminal;
        ASSERT_TRUE(terminal.isValid());
        const ProbeRun wrong =
            run(Probe(passwordAction).withTerminalAgent().on(terminal).typingAtPasswordPrompt("not the password\n"));
        EXPECT_EQ(wrong.outcome, QStringLiteral("Refused")) << wrong.output.toStdString() << "\n"
                                                            << wrong.terminal.toStdString();
        EXPECT_TRUE(wrong.terminal.contains("Nuvrel test: type the account's password"))
            << wrong.terminal.toStdString();
        EXPECT_TRUE(wrong.terminal.contains("Password:"));
        EXPECT_EQ(wrong.agentsLeft, 0);
        EXPECT_EQ(agentsServing(wrong.pid), 0);
    }
    {
        // Without the terminal agent, a terminal alone asks nothing.
        Terminal terminal;
        ASSERT_TRUE(terminal.isValid());
        const ProbeRun unasked = run(Probe(passwordAction).on(terminal));
        EXPECT_EQ(unasked.outcome, QStringLiteral("Unavailable")) << unasked.output.toStdString();
        EXPECT_FALSE(unasked.terminal.contains("Password:")) << unasked.terminal.toStdString();
    }
    {
        // No terminal to ask on (a service, a pipeline): pkttyagent gives up, and so do we, promptly.
        const ProbeRun detached = run(Probe(passwordAction).withTerminalAgent());
        EXPECT_EQ(detached.outcome, QStringLiteral("Unavailable")) << detached.output.toStdString();
        EXPECT_LT(detached.elapsedMs, 20'000);
        EXPECT_EQ(detached.agentsLeft, 0);
        EXPECT_EQ(agentsServing(detached.pid), 0);
    }
}

TEST(PolkitOwnerCheck, ShippedActionIsReadByPolkitAsWritten)
{
    if (const std::string why = whyNotHere(); !why.empty())
        GTEST_SKIP() << why;

    // The harness installs data/polkit under a test name; pkaction shows what polkitd made of it.
    QProcess pkaction;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
    pkaction.setProcessEnvironment(environment);
    pkaction.start(QStringLiteral("pkaction"),
                   {QStringLiteral("--action-id"), QString::fromLatin1(PolkitOwnerCheck::vaultAction),
                    QStringLiteral("--verbose")});
    ASSERT_TRUE(pkaction.waitForFinished(30'000));
    const QString described = QString::fromUtf8(pkaction.readAllStandardOutput() + pkaction.readAllStandardError());
    EXPECT_TRUE(described.contains(QStringLiteral("description:       Unlock the Nuvrel vault")))
        << described.toStdString();
    EXPECT_TRUE(described.contains(QStringLiteral("implicit any:      auth_self\n"))) << described.toStdString();
    EXPECT_TRUE(described.contains(QStringLiteral("implicit inactive: auth_self\n"))) << described.toStdString();
    EXPECT_TRUE(described.contains(QStringLiteral("implicit active:   auth_self_keep\n"))) << described.toStdString();
}

// Not a test of its own: the cases above run it as another account, and read what it prints.
TEST(PolkitOwnerCheckProbe, PrintsTheOutcome)
{
    if (!qEnvironmentVariableIsSet(probeActionVariable))
        GTEST_SKIP() << "run by the PolkitOwnerCheck tests, as another account";
    PolkitOwnerCheck check(qEnvironmentVariable(probeActionVariable));
    check.setTerminalAgent(qEnvironmentVariable(probeAgentVariable) == QLatin1StringView("1"));
    const OwnerCheck::Outcome outcome = check.confirmOwner(QStringLiteral("test"));
    // Counted here, as the check returns: after the probe's exit the terminal's hangup would end
    // an agent left behind anyway.
    std::cout << "probe-outcome: " << nameOf(outcome).toStdString()
              << "\nprobe-agents-left: " << agentsServing(::getpid()) << std::endl;
}
