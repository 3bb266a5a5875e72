#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <chrono>
#include <functional>
#include <vector>

namespace lumenvale {

// Runs labelled checks one after another on the event loop and prints one line for
// each on standard output: "ok <label>" or "FAILED <label>: <why>". A check is handed
// a `Done` to call once, later or at once, with nothing (passed) or the reason it
// failed; a check that has not called it within its time limit fails with "no answer
// within N s". A check that needs an earlier one is not run when that one failed, and
// fails saying so. When the last check has reported, `finished` gets the exit status: 0
// when every check passed, 1 otherwise.
//
// Threads: the GUI thread.
class CheckRunner : public QObject {
  public:
    using Done = std::function<void(const QString& failure)>;
    using Check = std::function<void(Done done)>;

    explicit CheckRunner(std::function<void(int status)> finished, QObject* parent = nullptr);

    // `needs`: the label of an earlier check that must have passed; empty for none.
    void add(QString label, Check check, QString needs = {},
             std::chrono::milliseconds limit = std::chrono::seconds(20));
    // Starts the first check from the event loop.
    void start();

  private:
    struct Entry {
        QString label;
        Check check;
        QString needs;
        std::chrono::milliseconds limit;
    };

    void runNext();
    void report(const QString& failure);

    std::function<void(int)> finished_;
    std::vector<Entry> entries_;
    std::size_t current_ = 0;
    int failures_ = 0;
    QStringList failed_;
    // Raised for each check, so a late answer of a check that timed out is dropped.
    int generation_ = 0;
    QTimer limit_;
};

} // namespace lumenvale
