#pragma once

#include <QObject>
#include <initializer_list>
#include <vector>

class QSocketNotifier;

namespace lumenvale {

// Turns POSIX signals into a Qt signal on the GUI thread. The handler itself only
// writes the signal's number into a socket pair (async-signal-safe); a
// QSocketNotifier reads it in the event loop and emits `received`.
// One instance per process; it restores the default handlers when destroyed.
class SignalPipe : public QObject {
    Q_OBJECT

  public:
    // Installs handlers for `signalNumbers` (SIGINT, SIGTERM, SIGUSR1, ...). A failure
    // to create the socket pair stops the process: the command line cannot be
    // controlled without it.
    SignalPipe(std::initializer_list<int> signalNumbers, QObject* parent = nullptr);
    ~SignalPipe() override;

  signals:
    void received(int signalNumber);

  private:
    void drain();

    QSocketNotifier* notifier_ = nullptr;
    std::vector<int> signals_;
};

} // namespace lumenvale
