#include "cli/TerminalUi.h"

#include "cli/CommandOutput.h"
#include "desktop/Screens.h"
#include "recorder/ScreenRecorder.h"

#include <cstdio>

namespace lumenvale {

namespace {

constexpr int countdownSeconds = 3;

} // namespace

TerminalUi::TerminalUi(ScreenRecorder& recorder, QObject* parent)
    : QObject(parent), recorder_(recorder) {
    countdownTimer_.setInterval(1000);
    countdownTimer_.setTimerType(Qt::PreciseTimer);
    connect(&countdownTimer_, &QTimer::timeout, this, &TerminalUi::tick);
}

void TerminalUi::openSelection(SelectionMode) {
    // A terminal has no overlay to pick with: the flags give the selection.
    QTimer::singleShot(0, &recorder_, [this] { recorder_.selectionCancelled(); });
}

void TerminalUi::runCountdown(const Screen&, std::function<void(bool)> done) {
    countdownDone_ = std::move(done);
    countdownLeft_ = countdownSeconds;
    printTo(stderr, QStringLiteral("%1… ").arg(countdownLeft_));
    countdownTimer_.start();
}

void TerminalUi::tick() {
    --countdownLeft_;
    if (countdownLeft_ > 0) {
        printTo(stderr, QStringLiteral("%1… ").arg(countdownLeft_));
        return;
    }
    countdownTimer_.stop();
    printError(QStringLiteral("\n"));
    if (auto done = std::move(countdownDone_)) {
        countdownDone_ = nullptr;
        done(true);
    }
}

void TerminalUi::cancelCountdown() {
    if (countdownTimer_.isActive()) {
        countdownTimer_.stop();
        printError(QStringLiteral("\n"));
    }
    if (auto done = std::move(countdownDone_)) {
        countdownDone_ = nullptr;
        done(false);
    }
}

void TerminalUi::showBubble(const Rect&, std::function<void()> shown) {
    shown();
}

void TerminalUi::showControl() {
    printError(QStringLiteral("Recording. SIGUSR1 pauses and resumes; Ctrl+C stops and saves.\n"));
}

void TerminalUi::hidePanels() {
    countdownTimer_.stop();
}

void TerminalUi::showNotice(const QString& text) {
    printError(text + QLatin1Char('\n'));
}

void TerminalUi::screenPermissionRefused() {
    // No display at all, or one without the extensions: the sentence says which.
    const std::optional<std::string> problem = Screens::captureProblem();
    printError(QStringLiteral("Couldn’t start recording. ") +
               (problem ? QString::fromStdString(*problem)
                        : QStringLiteral("The screen can’t be captured here.")) +
               QLatin1Char('\n'));
}

} // namespace lumenvale
