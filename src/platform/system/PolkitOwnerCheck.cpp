#include "platform/system/PolkitOwnerCheck.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QFile>
#include <QStandardPaths>
#include <QUuid>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>

extern char** environ;

namespace nuvrel {

namespace {

const QString authorityService = QStringLiteral("org.freedesktop.PolicyKit1");
const QString authorityPath = QStringLiteral("/org/freedesktop/PolicyKit1/Authority");
const QString authorityInterface = QStringLiteral("org.freedesktop.PolicyKit1.Authority");

constexpr quint32 allowUserInteraction = 1;
// The person may take their time over the dialog; polkit itself gives up after a few minutes.
constexpr int answerTimeoutMs = 15 * 60 * 1000;

/// When this process started, in clock ticks since boot (/proc/self/stat, field 22): with the pid,
/// it names this process and no later one that reuses the pid.
std::optional<quint64> processStartTime()
{
    QFile stat(QStringLiteral("/proc/self/stat"));
    if (!stat.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray line = stat.readAll();
    // The command name (field 2) may hold spaces and parentheses: count from the last ')'.
    const qsizetype close = line.lastIndexOf(')');
    if (close < 0)
        return std::nullopt;
    const QList<QByteArray> fields = line.mid(close + 2).split(' ');
    constexpr int startTimeAfterName = 22 - 3; // fields 3.. follow the name
    if (fields.size() <= startTimeAfterName)
        return std::nullopt;
    bool ok = false;
    const quint64 value = fields.at(startTimeAfterName).toULongLong(&ok);
    return ok ? std::optional<quint64>(value) : std::nullopt;
}

/// The subject polkit checks: this very process.
QDBusArgument thisProcess(quint64 startTime)
{
    QDBusArgument subject;
    subject.beginStructure();
    subject << QStringLiteral("unix-process");
    subject.beginMap(QMetaType::fromType<QString>(), QMetaType::fromType<QDBusVariant>());
    const auto entry = [&subject](const QString& key, const QVariant& value) {
        subject.beginMapEntry();
        subject << key << QDBusVariant(value);
        subject.endMapEntry();
    };
    entry(QStringLiteral("pid"), QVariant::fromValue(quint32(::getpid())));
    entry(QStringLiteral("start-time"), QVariant::fromValue(startTime));
    entry(QStringLiteral("uid"), QVariant::fromValue(qint32(::getuid())));
    subject.endMap();
    subject.endStructure();
    return subject;
}

QDBusArgument noDetails()
{
    QDBusArgument details;
    details.beginMap(QMetaType::fromType<QString>(), QMetaType::fromType<QString>());
    details.endMap();
    return details;
}

/// pkttyagent serving this process for as long as it lives; nothing when it cannot be started or
/// did not register. It tells us it has registered by closing the descriptor it was given.
class TerminalAgent
{
public:
    static std::unique_ptr<TerminalAgent> start()
    {
        const QString program = QStandardPaths::findExecutable(QStringLiteral("pkttyagent"));
        if (program.isEmpty())
            return nullptr;
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0)
            return nullptr;
        constexpr int notifyFd = 3;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        // dup2 clears close-on-exec on the copy: the agent keeps exactly this one end.
        posix_spawn_file_actions_adddup2(&actions, ends[1], notifyFd);
        const QByteArray path = QFile::encodeName(program);
        const QByteArray pid = QByteArray::number(::getpid());
        const QByteArray fd = QByteArray::number(notifyFd);
        // Not --fallback: polkit passes over a fallback agent when the process is in no login session
        // (no logind, su, a container), and we start it only once nothing else has answered.
        QByteArrayList arguments{path, "--process", pid, "--notify-fd", fd};
        std::vector<char*> argv;
        for (QByteArray& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        pid_t child = -1;
        const int spawned = posix_spawn(&child, path.constData(), &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(ends[1]);
        if (spawned != 0) {
            ::close(ends[0]);
            return nullptr;
        }
        auto agent = std::unique_ptr<TerminalAgent>(new TerminalAgent(child));
        // Returns at the close, or when the agent dies without registering.
        char byte = 0;
        ssize_t got = 0;
        while ((got = ::read(ends[0], &byte, 1)) > 0 || (got < 0 && errno == EINTR)) {
        }
        ::close(ends[0]);
        int status = 0;
        if (::waitpid(child, &status, WNOHANG) == child) {
            agent->m_pid = -1;
            return nullptr;
        }
        return agent;
    }

    ~TerminalAgent()
    {
        if (m_pid <= 0)
            return;
        ::kill(m_pid, SIGTERM);
        int status = 0;
        while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
        }
    }

    TerminalAgent(const TerminalAgent&) = delete;
    TerminalAgent& operator=(const TerminalAgent&) = delete;

private:
    explicit TerminalAgent(pid_t pid)
        : m_pid(pid)
    {}
    pid_t m_pid;
};

struct Answer
{
    OwnerCheck::Outcome outcome;
    bool unanswered = false; ///< polkit wanted to ask, and no agent took the question
};

Answer checkAuthorization(QDBusConnection& bus, quint64 startTime, const QString& action)
{
    QDBusMessage call = QDBusMessage::createMethodCall(authorityService, authorityPath, authorityInterface,
                                                       QStringLiteral("CheckAuthorization"));
    call << QVariant::fromValue(thisProcess(startTime)) << action << QVariant::fromValue(noDetails())
         << allowUserInteraction << QString();
    const QDBusMessage reply = bus.call(call, QDBus::Block, answerTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        // polkit says so when the dialog was cancelled; anything else (no polkit on the bus, our
        // action not installed, no answer) means nothing here can check.
        return {reply.errorName() == QLatin1String("org.freedesktop.PolicyKit1.Error.Cancelled")
                    ? OwnerCheck::Outcome::Refused
                    : OwnerCheck::Outcome::Unavailable};
    }
    bool authorized = false;
    bool challenge = false;
    const auto result = reply.arguments().constFirst().value<QDBusArgument>();
    result.beginStructure();
    result >> authorized >> challenge;
    result.endStructure();
    if (authorized)
        return {OwnerCheck::Outcome::Confirmed};
    // A challenge left standing after an interactive check means no agent could show the dialog.
    return challenge ? Answer{OwnerCheck::Outcome::Unavailable, true} : Answer{OwnerCheck::Outcome::Refused};
}

} // namespace

PolkitOwnerCheck::PolkitOwnerCheck(QString action)
    : m_action(std::move(action))
{}

OwnerCheck::Outcome PolkitOwnerCheck::confirmOwner(const QString& reason)
{
    // polkit shows the message of our policy file, translated there; the reason is for systems whose
    // dialog takes it from the caller.
    Q_UNUSED(reason)
    const std::optional<quint64> startTime = processStartTime();
    // A connection of our own: the check may run on any thread, and may outlive a shared one's users.
    const QString connectionName = QStringLiteral("nuvrel-owner-check-") + QUuid::createUuid().toString(QUuid::Id128);
    QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SystemBus, connectionName);
    const auto disconnect = qScopeGuard([&connectionName] { QDBusConnection::disconnectFromBus(connectionName); });
    if (!startTime || !bus.isConnected())
        return Outcome::Unavailable;

    // The desktop's agent first; the terminal only when none answered, as pkexec does.
    const Answer first = checkAuthorization(bus, *startTime, m_action);
    if (!first.unanswered || !m_terminalAgent)
        return first.outcome;
    const std::unique_ptr<TerminalAgent> agent = TerminalAgent::start();
    if (!agent)
        return first.outcome;
    return checkAuthorization(bus, *startTime, m_action).outcome;
}

} // namespace nuvrel
