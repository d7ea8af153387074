#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QThreadPool>

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

namespace nuvrel {

/// A shared stop request. The flag lives as long as any copy of the token, so work that outlives its
/// model can still read it.
class CancelToken final
{
public:
    CancelToken()
        : m_flag(std::make_shared<std::atomic<bool>>(false))
    {}

    void cancel() const { m_flag->store(true, std::memory_order_relaxed); }
    bool isCancelled() const { return m_flag->load(std::memory_order_relaxed); }
    /// For the readers' loops, which take a plain flag.
    const std::atomic<bool>* flag() const { return m_flag.get(); }

private:
    std::shared_ptr<std::atomic<bool>> m_flag;
};

class Job;

/// What a job's body sees: its cancel token and a progress report that reaches the GUI thread a few
/// times a second at most, however often it is called.
class JobContext final
{
public:
    static constexpr qint64 progressIntervalMs = 200;

    const CancelToken& token() const { return m_token; }
    bool isCancelled() const { return m_token.isCancelled(); }
    /// `done` of `total` steps; cheap to call for every item.
    void progress(qint64 done, qint64 total);
    /// Runs `step` on the GUI thread, in the order published and before the job's result, unless the
    /// run has ended or was replaced: for work whose items are shown one by one as they finish. Not
    /// throttled; callable from any thread.
    void publish(std::function<void()> step) const;

private:
    friend class Job;
    JobContext(CancelToken token, QPointer<Job> job, quint64 generation)
        : m_token(std::move(token))
        , m_job(std::move(job))
        , m_generation(generation)
    {}

    CancelToken m_token;
    QPointer<Job> m_job; ///< only dereferenced on the GUI thread
    quint64 m_generation;
    QElapsedTimer m_sincePost;
};

/// The one way a model runs long work: one job at a time, off the GUI thread on the application's
/// pool, with a cancel token, throttled progress, and its result handed back on the GUI thread.
/// Nothing ever waits for it: destroying the Job (with its model) cancels the work and lets it go;
/// the result of a job whose Job is gone is dropped, and what the body holds is released on the worker.
class Job final : public QObject
{
    Q_OBJECT

public:
    explicit Job(QObject* parent = nullptr);
    ~Job() override;
    Q_DISABLE_COPY_MOVE(Job)

    bool isRunning() const { return m_running; }
    /// Asks the running body to stop; its result still arrives, as the body makes it.
    void cancel();
    bool isCancelled() const { return m_running && m_token.isCancelled(); }

    /// Runs `body(JobContext&)` on the pool and then `done(result)` on this object's thread. Refused
    /// (false) while a job runs. A body that throws is logged and ends with failed().
    template <typename Body, typename Done>
    bool start(Body body, Done done)
    {
        using Result = std::invoke_result_t<Body&, JobContext&>;
        if (m_running)
            return false;
        begin();
        auto context = std::make_shared<JobContext>(JobContext(m_token, QPointer<Job>(this), m_generation));
        pool().start([context, held = std::optional<Body>(std::move(body)), done = std::move(done),
                      job = QPointer<Job>(this)]() mutable {
            if constexpr (std::is_void_v<Result>) {
                const bool ok = invokeGuarded([&] { (*held)(*context); });
                deliver(job, context->m_generation, [done = std::move(done), ok](Job& self) mutable {
                    self.end();
                    ok ? done() : self.fail();
                });
            } else {
                std::optional<Result> result;
                invokeGuarded([&] { result.emplace((*held)(*context)); });
                deliver(job, context->m_generation,
                        [done = std::move(done), result = std::move(result)](Job& self) mutable {
                            self.end();
                            result ? done(std::move(*result)) : self.fail();
                        });
            }
            // What the body captured goes here, on the worker.
            held.reset();
        });
        return true;
    }

    /// The application's pool of workers, shared by every model.
    static QThreadPool& pool();
    /// Cancels every running job and waits for the pool at most `msecs`, then ends its threads; for
    /// quitting. False when work was still running.
    static bool shutdown(int msecs);
    /// Set once shutdown() began: work that finishes the file in hand on a plain cancel stops at once.
    static const std::atomic<bool>* quittingFlag();

Q_SIGNALS:
    void runningChanged();
    /// Throttled; `total` 0 while it cannot be told.
    void progressChanged(qint64 done, qint64 total);
    /// The body threw: a fault of ours, logged; the model says the work could not be done.
    void failed();

private:
    friend class JobContext;
    void begin();
    void end();
    void fail();
    static bool invokeGuarded(const std::function<void()>& call);
    /// Posts `step` to the GUI thread, where it runs if the job still exists and is still this run.
    static void deliver(const QPointer<Job>& job, quint64 generation, std::function<void(Job&)> step);

    CancelToken m_token;
    quint64 m_generation = 0;
    bool m_running = false;
};

} // namespace nuvrel
