#pragma once

#include <QFutureWatcher>
#include <QObject>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include <type_traits>
#include <utility>

namespace nuvrel {

/// Runs `task` on `pool` and hands its result to `callback` on `context`'s thread. The watcher belongs
/// to `context`, so a context destroyed meanwhile never receives a stale result.
template <typename Task, typename Callback>
void runThenCallback(QThreadPool* pool, Task&& task, QObject* context, Callback&& callback)
{
    using Result = std::invoke_result_t<Task>;
    auto* watcher = new QFutureWatcher<Result>(context);
    QObject::connect(watcher, &QFutureWatcherBase::finished, context,
                     [watcher, callback = std::forward<Callback>(callback)]() mutable {
                         if constexpr (std::is_void_v<Result>)
                             callback();
                         else
                             callback(watcher->result());
                         watcher->deleteLater();
                     });
    watcher->setFuture(QtConcurrent::run(pool, std::forward<Task>(task)));
}

} // namespace nuvrel
