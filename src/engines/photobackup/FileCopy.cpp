#include "engines/photobackup/FileCopy.h"

#include "ground/NewFile.h"
#include "ground/SystemError.h"
#include "l10n/L.h"

#include <QDir>
#include <QScopeGuard>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace nuvrel {

namespace {

using Clock = std::chrono::steady_clock;

// Large blocks for a phone's link, a few in flight so that reading and writing overlap.
constexpr qint64 blockSize = qint64(1) << 20;
constexpr size_t maxQueuedBlocks = 4;

bool isSet(const std::atomic<bool>* flag)
{
    return flag && flag->load(std::memory_order_relaxed);
}

// The bytes of one file on their way from the source's reader to the writer.
struct Pipe
{
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<QByteArray> blocks;
    bool ended = false;
    bool failed = false;
    QString error;
    bool abandoned = false; ///< the writer gave up: the reader stops at its next step
};

void pump(const std::shared_ptr<Pipe>& pipe, const std::shared_ptr<CameraSource>& source, const CameraFile& file)
{
    QString error;
    const std::unique_ptr<CameraFileReader> reader = source->open(file, error);
    if (!reader) {
        const std::lock_guard lock(pipe->mutex);
        pipe->failed = true;
        pipe->error = error;
        pipe->changed.notify_all();
        return;
    }
    for (;;) {
        QByteArray block(blockSize, Qt::Uninitialized);
        const qint64 got = reader->read(block.data(), blockSize);
        std::unique_lock lock(pipe->mutex);
        if (pipe->abandoned)
            return;
        if (got <= 0) {
            (got == 0 ? pipe->ended : pipe->failed) = true;
            if (got < 0)
                pipe->error = reader->errorText();
            pipe->changed.notify_all();
            return;
        }
        block.truncate(got);
        pipe->blocks.push_back(std::move(block));
        pipe->changed.notify_all();
        pipe->changed.wait(lock, [&] { return pipe->blocks.size() < maxQueuedBlocks || pipe->abandoned; });
        if (pipe->abandoned)
            return;
    }
}

FileCopyResult failure(QString reason, bool bySource = false)
{
    FileCopyResult result;
    result.kind = FileCopyResult::Kind::Failed;
    result.reason = std::move(reason);
    result.bySource = bySource;
    return result;
}

} // namespace

FileCopyResult FileCopy::run(const std::shared_ptr<CameraSource>& source, const CameraFile& file, const QString& folder,
                             const QString& name, const std::function<QString(int)>& numbered) const
{
    try {
        NewFile out(QDir(folder).filePath(name), FreeNameStyle::Hyphenated);
        auto pipe = std::make_shared<Pipe>();
        std::thread reader(pump, pipe, source, file);
        // However this ends, the reader is told to stop and is never left joinable: a thread object
        // destroyed joinable ends the program.
        const auto release = qScopeGuard([&] {
            {
                const std::lock_guard lock(pipe->mutex);
                pipe->abandoned = true;
                pipe->changed.notify_all();
            }
            if (reader.joinable())
                reader.detach();
        });
        qint64 received = 0;
        FileCopyResult result;
        {
            // The watchdog measures silence: a long video that keeps arriving is never cut.
            Clock::time_point deadline = Clock::now() + watchdog;
            std::unique_lock lock(pipe->mutex);
            for (;;) {
                if (isSet(abort)) {
                    result.kind = FileCopyResult::Kind::Aborted;
                    break;
                }
                if (!pipe->blocks.empty()) {
                    const QByteArray block = std::move(pipe->blocks.front());
                    pipe->blocks.pop_front();
                    pipe->changed.notify_all();
                    lock.unlock();
                    errno = 0;
                    if (out.device().write(block) != block.size())
                        throw FileError::fromErrno(FileError::Operation::Write, errno ? errno : EIO,
                                                   QDir(folder).filePath(name));
                    received += block.size();
                    if (bytesDone)
                        bytesDone(received);
                    deadline = Clock::now() + watchdog;
                    lock.lock();
                    continue;
                }
                if (pipe->failed) {
                    result = failure(pipe->error, true);
                    break;
                }
                if (pipe->ended)
                    break;
                if (Clock::now() >= deadline) {
                    result = failure(L("délai dépassé"));
                    result.timedOut = true;
                    break;
                }
                // Woken by the reader, or now and then to look at the deadline and the abort flag.
                pipe->changed.wait_until(lock, std::min(deadline, Clock::now() + std::chrono::milliseconds(200)));
            }
            pipe->abandoned = true;
            pipe->changed.notify_all();
        }
        // A reader that is done is joined; one that may hang is left behind with what it holds.
        const bool readerDone = result.kind == FileCopyResult::Kind::Copied || result.bySource;
        if (readerDone)
            reader.join();
        // A reader still inside a read that never returns may hold the source's connection: the next
        // files get a fresh one.
        if (result.timedOut)
            source->reconnect();
        if (result.kind != FileCopyResult::Kind::Copied)
            return result;
        if (received == 0)
            return failure(emptyReason);
        if (received != file.size)
            return failure(L("le fichier a changé pendant la copie"));
        result.savedAs = out.commit(file.created.isValid() ? std::optional(file.created) : std::nullopt, numbered);
        return result;
    } catch (const LocalizedError& error) {
        FileCopyResult result;
        result.kind = FileCopyResult::Kind::DestinationFailed;
        result.reason = error.message();
        return result;
    }
}

} // namespace nuvrel
