#include "cli/SignalPipe.h"

#include <QSocketNotifier>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace lumenvale {

namespace {

// [0] is written by the handler, [1] read by the notifier.
int pipeEnds[2] = {-1, -1};

extern "C" void writeSignalNumber(int signalNumber) {
    const int savedErrno = errno;
    const unsigned char byte = static_cast<unsigned char>(signalNumber);
    // A full pipe drops the signal; nothing else is safe to do here.
    [[maybe_unused]] const ssize_t written = ::write(pipeEnds[0], &byte, 1);
    errno = savedErrno;
}

} // namespace

SignalPipe::SignalPipe(std::initializer_list<int> signalNumbers, QObject* parent)
    : QObject(parent), signals_(signalNumbers) {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pipeEnds) != 0) {
        std::perror("lumenvale: cannot create the signal socket pair");
        std::abort();
    }
    notifier_ = new QSocketNotifier(pipeEnds[1], QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, &SignalPipe::drain);
    for (int signalNumber : signals_) {
        struct sigaction action {};
        action.sa_handler = writeSignalNumber;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        ::sigaction(signalNumber, &action, nullptr);
    }
}

SignalPipe::~SignalPipe() {
    for (int signalNumber : signals_) {
        ::signal(signalNumber, SIG_DFL);
    }
    delete notifier_;
    ::close(pipeEnds[0]);
    ::close(pipeEnds[1]);
    pipeEnds[0] = pipeEnds[1] = -1;
}

void SignalPipe::drain() {
    unsigned char bytes[64];
    for (;;) {
        const ssize_t count = ::read(pipeEnds[1], bytes, sizeof bytes);
        if (count <= 0) {
            return;
        }
        for (ssize_t i = 0; i < count; ++i) {
            emit received(bytes[i]);
        }
    }
}

} // namespace lumenvale
