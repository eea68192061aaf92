// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>
#include <QThreadPool>
#include <type_traits>
#include <utility>

namespace tidewell::desktop {

/// Runs `work` on a thread of `pool`, and then `done` with its result on the interface's thread, unless
/// `receiver`, which lives there, has gone by then. `work` must not throw and must own what it uses: it may
/// outlive the receiver. Call it on the interface's thread.
template <typename Work, typename Done>
void inBackground(QObject* receiver, Work work, Done done,
                  QThreadPool* pool = QThreadPool::globalInstance()) {
  pool->start(
      [target = QPointer<QObject>(receiver), work = std::move(work), done = std::move(done)]() mutable {
        using Result = std::invoke_result_t<Work>;
        const auto deliver = [&target](auto call) {
          // A pointer must be asked on the thread where its object dies.
          QMetaObject::invokeMethod(
              QCoreApplication::instance(),
              [target, call = std::move(call)]() mutable {
                if (target) call();
              },
              Qt::QueuedConnection);
        };
        if constexpr (std::is_void_v<Result>) {
          work();
          deliver(std::move(done));
        } else {
          deliver([done = std::move(done), result = work()]() mutable { done(std::move(result)); });
        }
      });
}

}  // namespace tidewell::desktop
