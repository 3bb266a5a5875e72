// The recorder's phase machine driven end to end: the real capture of the session's
// display, the real sound server and part writer, and the saved movie checked by
// decoding it. Movies go to the APP_STORE folder that main.cpp sets up; parts to
// the run's own temporary folder. After it, what needs no capture: the actions' phase
// table, the options and the recorder without a UI.

#include "LumenvaleMedia/Recovery.h"
#include "Probe.h"
#include "base/PathText.h"
#include "base/Store.h"
#include "recorder/RecActionRun.h"
#include "recorder/RecorderUi.h"
#include "recorder/ScreenRecorder.h"

#include <QDir>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <array>
#include <gtest/gtest.h>
#include <map>

namespace lumenvale {
namespace {

using Phase = ScreenRecorder::Phase;

// Stands in for the graphical panels and records what the recorder asked of them.
// Its countdown never runs out by itself: a test ends it by hand.
class RecordingUi final : public RecorderUi {
  public:
    void openSelection(SelectionMode) override { ++selectionsOpened; }
    void closeSelection() override { ++selectionsClosed; }
    void runCountdown(const Screen& screen, std::function<void(bool)> done) override {
        countdownScreen = screen;
        countdownDone = std::move(done);
    }
    void cancelCountdown() override { ++countdownsCancelled; }
    void showBubble(const Rect&, std::function<void()> shown) override { shown(); }
    std::optional<std::uint32_t> visibleBubbleWindow() const override { return std::nullopt; }
    void showOutline(const Rect&) override {}
    void prepareControl(const Screen&, Backdrop) override { ++controlsPrepared; }
    void showControl() override { ++controlsShown; }
    void hidePanels() override { ++panelsHidden; }
    void showNotice(const QString& text) override { notices << text; }
    void showCard(const Recording& recording) override { cards.push_back(recording.path); }
    void screenPermissionRefused() override {}

    int selectionsOpened = 0, selectionsClosed = 0, countdownsCancelled = 0;
    int controlsPrepared = 0, controlsShown = 0, panelsHidden = 0;
    std::optional<Screen> countdownScreen;
    std::function<void(bool)> countdownDone;
    QStringList notices;
    std::vector<std::filesystem::path> cards;
};

std::vector<std::filesystem::path> filesIn(const std::filesystem::path& folder,
                                           const QString& pattern) {
    std::vector<std::filesystem::path> files;
    for (const QString& name : QDir(toQString(folder)).entryList({pattern}, QDir::Files)) {
        files.push_back(folder / toPath(name));
    }
    return files;
}

std::vector<std::filesystem::path> partFiles() {
    return filesIn(toPath(QDir::tempPath()), QStringLiteral("Lumenvale-*.mp4"));
}

class ScreenRecorderTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(Store::isOverridden());
        movies = *Store::testFolder();
        for (const auto& movie : filesIn(movies, QStringLiteral("*.mp4"))) {
            std::filesystem::remove(movie);
        }
        RecordingOptions options;
        options.countdown = false;
        options.systemAudio = true;
        options.microphone = false;
        options.fps = 30;
        recorder.setRunOptions(options);
        recorder.setUi(&ui);
        recorder.setFinishSound([this] { ++sounds; });
        connect();
    }

    void connect() {
        QObject::connect(&recorder, &ScreenRecorder::phaseChanged, &recorder,
                         [this](Phase phase) { phases.push_back(phase); });
        QObject::connect(
            &recorder, &ScreenRecorder::finishEnded, &recorder,
            [this](const std::optional<Recording>& recording) { finishes.push_back(recording); });
    }

    // Starts a screen recording and waits until the capture runs.
    void startScreen() {
        std::optional<bool> started;
        recorder.start(RecordKind::screen, std::nullopt, [&](bool value) { started = value; });
        ASSERT_TRUE(QTest::qWaitFor([&] { return started.has_value(); }, 10000));
        ASSERT_TRUE(*started) << ui.notices.join(QLatin1Char('\n')).toStdString();
        ASSERT_EQ(recorder.phase(), Phase::recording);
    }

    void waitForFinishEnded(std::size_t count = 1) {
        ASSERT_TRUE(QTest::qWaitFor([&] { return finishes.size() >= count; }, 60000));
    }

    ScreenRecorder recorder;
    RecordingUi ui;
    std::filesystem::path movies;
    int sounds = 0;
    std::vector<Phase> phases;
    std::vector<std::optional<Recording>> finishes;
};

TEST_F(ScreenRecorderTest, StopWhenIdleDoesNothingAndDuringTheCountdownLeavesNoMovie) {
    const std::int64_t session = recorder.session();
    recorder.stop();
    QTest::qWait(200);
    EXPECT_EQ(recorder.phase(), Phase::idle);
    EXPECT_EQ(recorder.session(), session);
    EXPECT_EQ(ui.panelsHidden, 0);

    RecordingOptions options = recorder.optionsInForce();
    options.countdown = true;
    recorder.setRunOptions(options);
    const std::size_t partsBefore = partFiles().size();

    std::optional<bool> started;
    recorder.start(RecordKind::screen, std::nullopt, [&](bool value) { started = value; });
    ASSERT_EQ(recorder.phase(), Phase::countdown);
    ASSERT_TRUE(ui.countdownScreen.has_value());
    EXPECT_EQ(ui.controlsPrepared, 1);

    recorder.stop();
    EXPECT_EQ(recorder.phase(), Phase::idle);
    EXPECT_EQ(ui.countdownsCancelled, 1);
    EXPECT_GE(ui.panelsHidden, 1);
    // A countdown that ends after the stop starts nothing.
    ASSERT_TRUE(ui.countdownDone);
    ui.countdownDone(true);
    QTest::qWait(300);
    EXPECT_EQ(started, std::optional<bool>(false));
    EXPECT_EQ(recorder.phase(), Phase::idle);
    EXPECT_EQ(ui.controlsShown, 0);
    EXPECT_TRUE(ui.notices.isEmpty());
    EXPECT_TRUE(finishes.empty());
    EXPECT_EQ(partFiles().size(), partsBefore);
    EXPECT_TRUE(filesIn(movies, QStringLiteral("*")).empty());
    EXPECT_EQ(phases, (std::vector<Phase>{Phase::countdown, Phase::idle}));
}

TEST_F(ScreenRecorderTest, PausingAndResumingTwiceJoinsThreePartsIntoOneMovie) {
    const std::size_t partsBefore = partFiles().size();
    ASSERT_NO_FATAL_FAILURE(startScreen());
    constexpr int stretchMs = 900;
    QTest::qWait(stretchMs);
    for (int pause = 0; pause < 2; ++pause) {
        recorder.pause();
        ASSERT_EQ(recorder.phase(), Phase::paused);
        const double frozen = recorder.elapsedSeconds();
        QTest::qWait(500);
        EXPECT_EQ(recorder.elapsedSeconds(), frozen) << "the time stands still while paused";
        recorder.resume();
        ASSERT_EQ(recorder.phase(), Phase::recording);
        QTest::qWait(stretchMs);
    }
    recorder.stop();
    EXPECT_EQ(recorder.phase(), Phase::finishing);
    ASSERT_NO_FATAL_FAILURE(waitForFinishEnded());
    EXPECT_EQ(recorder.phase(), Phase::idle);

    ASSERT_TRUE(finishes.front().has_value()) << ui.notices.join(QLatin1Char('\n')).toStdString();
    const Recording& recording = *finishes.front();
    ASSERT_EQ(recording.partDurations.size(), 3u);
    double sum = 0;
    for (double part : recording.partDurations) {
        EXPECT_NEAR(part, stretchMs / 1000.0, 0.35);
        sum += part;
    }
    EXPECT_NEAR(recording.durationSeconds, sum, 1.0 / 30 + 0.01);
    EXPECT_NEAR(recorder.accumulatedSeconds(), 3 * stretchMs / 1000.0, 0.35);

    // The movie in the save folder, as a decoder sees it.
    EXPECT_EQ(recording.path.parent_path(), movies);
    EXPECT_EQ(filesIn(movies, QStringLiteral("*.mp4")), std::vector{recording.path});
    const testing::MovieInfo info = testing::probe(recording.path);
    ASSERT_EQ(info.ofType("video").size(), 1u);
    EXPECT_EQ(info.ofType("video").front().width, 1920);
    EXPECT_EQ(info.ofType("video").front().height, 1080);
    EXPECT_NEAR(info.durationSeconds, sum, 0.1);
    ASSERT_EQ(info.ofType("audio").size(), 1u);
    EXPECT_NEAR(info.ofType("audio").front().durationSeconds,
                info.ofType("video").front().durationSeconds, 1024.0 / 48000 + 0.001);

    ASSERT_TRUE(recorder.last().has_value());
    EXPECT_EQ(recorder.last()->path, recording.path);
    EXPECT_EQ(ui.cards, std::vector{recording.path});
    EXPECT_EQ(sounds, 1);
    EXPECT_EQ(partFiles().size(), partsBefore) << "every part was joined and removed";
    EXPECT_EQ(phases,
              (std::vector<Phase>{Phase::recording, Phase::paused, Phase::recording, Phase::paused,
                                  Phase::recording, Phase::finishing, Phase::idle}));
}

// Recovery running meanwhile, as a second Lumenvale starting up does, takes nothing of
// a live recording: not the part a resume finished while the new part has no fragment
// yet, and not the parts the finish is saving.
TEST_F(ScreenRecorderTest, RecoveryMeanwhileTakesNothingOfARecordingOrItsSave) {
    const std::filesystem::path parts = toPath(QDir::tempPath());
    std::size_t found = 0;
    const auto recoverWhile = [&](const std::function<bool()>& done, int milliseconds) {
        return QTest::qWaitFor(
            [&] {
                found += Recovery::find(parts).recordings.size();
                return done();
            },
            milliseconds);
    };
    ASSERT_NO_FATAL_FAILURE(startScreen());
    QTest::qWait(1200);
    recorder.pause();
    QTest::qWait(300);
    recorder.resume();
    recoverWhile([] { return false; }, 900);
    recorder.stop();
    ASSERT_TRUE(recoverWhile([&] { return !finishes.empty(); }, 60000));

    EXPECT_EQ(found, 0u) << "recovery found parts of the live recording";
    ASSERT_EQ(finishes.size(), 1u);
    ASSERT_TRUE(finishes.front().has_value()) << ui.notices.join(QLatin1Char('\n')).toStdString();
    EXPECT_EQ(finishes.front()->partDurations.size(), 2u);
    EXPECT_TRUE(partFiles().empty());
}

TEST_F(ScreenRecorderTest, AWindowThatIsGoneFailsTheStartWithItsMessage) {
    std::optional<bool> started;
    const Selection gone{Rect{0, 0, 300, 200}, 0x7ffffff0u};
    recorder.start(RecordKind::window, gone, [&](bool value) { started = value; });
    ASSERT_TRUE(QTest::qWaitFor([&] { return started.has_value(); }, 5000));
    EXPECT_FALSE(*started);
    EXPECT_EQ(recorder.phase(), Phase::idle);
    EXPECT_EQ(ui.notices,
              QStringList{QStringLiteral("Couldn’t start recording. The window closed.")});
    EXPECT_GE(ui.panelsHidden, 1);
    EXPECT_TRUE(finishes.empty());
}

// What an action (a shortcut, `lumenvale screen`) does in each phase: a record action
// starts its kind from idle, is ignored while the picker or the countdown is up and
// stops a recording; stop ends whatever runs, and is ignored while the movie is saved.
TEST_F(ScreenRecorderTest, ActionsStartFromIdleAreIgnoredWhileStartingAndStopARecording) {
    RecordingOptions options = recorder.optionsInForce();
    options.countdown = true;
    recorder.setRunOptions(options);

    runAction(RecAction::area, recorder);
    ASSERT_TRUE(QTest::qWaitFor([&] { return recorder.phase() == Phase::selecting; }, 2000));
    runAction(RecAction::screen, recorder);
    QTest::qWait(100);
    EXPECT_EQ(recorder.phase(), Phase::selecting);
    EXPECT_EQ(ui.selectionsClosed, 0);
    runAction(RecAction::stop, recorder);
    EXPECT_EQ(recorder.phase(), Phase::idle);

    runAction(RecAction::screen, recorder);
    ASSERT_TRUE(QTest::qWaitFor([&] { return recorder.phase() == Phase::countdown; }, 2000));
    runAction(RecAction::window, recorder);
    QTest::qWait(100);
    EXPECT_EQ(recorder.phase(), Phase::countdown);
    EXPECT_EQ(ui.countdownsCancelled, 0);
    ui.countdownDone(true);
    ASSERT_TRUE(QTest::qWaitFor([&] { return recorder.phase() == Phase::recording; }, 10000))
        << ui.notices.join(QLatin1Char('\n')).toStdString();
    QTest::qWait(700);
    const std::int64_t session = recorder.session();
    runAction(RecAction::window, recorder);
    EXPECT_EQ(recorder.phase(), Phase::finishing);
    EXPECT_EQ(recorder.session(), session + 1);
    // Stops while the movie is saved are ignored: one finish, one movie, one card.
    runAction(RecAction::stop, recorder);
    QTest::qWait(50);
    recorder.stop();
    EXPECT_EQ(recorder.session(), session + 1);
    ASSERT_NO_FATAL_FAILURE(waitForFinishEnded());
    QTest::qWait(500); // room for a second finish, should one have started
    ASSERT_EQ(finishes.size(), 1u);
    ASSERT_TRUE(finishes.front().has_value()) << ui.notices.join(QLatin1Char('\n')).toStdString();
    EXPECT_EQ(filesIn(movies, QStringLiteral("*.mp4")).size(), 1u);
    EXPECT_EQ(ui.cards.size(), 1u);
    EXPECT_EQ(sounds, 1);
    EXPECT_EQ(recorder.phase(), Phase::idle);
    EXPECT_EQ(ui.selectionsOpened, 1);
}

// The finish waits, keyed by a part's path; no media is involved.
TEST(ScreenRecorderWaits, AReportBeforeTheWaitEndsItAtOnceAndAMissingOneAfterFiveSeconds) {
    ScreenRecorder recorder;
    const std::filesystem::path early = "/nonexistent/Lumenvale-early.mp4";
    const std::filesystem::path silent = "/nonexistent/Lumenvale-silent.mp4";
    const std::filesystem::path late = "/nonexistent/Lumenvale-late.mp4";

    int earlyCalls = 0;
    recorder.outputDidFinish(early);
    recorder.waitForFinish(early, [&] { ++earlyCalls; });
    EXPECT_EQ(earlyCalls, 1) << "the report came first: the wait returns at once";

    QElapsedTimer clock;
    clock.start();
    int silentCalls = 0, lateCalls = 0;
    qint64 silentEndedMs = -1, lateEndedMs = -1;
    recorder.waitForFinish(silent, [&] {
        ++silentCalls;
        silentEndedMs = clock.elapsed();
    });
    recorder.waitForFinish(late, [&] {
        ++lateCalls;
        lateEndedMs = clock.elapsed();
    });
    QTimer::singleShot(300, &recorder, [&] { recorder.outputDidFinish(late); });
    EXPECT_EQ(silentCalls + lateCalls, 0);

    ASSERT_TRUE(QTest::qWaitFor([&] { return silentCalls > 0; }, 8000));
    EXPECT_GE(silentEndedMs, 5000);
    EXPECT_LT(silentEndedMs, 5600);
    EXPECT_GE(lateEndedMs, 300);
    EXPECT_LT(lateEndedMs, 1500);

    // A report after the wait gave up, and the late wait's own timer, call nothing again.
    recorder.outputDidFinish(silent);
    QTest::qWait(300);
    EXPECT_EQ(silentCalls, 1);
    EXPECT_EQ(lateCalls, 1);
    EXPECT_EQ(earlyCalls, 1);
}

// The whole table of the actions above, also for the phases the recorder is not driven to.
TEST(RecActionRun, EachActionInEachPhase) {
    using R = ActionResponse;
    const std::map<RecAction, std::array<R, 6>> expected{
        // idle, selecting, countdown, recording, paused, finishing
        {RecAction::screen, {R::start, R::ignore, R::ignore, R::stop, R::stop, R::ignore}},
        {RecAction::area, {R::start, R::ignore, R::ignore, R::stop, R::stop, R::ignore}},
        {RecAction::window, {R::start, R::ignore, R::ignore, R::stop, R::stop, R::ignore}},
        {RecAction::stop, {R::stop, R::stop, R::stop, R::stop, R::stop, R::stop}},
    };
    for (const auto& [action, responses] : expected) {
        for (int phase = 0; phase < 6; ++phase) {
            EXPECT_EQ(respond(action, Phase(phase)), responses[std::size_t(phase)])
                << rawValue(action) << " " << phase;
        }
    }
}

// Every assignment of options is saved to the store; options for one run never are.
TEST(StoreOptions, RecorderSavesEveryAssignmentAndNotifiesOnlyChanges) {
    ScreenRecorder recorder;
    QSignalSpy changes(&recorder, &ScreenRecorder::optionsChanged);
    RecordingOptions options = recorder.options();
    options.fps = options.fps == 24 ? 25 : 24;
    recorder.setOptions(options);
    recorder.setOptions(options);
    EXPECT_EQ(changes.count(), 1);
    EXPECT_EQ(Store::loadOptions(), options);
    EXPECT_EQ(ScreenRecorder().options(), options); // a new recorder starts from the store

    RecordingOptions thisRun = options;
    thisRun.fps = 7;
    recorder.setRunOptions(thisRun);
    EXPECT_EQ(recorder.optionsInForce(), thisRun);
    EXPECT_EQ(recorder.options(), options);
    EXPECT_EQ(Store::loadOptions(), options);
    EXPECT_EQ(changes.count(), 1);
}

// A recorder without a UI of its own (headless runs) shows nothing and never waits for
// one: a selection is cancelled and a countdown runs out before start() answers.
TEST(ScreenRecorderWithoutUi, CancelsTheSelectionAndRunsOutTheCountdownAtOnce) {
    ScreenRecorder recorder;
    recorder.setUi(nullptr);
    std::vector<Phase> phases;
    QStringList notices;
    QObject::connect(&recorder, &ScreenRecorder::phaseChanged,
                     [&](Phase phase) { phases.push_back(phase); });
    QObject::connect(&recorder, &ScreenRecorder::noticeShown,
                     [&](const QString& text) { notices << text; });

    std::optional<bool> areaStarted;
    recorder.start(RecordKind::area, std::nullopt, [&](bool started) { areaStarted = started; });
    EXPECT_EQ(areaStarted, false);
    EXPECT_EQ(phases, (std::vector{Phase::selecting, Phase::idle}));

    // The countdown ends at once, so the start goes on to look for the window: gone.
    RecordingOptions options;
    options.countdown = true;
    options.microphone = false;
    options.camera = false;
    recorder.setRunOptions(options);
    phases.clear();
    std::optional<bool> windowStarted;
    recorder.start(RecordKind::window, Selection{Rect{0, 0, 300, 200}, 0x7ffffff0u},
                   [&](bool started) { windowStarted = started; });
    EXPECT_EQ(windowStarted, false);
    EXPECT_EQ(phases, (std::vector{Phase::countdown, Phase::idle}));
    EXPECT_EQ(notices, QStringList{QStringLiteral("Couldn’t start recording. The window closed.")});
}

} // namespace
} // namespace lumenvale
