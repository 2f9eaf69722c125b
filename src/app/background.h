#pragma once

#include <QFutureWatcher>
#include <QtConcurrentRun>
#include <utility>

namespace skyreel {

/// Runs `work` on a worker thread, and then calls `done` with its result on the thread of `owner`. When the
/// owner is gone by then, `done` is not called. `work` refers to nothing that may go before it ends; it must
/// not throw.
template <typename TWork, typename TDone>
void InBackground(QObject* owner, TWork work, TDone done) {
  using TResult = std::invoke_result_t<TWork>;
  auto* watcher = new QFutureWatcher<TResult>(owner);
  QObject::connect(watcher, &QFutureWatcherBase::finished, watcher, [watcher, done = std::move(done)] {
    watcher->deleteLater();
    done(watcher->future().takeResult());
  });
  watcher->setFuture(QtConcurrent::run(std::move(work)));
}

}  // namespace skyreel
