#include "ground/Job.h"

#include <QElapsedTimer>
#include <QSemaphore>
#include <QTest>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

using namespace nuvrel;

namespace {

constexpr int watchdogMs = 20'000; // only against a hang; nothing here is timed

// What a body saw, kept beyond the life of the job that ran it.
struct Witness
{
    QSemaphore started;
    QSemaphore gate;
    QSemaphore finished;
    std::atomic<bool> sawCancel{false};
};

} // namespace

TEST(Job, DestroyingItsOwnerReturnsWhileTheBodyIsStillBlockedAndTheBodyThenSeesTheCancel)
{
    auto witness = std::make_shared<Witness>();
    bool delivered = false;
    auto owner = std::make_unique<QObject>();
    auto* job = new Job(owner.get());
    ASSERT_TRUE(job->start(
        [witness](JobContext& context) {
            witness->started.release();
            witness->gate.acquire(); // a copy stuck on a slow disk
            witness->sawCancel = context.isCancelled();
            witness->finished.release();
            return 1;
        },
        [&delivered](int) { delivered = true; }));
    ASSERT_TRUE(witness->started.tryAcquire(1, watchdogMs));

    owner.reset(); // the page closes: this returns although the body has not ended
    EXPECT_EQ(witness->finished.available(), 0);

    witness->gate.release();
    ASSERT_TRUE(witness->finished.tryAcquire(1, watchdogMs));
    EXPECT_TRUE(witness->sawCancel);
    QTest::qWait(50); // any result posted meanwhile has found no one
    QCoreApplication::processEvents();
    EXPECT_FALSE(delivered);
}

TEST(Job, OneAtATimeWithTheResultOnTheOwnersThreadAndTheCaptureReleasedOnTheWorker)
{
    Job job;
    QSemaphore gate;
    std::atomic<Qt::HANDLE> releasedOn{nullptr};
    struct Capture
    {
        std::atomic<Qt::HANDLE>* where;
        ~Capture() { where->store(QThread::currentThreadId()); }
    };
    auto capture = std::shared_ptr<Capture>(new Capture{&releasedOn});
    std::optional<int> result;
    Qt::HANDLE resultOn = nullptr;
    ASSERT_TRUE(job.start(
        [capture = std::move(capture), &gate](JobContext&) {
            gate.acquire();
            return 42;
        },
        [&](int value) {
            result = value;
            resultOn = QThread::currentThreadId();
        }));
    EXPECT_TRUE(job.isRunning());
    EXPECT_FALSE(job.start([](JobContext&) { return 0; }, [](int) {})); // refused while one runs
    gate.release();
    ASSERT_TRUE(QTest::qWaitFor([&] { return result.has_value(); }, watchdogMs));
    EXPECT_EQ(*result, 42);
    EXPECT_EQ(resultOn, QThread::currentThreadId());
    EXPECT_FALSE(job.isRunning());
    ASSERT_TRUE(QTest::qWaitFor([&] { return releasedOn.load() != nullptr; }, watchdogMs));
    EXPECT_NE(releasedOn.load(), QThread::currentThreadId()); // e.g. a reader's folder goes off the GUI thread
}

TEST(Job, ProgressIsThrottledAndAThrowingBodyEndsInFailed)
{
    Job job;
    int updates = 0;
    qint64 lastDone = -1;
    QObject::connect(&job, &Job::progressChanged, [&](qint64 done, qint64) {
        ++updates;
        lastDone = done;
    });
    bool finished = false;
    qint64 elapsedMs = 0;
    ASSERT_TRUE(job.start(
        [&elapsedMs](JobContext& context) {
            QElapsedTimer clock;
            clock.start();
            constexpr int items = 200'000;
            for (int i = 0; i < items; ++i)
                context.progress(i, items);
            elapsedMs = clock.elapsed();
        },
        [&finished] { finished = true; }));
    ASSERT_TRUE(QTest::qWaitFor([&] { return finished; }, watchdogMs));
    // One queued event per item would be 200,000; a few a second is the bound, whatever the machine.
    EXPECT_GE(updates, 1);
    EXPECT_LE(updates, elapsedMs / JobContext::progressIntervalMs + 1);
    EXPECT_GE(lastDone, 0);

    bool failed = false;
    QObject::connect(&job, &Job::failed, [&failed] { failed = true; });
    bool delivered = false;
    ASSERT_TRUE(job.start([](JobContext&) -> int { throw std::runtime_error("fault"); },
                          [&delivered](int) { delivered = true; }));
    ASSERT_TRUE(QTest::qWaitFor([&] { return failed; }, watchdogMs));
    EXPECT_FALSE(delivered);
    EXPECT_FALSE(job.isRunning());
}
