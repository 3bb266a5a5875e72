#include "gui/selftest/SelfTest.h"

#include "LumenvaleMedia/EditRenderer.h"
#include "base/PathText.h"
#include "base/Store.h"
#include "desktop/FeedServer.h"
#include "desktop/Updates.h"
#include "editor/MovieFacts.h"
#include "editor/WorkerTask.h"
#include "gui/app/AppDelegate.h"
#include "gui/selftest/CheckRunner.h"
#include "hotkeys/HotkeyCenter.h"
#include "hotkeys/ShortcutRecorder.h"
#include "recorder/ScreenRecorder.h"

#include <QSettings>
#include <QTimer>
#include <cmath>
#include <memory>

namespace lumenvale::SelfTest {

namespace {

using Done = CheckRunner::Done;
using Phase = RecorderPhase::Phase;
using namespace std::chrono_literals;

// Calls `then` from the event loop once `condition` holds, asking every 50 ms.
void whenTrue(QObject* context, std::function<bool()> condition, std::function<void()> then) {
    auto* poll = new QTimer(context);
    poll->setInterval(50);
    QObject::connect(poll, &QTimer::timeout, context, [poll, condition, then] {
        if (condition()) {
            poll->deleteLater();
            poll->stop();
            then();
        }
    });
    poll->start();
}

// The rows the menu must show, top to bottom (dividers left out), with the rows that
// may be chosen.
struct MenuExpectation {
    QStringList rows;
    QStringList enabled;
};

const QStringList idleRows{QStringLiteral("recordScreen"),  QStringLiteral("recordArea"),
                           QStringLiteral("recordWindow"),  QStringLiteral("editLast"),
                           QStringLiteral("openRecording"), QStringLiteral("checkForUpdates"),
                           QStringLiteral("about"),         QStringLiteral("settings"),
                           QStringLiteral("quit")};

QString compareMenu(const MenuModel& menu, const MenuExpectation& expected) {
    QStringList rows;
    QStringList enabled;
    for (const QVariant& line : menu.lines()) {
        const QVariantMap map = line.toMap();
        if (map.contains(QStringLiteral("row"))) {
            rows << map.value(QStringLiteral("row")).toString();
            if (map.value(QStringLiteral("enabled")).toBool()) {
                enabled << rows.last();
            }
        }
    }
    if (rows != expected.rows) {
        return QStringLiteral("the rows are %1, expected %2")
            .arg(rows.join(QLatin1Char(' ')), expected.rows.join(QLatin1Char(' ')));
    }
    for (const QString& row : expected.enabled) {
        if (!enabled.contains(row)) {
            return QStringLiteral("“%1” cannot be chosen").arg(row);
        }
    }
    for (const QString& row : enabled) {
        if (!expected.enabled.contains(row)) {
            return QStringLiteral("“%1” can be chosen but should not").arg(row);
        }
    }
    return {};
}

MenuExpectation whileRecording() {
    MenuExpectation expected{QStringList{QStringLiteral("stop")} + idleRows, {}};
    for (const QString& row : expected.rows) {
        if (!row.startsWith(QLatin1String("record")) && row != QLatin1String("editLast") &&
            row != QLatin1String("checkForUpdates")) {
            expected.enabled << row;
        }
    }
    return expected;
}

// The checks and what they share.
class Checks : public QObject {
  public:
    Checks(AppDelegate& delegate, std::function<void(int)> finished)
        : delegate_(delegate), recorder_(ScreenRecorder::shared()),
          runner_(std::move(finished), this), savedOptions_(recorder_.options()) {
        // Recordings start at once, whatever the user's countdown setting.
        RecordingOptions options = recorder_.options();
        options.countdown = false;
        recorder_.setRunOptions(options);
    }

    void start() {
        addMenuAndRecordingChecks();
        addSettingsCheck();
        addShortcutCheck();
        addUpdateCheck();
        runner_.start();
    }

  private:
    void addMenuAndRecordingChecks() {
        runner_.add(QStringLiteral("menu rows while idle"), [this](const Done& done) {
            MenuExpectation expected{idleRows, idleRows};
            expected.enabled.removeAll(QStringLiteral("checkForUpdates"));
            if (!recorder_.last()) {
                expected.enabled.removeAll(QStringLiteral("editLast"));
            }
            // Whether a check may start is the updater's business, not the menu's.
            if (Updates::shared().canCheck()) {
                expected.enabled << QStringLiteral("checkForUpdates");
            }
            done(compareMenu(delegate_.menu(), expected));
        });
        const QString recording = QStringLiteral("record the screen");
        const QString saved = QStringLiteral("stop and save");
        runner_.add(recording, [this](const Done& done) {
            recorder_.record(RecordKind::screen);
            whenPhase(Phase::recording, done);
        });
        runner_.add(
            QStringLiteral("menu rows while recording"),
            [this](const Done& done) { done(compareRecordingMenu(QStringLiteral("Recording"))); },
            recording);
        runner_.add(
            QStringLiteral("pause after two seconds"),
            [this](const Done& done) {
                QTimer::singleShot(2s, this, [this, done] {
                    recorder_.pause();
                    whenPhase(Phase::paused, done);
                });
            },
            recording);
        runner_.add(
            QStringLiteral("menu rows while paused"),
            [this](const Done& done) { done(compareRecordingMenu(QStringLiteral("Paused"))); },
            recording);
        runner_.add(
            QStringLiteral("resume and record one more second"),
            [this](const Done& done) {
                QTimer::singleShot(500ms, this, [this, done] {
                    recorder_.resume();
                    whenPhase(Phase::recording, [this, done](const QString& failure) {
                        QTimer::singleShot(1s, this, [done, failure] { done(failure); });
                    });
                });
            },
            recording);
        runner_.add(
            saved, [this](const Done& done) { stopAndSave(done); }, recording, 60s);
        runner_.add(
            QStringLiteral("the movie is in the APP_STORE folder and decodes at its length"),
            [this](const Done& done) { checkMovie(3.0, done); }, saved, 60s);
    }

    void addSettingsCheck() {
        runner_.add(QStringLiteral("settings stored and read back"), [this](const Done& done) {
            RecordingOptions changed = savedOptions_;
            changed.fps = savedOptions_.fps == 24 ? 60 : 24;
            changed.microphoneID = "self-test microphone";
            recorder_.setOptions(changed);
            const QSettings file(Store::defaults().fileName(), QSettings::IniFormat);
            const QByteArray stored = file.value(QLatin1String(Store::optionsKey)).toByteArray();
            const Result<RecordingOptions> read = decodeRecordingOptions(
                std::string_view(stored.constData(), static_cast<std::size_t>(stored.size())));
            recorder_.setOptions(savedOptions_);
            if (!read) {
                done(QStringLiteral("the stored options do not read back: %1")
                         .arg(QString::fromStdString(read.error())));
            } else if (!(*read == changed)) {
                done(QStringLiteral("the options read back differ from those stored"));
            } else {
                done(Store::problem());
            }
        });
    }

    void addShortcutCheck() {
        const QString shortcutSet = QStringLiteral("a shortcut set in its field");
        runner_.add(shortcutSet, [this](const Done& done) {
            HotkeyCenter& hotkeys = HotkeyCenter::shared();
            savedShortcut_ = hotkeys.combos().count(RecAction::screen) != 0
                                 ? std::optional(hotkeys.combos().at(RecAction::screen))
                                 : std::nullopt;
            field_ = std::make_unique<ShortcutRecorder>(RecAction::screen, hotkeys);
            field_->toggle();
            // Ctrl+Alt+Shift and the key of R, as Qt reports a press (X key code 27).
            field_->recordKeyEvent(27, Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier);
            if (field_->recording() || hotkeys.combos().count(RecAction::screen) == 0) {
                done(QStringLiteral("the field did not take Ctrl+Alt+Shift+R: %1")
                         .arg(field_->caption()));
            } else if (hotkeys.inUse().count(RecAction::screen) != 0) {
                done(QStringLiteral("Ctrl+Alt+Shift+R is in use by another application"));
            } else if (!Store::defaults().contains(QStringLiteral("hotkey.screen"))) {
                done(QStringLiteral("the shortcut was not stored"));
            } else {
                done({});
            }
        });
        runner_.add(
            QStringLiteral("the shortcut pressed records, pressed again stops"),
            [this](const Done& done) {
                if (!HotkeyCenter::shared().press(RecAction::screen)) {
                    done(QStringLiteral("this desktop cannot press keys"));
                    return;
                }
                whenPhase(Phase::recording, [this, done](const QString& failure) {
                    if (!failure.isEmpty()) {
                        done(failure);
                        return;
                    }
                    QTimer::singleShot(1s, this, [this, done] {
                        const std::filesystem::path before = lastMovie();
                        HotkeyCenter::shared().press(RecAction::screen);
                        whenTrue(
                            this, [this, before] { return lastMovie() != before; },
                            [this, done] { checkMovie(1.0, done); });
                    });
                });
            },
            shortcutSet, 60s);
        runner_.add(QStringLiteral("the shortcut cleared"), [this](const Done& done) {
            HotkeyCenter::shared().set(savedShortcut_, RecAction::screen);
            field_.reset();
            done({});
        });
    }

    void addUpdateCheck() {
        runner_.add(QStringLiteral("check for updates against a served feed"),
                    [this](const Done& done) {
                        feed_ = std::make_unique<FeedServer>();
                        feed_->serve(FeedServer::appcast(FeedServer::item("999.0")));
                        const QString page = QString::fromUtf8(FeedServer::downloadPage("999.0"));
                        qputenv("LUMENVALE_UPDATE_HOST", feed_->host());
                        Updates& updates = Updates::shared();
                        updates.start();
                        connect(&updates, &Updates::checkedByHand, this,
                                [done, page](const QString& text, const QUrl& downloadPage) {
                                    if (!text.contains(QLatin1String("999.0"))) {
                                        done(QStringLiteral("the check said “%1”").arg(text));
                                    } else if (downloadPage.toString() != page) {
                                        done(QStringLiteral("the download page is %1")
                                                 .arg(downloadPage.toString()));
                                    } else {
                                        done({});
                                    }
                                });
                        whenTrue(
                            this, [&updates] { return updates.canCheck(); },
                            [&updates] { updates.checkByHand(); });
                    });
    }

    // The menu of a recording or a pause: Stop first, no record rows to choose, and the
    // header's text beginning with `header`.
    QString compareRecordingMenu(const QString& header) const {
        const QString failure = compareMenu(delegate_.menu(), whileRecording());
        if (failure.isEmpty() && !delegate_.menu().headerText().startsWith(header)) {
            return QStringLiteral("the header says “%1”").arg(delegate_.menu().headerText());
        }
        return failure;
    }

    // Reports once the recorder is in `phase`, or why it will not get there.
    void whenPhase(Phase phase, const Done& done) {
        auto stopped = std::make_shared<QString>();
        auto connection = std::make_shared<QMetaObject::Connection>();
        *connection = connect(&recorder_, &ScreenRecorder::noticeShown, this,
                              [stopped](const QString& text) { *stopped = text; });
        whenTrue(
            this,
            [this, phase, stopped] { return recorder_.phase() == phase || !stopped->isEmpty(); },
            [this, phase, stopped, connection, done] {
                disconnect(*connection);
                done(recorder_.phase() == phase ? QString() : *stopped);
            });
    }

    void stopAndSave(const Done& done) {
        const std::filesystem::path before = lastMovie();
        recorder_.stop();
        whenTrue(
            this, [this, before] { return recorder_.phase() == Phase::idle; },
            [this, before, done] {
                done(lastMovie() != before ? QString() : QStringLiteral("no movie was saved"));
            });
    }

    std::filesystem::path lastMovie() const {
        return recorder_.last() ? recorder_.last()->path : std::filesystem::path();
    }

    // The last recording is in the APP_STORE folder, about `seconds` long, and its
    // pictures decode at the start, middle and end.
    void checkMovie(double seconds, const Done& done) {
        if (!recorder_.last()) {
            done(QStringLiteral("no movie was saved"));
            return;
        }
        const std::filesystem::path movie = recorder_.last()->path;
        if (movie.parent_path() != Store::testFolder()) {
            done(QStringLiteral("the movie went to %1").arg(toQString(movie)));
            return;
        }
        struct Decoded {
            double durationSeconds = 0;
            std::size_t pictures = 0;
            QString problem;
        };
        runOnWorker(
            this,
            [movie] {
                Decoded decoded;
                try {
                    decoded.durationSeconds = readMovieFacts(movie).durationSeconds;
                    decoded.pictures = EditRenderer::thumbnails(movie, 3).size();
                } catch (const std::exception& error) {
                    decoded.problem = QString::fromUtf8(error.what());
                }
                return decoded;
            },
            [done, seconds](const Decoded& decoded) {
                if (!decoded.problem.isEmpty()) {
                    done(decoded.problem);
                } else if (std::abs(decoded.durationSeconds - seconds) > 0.6) {
                    done(QStringLiteral("it lasts %1 s, expected about %2 s")
                             .arg(decoded.durationSeconds, 0, 'f', 2)
                             .arg(seconds, 0, 'f', 1));
                } else if (decoded.pictures != 3) {
                    done(QStringLiteral("%1 of 3 pictures decode").arg(decoded.pictures));
                } else {
                    done({});
                }
            });
    }

    AppDelegate& delegate_;
    ScreenRecorder& recorder_;
    CheckRunner runner_;
    RecordingOptions savedOptions_;
    std::optional<Combo> savedShortcut_;
    std::unique_ptr<ShortcutRecorder> field_;
    std::unique_ptr<FeedServer> feed_;
};

} // namespace

void start(AppDelegate& delegate, std::function<void(int status)> finished) {
    auto* checks = new Checks(delegate, std::move(finished));
    checks->start();
}

} // namespace lumenvale::SelfTest
