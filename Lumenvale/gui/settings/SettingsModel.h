#pragma once

#include "LumenvaleKit/RecordingOptions.h"

#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantList>

namespace lumenvale {

class ScreenRecorder;

// What the Settings window edits, for its views: the recorder's options (each change
// stored at once and used by the next recording), the save folder, starting at login,
// and the microphones the sound server offers now. Every options property notifies
// through optionsChanged, which follows the recorder's options whoever changed them.
//
// While `watching` is true (the Settings window is open) the microphone list is asked
// for again every two seconds on a worker thread, so it follows plugging and
// unplugging; otherwise it is left alone and nothing wakes the process.
//
// Threads: the GUI thread.
class SettingsModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString saveFolder READ saveFolder WRITE setSaveFolder NOTIFY optionsChanged)
    Q_PROPERTY(bool startAtLogin READ startAtLogin WRITE setStartAtLogin NOTIFY loginChanged)
    Q_PROPERTY(int fps READ fps WRITE setFps NOTIFY optionsChanged)
    Q_PROPERTY(QVariantList frameRates READ frameRates NOTIFY optionsChanged)
    Q_PROPERTY(QString codec READ codec WRITE setCodec NOTIFY optionsChanged)
    Q_PROPERTY(QVariantList codecs READ codecs CONSTANT)
    Q_PROPERTY(bool showsPointer READ showsPointer WRITE setShowsPointer NOTIFY optionsChanged)
    Q_PROPERTY(bool showsClicks READ showsClicks WRITE setShowsClicks NOTIFY optionsChanged)
    Q_PROPERTY(bool clicksSeen READ clicksSeen CONSTANT)
    Q_PROPERTY(bool countdown READ countdown WRITE setCountdown NOTIFY optionsChanged)
    Q_PROPERTY(bool camera READ camera WRITE setCamera NOTIFY optionsChanged)
    Q_PROPERTY(
        double bubbleDiameter READ bubbleDiameter WRITE setBubbleDiameter NOTIFY optionsChanged)
    Q_PROPERTY(double bubbleMinimum READ bubbleMinimum CONSTANT)
    Q_PROPERTY(double bubbleMaximum READ bubbleMaximum CONSTANT)
    Q_PROPERTY(bool systemAudio READ systemAudio WRITE setSystemAudio NOTIFY optionsChanged)
    Q_PROPERTY(bool microphone READ microphone WRITE setMicrophone NOTIFY optionsChanged)
    Q_PROPERTY(QString microphoneID READ microphoneID WRITE setMicrophoneID NOTIFY optionsChanged)
    Q_PROPERTY(QVariantList microphones READ microphones NOTIFY microphonesChanged)
    Q_PROPERTY(bool watching READ watching WRITE setWatching NOTIFY watchingChanged)
    Q_PROPERTY(QString problem READ problem NOTIFY problemChanged)

  public:
    explicit SettingsModel(ScreenRecorder& recorder, QObject* parent = nullptr);

    // The folder movies are saved to, as a path; setting accepts a path or a file URL.
    QString saveFolder() const;
    void setSaveFolder(const QString& folder);
    bool startAtLogin() const { return startAtLogin_; }
    void setStartAtLogin(bool start);

    int fps() const;
    void setFps(int fps);
    // The offered rates, with the stored one added when it is not among them.
    QVariantList frameRates() const;
    // The codec's stored name, "h264" or "hevc".
    QString codec() const;
    void setCodec(const QString& codec);
    // [{value, title}] of the codecs this machine can encode, in codec order.
    QVariantList codecs() const;
    bool showsPointer() const { return options().showsPointer; }
    void setShowsPointer(bool shows) { set(&RecordingOptions::showsPointer, shows); }
    // Off where the desktop does not show clicks in other applications (Wayland),
    // whatever is stored: the stored choice comes back on a desktop that does.
    bool showsClicks() const { return options().showsClicks && clicksSeen(); }
    bool clicksSeen() const;
    void setShowsClicks(bool shows) { set(&RecordingOptions::showsClicks, shows); }
    bool countdown() const { return options().countdown; }
    void setCountdown(bool countdown) { set(&RecordingOptions::countdown, countdown); }
    bool camera() const { return options().camera; }
    void setCamera(bool camera) { set(&RecordingOptions::camera, camera); }
    double bubbleDiameter() const { return options().bubbleDiameter; }
    void setBubbleDiameter(double points);
    static double bubbleMinimum() { return 96; }
    static double bubbleMaximum() { return 480; }
    bool systemAudio() const { return options().systemAudio; }
    void setSystemAudio(bool record) { set(&RecordingOptions::systemAudio, record); }
    bool microphone() const { return options().microphone; }
    void setMicrophone(bool record) { set(&RecordingOptions::microphone, record); }
    // The chosen source's name; empty for the server's default source.
    QString microphoneID() const;
    void setMicrophoneID(const QString& id);
    // [{id, title}]: first the default source, then every microphone the server offers,
    // then the chosen one if it is not plugged in now (so the choice stays visible).
    QVariantList microphones() const;
    bool watching() const { return watching_; }
    void setWatching(bool watching);
    // A sentence about settings that cannot be read or written, or empty.
    QString problem() const { return problem_; }

    // Asks the sound server for its microphones again, on a worker thread.
    Q_INVOKABLE void refreshMicrophones();

  signals:
    void optionsChanged();
    void loginChanged();
    void microphonesChanged();
    void watchingChanged();
    void problemChanged();

  private:
    struct Source {
        QString id;
        QString title;
    };

    const RecordingOptions& options() const;
    // Stores `value` in the recorder's options.
    template <typename Value> void set(Value RecordingOptions::*field, Value value) {
        RecordingOptions changed = options();
        changed.*field = std::move(value);
        store(changed);
    }
    void store(const RecordingOptions& options);
    void setProblem(const QString& problem);

    ScreenRecorder& recorder_;
    bool startAtLogin_;
    bool watching_ = false;
    bool querying_ = false;
    std::vector<Source> sources_;
    QString defaultSourceTitle_;
    QTimer poll_;
    QString problem_;
};

} // namespace lumenvale
