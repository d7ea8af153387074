#pragma once

#include <QFutureWatcher>
#include <QObject>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include <exception>

#include <type_traits>
#include <utility>

namespace nuvrel {

/// Runs `task` on `pool` and hands its result to `callback` on `context`'s thread. The watcher belongs
/// to `context`, so a context destroyed meanwhile never receives a stale result. Tasks report their
/// failures in their result; one that throws anyway hands back a default result rather than ending the
/// program inside a slot.
template <typename Task, typename Callback>
void runThenCallback(QThreadPool* pool, Task&& task, QObject* context, Callback&& callback)
{
    using Result = std::invoke_result_t<Task>;
    static_assert(std::is_void_v<Result> || std::is_default_constructible_v<Result>);
    auto* watcher = new QFutureWatcher<Result>(context);
    QObject::connect(watcher, &QFutureWatcherBase::finished, context,
                     [watcher, callback = std::forward<Callback>(callback)]() mutable {
                         if constexpr (std::is_void_v<Result>)
                             callback();
                         else
                             callback(watcher->result());
                         watcher->deleteLater();
                     });
    watcher->setFuture(QtConcurrent::run(pool, [task = std::forward<Task>(task)]() mutable -> Result {
        try {
            return task();
        } catch (const std::exception& error) {
            qCritical("background task failed: %s", error.what());
        } catch (...) {
            qCritical("background task failed");
        }
        if constexpr (!std::is_void_v<Result>)
            return Result{};
    }));
}

} // namespace nuvrel
