#pragma once

#include <QFutureWatcher>
#include <QThreadPool>
#include <QtConcurrentRun>
#include <utility>

namespace skyreel {

/// Runs `work` on a worker thread of `pool`, and then calls `done` with its result on the thread of `owner`.
/// When the owner is gone by then, `done` is not called. `work` refers to nothing that may go before it ends;
/// it must not throw.
template <typename TWork, typename TDone>
void InBackground(QObject* owner, QThreadPool* pool, TWork work, TDone done) {
  using TResult = std::invoke_result_t<TWork>;
  auto* watcher = new QFutureWatcher<TResult>(owner);
  QObject::connect(watcher, &QFutureWatcherBase::finished, watcher, [watcher, done = std::move(done)] {
    watcher->deleteLater();
    done(watcher->future().takeResult());
  });
  watcher->setFuture(QtConcurrent::run(pool, std::move(work)));
}
/// The same on a thread of the program's common pool.
template <typename TWork, typename TDone>
void InBackground(QObject* owner, TWork work, TDone done) {
  InBackground(owner, QThreadPool::globalInstance(), std::move(work), std::move(done));
}

}  // namespace skyreel
