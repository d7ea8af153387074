#include "ground/Job.h"

#include <QCoreApplication>
#include <QMutex>
#include <QThread>

#include <algorithm>

namespace nuvrel {

namespace {

// The tokens of the jobs running now, so that quitting can stop them all.
std::atomic<bool> quitting{false};
QMutex tokensLock;
QList<CancelToken> runningTokens;

void forgetToken(const CancelToken& token)
{
    const QMutexLocker locker(&tokensLock);
    runningTokens.removeIf([&token](const CancelToken& other) { return other.flag() == token.flag(); });
}

} // namespace

void JobContext::progress(qint64 done, qint64 total)
{
    if (m_sincePost.isValid() && m_sincePost.elapsed() < progressIntervalMs)
        return;
    m_sincePost.start();
    Job::deliver(m_job, m_generation, [done, total](Job& job) {
        if (job.isRunning())
            Q_EMIT job.progressChanged(done, total);
    });
}

void JobContext::publish(std::function<void()> step) const
{
    Job::deliver(m_job, m_generation, [step = std::move(step)](Job& job) {
        if (job.isRunning())
            step();
    });
}

Job::Job(QObject* parent)
    : QObject(parent)
{}

Job::~Job()
{
    // Never waits: the body sees the cancel and ends on its own; its result finds no one.
    if (m_running) {
        m_token.cancel();
        forgetToken(m_token);
    }
}

void Job::cancel()
{
    if (m_running)
        m_token.cancel();
}

void Job::begin()
{
    m_token = CancelToken();
    ++m_generation;
    m_running = true;
    {
        const QMutexLocker locker(&tokensLock);
        runningTokens.append(m_token);
    }
    Q_EMIT runningChanged();
}

void Job::end()
{
    forgetToken(m_token);
    m_running = false;
    Q_EMIT runningChanged();
}

void Job::fail()
{
    Q_EMIT failed();
}

bool Job::invokeGuarded(const std::function<void()>& call)
{
    try {
        call();
        return true;
    } catch (const std::exception& error) {
        qCritical("background job failed: %s", error.what());
    } catch (...) {
        qCritical("background job failed");
    }
    return false;
}

void Job::deliver(const QPointer<Job>& job, quint64 generation, std::function<void(Job&)> step)
{
    QCoreApplication* app = QCoreApplication::instance();
    if (!app)
        return;
    // Posted to the application object, which outlives every model; the weak pointer is only read
    // there, on the GUI thread.
    QMetaObject::invokeMethod(
        app,
        [job, generation, step = std::move(step)]() mutable {
            if (job && job->m_generation == generation) {
                step(*job);
                return;
            }
            // Nobody waits for this result any more; what it holds (a reader and its temporary folder)
            // is let go on a worker, not here on the GUI thread.
            pool().start([dropped = std::move(step)]() mutable { dropped = nullptr; });
        },
        Qt::QueuedConnection);
}

namespace {
QMutex poolLock;
QThreadPool* sharedPool = nullptr;
} // namespace

QThreadPool& Job::pool()
{
    const QMutexLocker locker(&poolLock);
    if (!sharedPool) {
        sharedPool = new QThreadPool;
        sharedPool->setMaxThreadCount(std::max(2, QThread::idealThreadCount()));
    }
    return *sharedPool;
}

const std::atomic<bool>* Job::quittingFlag()
{
    return &quitting;
}

bool Job::shutdown(int msecs)
{
    quitting = true;
    {
        const QMutexLocker locker(&tokensLock);
        for (const CancelToken& token : std::as_const(runningTokens))
            token.cancel();
    }
    const QMutexLocker locker(&poolLock);
    if (!sharedPool)
        return true;
    if (!sharedPool->waitForDone(msecs))
        return false; // still busy: left running, the process ends it
    // Its threads end with it, and what they keep per thread (font caches of PDF drawing) goes too.
    delete sharedPool;
    sharedPool = nullptr;
    return true;
}

} // namespace nuvrel
