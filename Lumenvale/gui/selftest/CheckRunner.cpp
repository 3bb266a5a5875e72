#include "gui/selftest/CheckRunner.h"

#include <cstdio>

namespace lumenvale {

CheckRunner::CheckRunner(std::function<void(int status)> finished, QObject* parent)
    : QObject(parent), finished_(std::move(finished)) {
    limit_.setSingleShot(true);
    connect(&limit_, &QTimer::timeout, this, [this] {
        report(QStringLiteral("no answer within %1 s")
                   .arg(std::chrono::duration_cast<std::chrono::seconds>(entries_[current_].limit)
                            .count()));
    });
}

void CheckRunner::add(QString label, Check check, QString needs, std::chrono::milliseconds limit) {
    entries_.push_back(Entry{std::move(label), std::move(check), std::move(needs), limit});
}

void CheckRunner::start() {
    QTimer::singleShot(0, this, [this] { runNext(); });
}

void CheckRunner::runNext() {
    if (current_ >= entries_.size()) {
        std::printf("SELFTEST %s: %d of %zu checks failed\n", failures_ == 0 ? "passed" : "FAILED",
                    failures_, entries_.size());
        std::fflush(stdout);
        finished_(failures_ == 0 ? 0 : 1);
        return;
    }
    if (failed_.contains(entries_[current_].needs)) {
        report(QStringLiteral("not run, as “%1” failed").arg(entries_[current_].needs));
        return;
    }
    const int generation = ++generation_;
    limit_.start(entries_[current_].limit);
    entries_[current_].check([this, generation](const QString& failure) {
        if (generation != generation_) {
            return; // the check timed out before
        }
        // Reported from the event loop, so a check that answers at once does not
        // start the next one from inside itself.
        QTimer::singleShot(0, this, [this, generation, failure] {
            if (generation == generation_) {
                report(failure);
            }
        });
    });
}

void CheckRunner::report(const QString& failure) {
    ++generation_;
    limit_.stop();
    const QString& label = entries_[current_].label;
    const QString line = failure.isEmpty() ? QStringLiteral("ok %1").arg(label)
                                           : QStringLiteral("FAILED %1: %2").arg(label, failure);
    std::puts(line.toLocal8Bit().constData());
    std::fflush(stdout);
    failures_ += failure.isEmpty() ? 0 : 1;
    if (!failure.isEmpty()) {
        failed_ << label;
    }
    ++current_;
    runNext();
}

} // namespace lumenvale
