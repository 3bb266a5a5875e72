#include "cli/RecordCommand.h"

#include "base/PathText.h"
#include "base/SaveFolder.h"
#include "cli/CommandOutput.h"
#include "cli/RecordArguments.h"
#include "cli/SignalPipe.h"
#include "cli/TerminalUi.h"
#include "cli/Usage.h"
#include "desktop/Desktop.h"
#include "desktop/Screens.h"
#include "recorder/ScreenRecorder.h"
#include "recorder/StartupRecovery.h"

#include <QCoreApplication>
#include <QTimer>
#include <csignal>
#include <cstdio>
#include <optional>

namespace lumenvale {

namespace {

int exitCode(RecordStatus status) {
    return static_cast<int>(status);
}

// What keeps the window the command names (none: "pick") from being recorded, as a
// sentence; nothing when it is an application window (or when there is no display:
// the start says so), or when the desktop's dialog is to pick it.
std::optional<QString> windowProblem(std::optional<std::uint32_t> id) {
    const bool desktopPicks = Desktop::windowPicking() == Desktop::WindowPicking::desktopDialog;
    if (desktopPicks != !id) {
        return desktopPicks ? QStringLiteral("On Wayland the desktop’s dialog picks the window: "
                                             "use --window pick.")
                            : QStringLiteral("Name the window to record by its X11 id (xdotool "
                                             "and xwininfo show it).");
    }
    if (!id) {
        return std::nullopt;
    }
    const std::uint32_t windowID = *id;
    const QString name = QStringLiteral("0x%1").arg(windowID, 0, 16);
    switch (Screens::windowKind(windowID)) {
    case Screens::WindowKind::application:
    case Screens::WindowKind::unknown:
        return std::nullopt;
    case Screens::WindowKind::root:
        return QStringLiteral("%1 is the root window, the whole desktop: record it with --screen.")
            .arg(name);
    case Screens::WindowKind::other:
        return QStringLiteral("Window %1 is not an application’s top-level window.").arg(name);
    case Screens::WindowKind::missing:
        return QStringLiteral("There is no window %1.").arg(name);
    }
    return std::nullopt;
}

// One run of the command, from recovery to the saved movie.
class RecordRun : public QObject {
  public:
    RecordRun(ScreenRecorder& recorder, RecordRequest request)
        : recorder_(recorder), request_(std::move(request)), ui_(recorder),
          signals_({SIGINT, SIGTERM, SIGUSR1}) {
        recorder_.setRunOptions(applyFlags(recorder_.options(), request_),
                                request_.folder ? SaveFolder::FolderOrigin::commandLine
                                                : SaveFolder::FolderOrigin::settings);
        recorder_.setUi(&ui_);
        limit_.setSingleShot(true);
        limit_.setTimerType(Qt::PreciseTimer);
        connect(&limit_, &QTimer::timeout, this, [this] { checkLimit(); });
        connect(&signals_, &SignalPipe::received, this, [this](int number) { onSignal(number); });
        connect(&recorder_, &ScreenRecorder::phaseChanged, this, [this] { armLimit(); });
        connect(&recorder_, &ScreenRecorder::stoppedByItself, this, [this] { endedEarly_ = true; });
        connect(&recorder_, &ScreenRecorder::finishEnded, this,
                [this](const std::optional<Recording>& recording) { onFinished(recording); });
    }

    ~RecordRun() override { recorder_.setUi(nullptr); }

    int exec() {
        StartupRecovery::run(recorder_.saveFolder(), this,
                             [this](const StartupRecovery::Report& report) {
                                 for (const QString& notice : report.notices) {
                                     ui_.showNotice(notice);
                                 }
                                 begin();
                             });
        return QCoreApplication::exec();
    }

  private:
    void begin() {
        if (cancelled_) {
            end(RecordStatus::failed, QStringLiteral("Recording cancelled.\n"));
            return;
        }
        if (request_.showClicks && Desktop::globalClicks() == Desktop::GlobalClicks::unseen) {
            ui_.showNotice(QStringLiteral("Recording without click rings: Wayland doesn’t let "
                                          "applications see clicks in other windows."));
        }
        std::optional<Selection> selection;
        if (request_.kind == RecordKind::area) {
            selection = Selection{Screens::fromTopLeft(*request_.areaTopLeft), std::nullopt};
        } else if (request_.kind == RecordKind::window) {
            // Without an id the recorder has the desktop's dialog pick the window.
            if (const std::optional<QString> problem = windowProblem(request_.windowID)) {
                end(RecordStatus::failed,
                    QStringLiteral("Couldn’t start recording. ") + *problem + QLatin1Char('\n'));
                return;
            }
            if (request_.windowID) {
                // A window that closes from here on has no frame; the start then fails
                // with "The window closed." when it looks for the window.
                const std::optional<Rect> frame = Screens::windowFrame(*request_.windowID);
                const std::optional<Screen> screen = Screens::withMouse();
                selection = Selection{frame ? *frame : (screen ? screen->frame : Rect{}),
                                      request_.windowID};
            }
        }
        recorder_.start(request_.kind, selection, [this](bool started) {
            if (!started) {
                end(RecordStatus::failed,
                    cancelled_ ? QStringLiteral("Recording cancelled.\n") : QString());
            }
        });
    }

    void onSignal(int number) {
        if (number == SIGUSR1) {
            if (recorder_.phase() == ScreenRecorder::Phase::recording) {
                recorder_.pause();
            } else if (recorder_.phase() == ScreenRecorder::Phase::paused) {
                recorder_.resume();
            }
            return;
        }
        // SIGINT, SIGTERM: stop and save; before the capture runs, cancel.
        const ScreenRecorder::Phase phase = recorder_.phase();
        if (phase != ScreenRecorder::Phase::recording && phase != ScreenRecorder::Phase::paused &&
            phase != ScreenRecorder::Phase::finishing) {
            cancelled_ = true;
        }
        recorder_.stop();
    }

    // Stops the recording once its recorded time reaches --seconds; a pause holds the
    // time still, so the limit is armed again on every return to recording.
    void armLimit() {
        if (!request_.seconds || recorder_.phase() != ScreenRecorder::Phase::recording) {
            limit_.stop();
            return;
        }
        const double left = *request_.seconds - recorder_.elapsedSeconds();
        limit_.start(std::max(0, static_cast<int>(left * 1000.0 + 0.5)));
    }

    void checkLimit() {
        if (recorder_.phase() != ScreenRecorder::Phase::recording) {
            return;
        }
        if (recorder_.elapsedSeconds() + 0.0005 >= *request_.seconds) {
            recorder_.stop();
        } else {
            armLimit();
        }
    }

    // The notices already said why a save failed or the recording ended early.
    void onFinished(const std::optional<Recording>& recording) {
        if (!recording) {
            end(RecordStatus::failed, QString());
            return;
        }
        // The path as the file system has it, byte for byte.
        std::fputs((recording->path.native() + '\n').c_str(), stdout);
        std::fflush(stdout);
        end(endedEarly_ ? RecordStatus::endedEarly : RecordStatus::saved, QString());
    }

    void end(RecordStatus status, const QString& error) {
        if (!error.isEmpty()) {
            printError(error);
        }
        QCoreApplication::exit(exitCode(status));
    }

    ScreenRecorder& recorder_;
    RecordRequest request_;
    TerminalUi ui_;
    SignalPipe signals_;
    QTimer limit_;
    bool cancelled_ = false;
    bool endedEarly_ = false;
};

} // namespace

int runRecord(const std::vector<std::string>& arguments) {
    const RecordParse parsed = parseRecordArguments(arguments);
    if (std::holds_alternative<HelpRequested>(parsed)) {
        printTo(stdout, Usage::record());
        return 0;
    }
    if (const QString* problem = std::get_if<QString>(&parsed)) {
        printError(QStringLiteral("lumenvale record: ") + *problem + QStringLiteral("\n\n") +
                   Usage::record());
        return exitCode(RecordStatus::usage);
    }
    RecordRun run(ScreenRecorder::shared(), std::get<RecordRequest>(parsed));
    return run.exec();
}

} // namespace lumenvale
