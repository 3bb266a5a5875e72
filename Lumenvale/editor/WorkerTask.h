#pragma once

#include <QMetaObject>
#include <QObject>
#include <QtConcurrent/QtConcurrent>
#include <utility>

namespace lumenvale {

// Runs `work` on Qt's global thread pool and hands its result to `done` on the
// thread of `context` (the GUI thread for the editor), always later through the event
// loop, never inside this call, even when the work is already finished by the time it
// returns. `done` is dropped when `context` is destroyed first. `work` must not
// throw; it owns copies of everything it reads. A higher `priority` starts sooner.
template <typename Work, typename Done>
void runOnWorker(QObject* context, Work work, Done done, int priority = 0) {
    using Result = std::invoke_result_t<Work>;
    QtConcurrent::task(std::move(work))
        .withPriority(priority)
        .spawn()
        .then(context, [context, done = std::move(done)](Result result) mutable {
            // A continuation on a finished future runs at once; queue it once more so
            // the caller's state is never changed from under it.
            QMetaObject::invokeMethod(
                context,
                [done = std::move(done), result = std::move(result)]() mutable {
                    done(std::move(result));
                },
                Qt::QueuedConnection);
        });
}

} // namespace lumenvale
