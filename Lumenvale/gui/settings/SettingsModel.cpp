#include "gui/settings/SettingsModel.h"

#include "LumenvaleMedia/AudioDevices.h"
#include "LumenvaleMedia/RecordingPipeline.h"
#include "base/PathText.h"
#include "base/SaveFolder.h"
#include "base/Store.h"
#include "desktop/Autostart.h"
#include "editor/WorkerTask.h"
#include "recorder/ScreenRecorder.h"

#include <QUrl>
#include <QVariantMap>
#include <algorithm>

namespace lumenvale {

namespace {

constexpr int offeredFrameRates[] = {24, 30, 60};

} // namespace

SettingsModel::SettingsModel(ScreenRecorder& recorder, QObject* parent)
    : QObject(parent), recorder_(recorder), startAtLogin_(Autostart::isEnabled()),
      problem_(Store::problem()) {
    connect(&recorder_, &ScreenRecorder::optionsChanged, this, [this] {
        emit optionsChanged();
        setProblem(Store::problem());
    });
    poll_.setInterval(std::chrono::seconds(2));
    poll_.setTimerType(Qt::CoarseTimer);
    connect(&poll_, &QTimer::timeout, this, &SettingsModel::refreshMicrophones);
}

template <typename Change> void SettingsModel::change(Change change) {
    RecordingOptions options = recorder_.options();
    change(options);
    recorder_.setOptions(options);
    setProblem(Store::problem());
}

void SettingsModel::setProblem(const QString& problem) {
    if (problem != problem_) {
        problem_ = problem;
        emit problemChanged();
    }
}

QString SettingsModel::saveFolder() const {
    return toQString(SaveFolder::resolve(recorder_.options()));
}

void SettingsModel::setSaveFolder(const QString& folder) {
    const QUrl url(folder);
    const QString path = url.isLocalFile() ? url.toLocalFile() : folder;
    if (path.isEmpty()) {
        return;
    }
    change([&](RecordingOptions& options) { options.folderPath = toPath(path).string(); });
}

void SettingsModel::setStartAtLogin(bool start) {
    const QString failure =
        Autostart::set(start ? Autostart::Login::start : Autostart::Login::stayQuiet);
    startAtLogin_ = Autostart::isEnabled();
    emit loginChanged();
    setProblem(failure.isEmpty() ? Store::problem() : failure);
}

int SettingsModel::fps() const {
    return static_cast<int>(recorder_.options().fps);
}

void SettingsModel::setFps(int fps) {
    if (fps > 0) {
        change([&](RecordingOptions& options) { options.fps = fps; });
    }
}

QVariantList SettingsModel::frameRates() const {
    std::vector<int> rates(std::begin(offeredFrameRates), std::end(offeredFrameRates));
    if (std::find(rates.begin(), rates.end(), fps()) == rates.end() && fps() > 0) {
        rates.insert(std::upper_bound(rates.begin(), rates.end(), fps()), fps());
    }
    QVariantList list;
    for (int rate : rates) {
        list.append(rate);
    }
    return list;
}

QString SettingsModel::codec() const {
    return QString::fromUtf8(rawValue(recorder_.options().codec));
}

void SettingsModel::setCodec(const QString& codec) {
    if (const std::optional<Codec> chosen = codecFromRawValue(codec.toStdString())) {
        change([&](RecordingOptions& options) { options.codec = *chosen; });
    }
}

QVariantList SettingsModel::codecs() const {
    const std::vector<std::string> available = availableVideoFourCCs();
    QVariantList list;
    for (Codec codec : allCodecs) {
        if (resolve(codec, available) == codec) {
            list.append(QVariantMap{{QStringLiteral("value"), QString::fromUtf8(rawValue(codec))},
                                    {QStringLiteral("title"), QString::fromUtf8(title(codec))}});
        }
    }
    return list;
}

bool SettingsModel::showsPointer() const {
    return recorder_.options().showsPointer;
}
void SettingsModel::setShowsPointer(bool shows) {
    change([&](RecordingOptions& options) { options.showsPointer = shows; });
}
bool SettingsModel::showsClicks() const {
    return recorder_.options().showsClicks;
}
void SettingsModel::setShowsClicks(bool shows) {
    change([&](RecordingOptions& options) { options.showsClicks = shows; });
}
bool SettingsModel::countdown() const {
    return recorder_.options().countdown;
}
void SettingsModel::setCountdown(bool countdown) {
    change([&](RecordingOptions& options) { options.countdown = countdown; });
}
bool SettingsModel::camera() const {
    return recorder_.options().camera;
}
void SettingsModel::setCamera(bool camera) {
    change([&](RecordingOptions& options) { options.camera = camera; });
}
double SettingsModel::bubbleDiameter() const {
    return recorder_.options().bubbleDiameter;
}
void SettingsModel::setBubbleDiameter(double points) {
    const double diameter = std::clamp(points, bubbleMinimum(), bubbleMaximum());
    change([&](RecordingOptions& options) { options.bubbleDiameter = diameter; });
}
bool SettingsModel::systemAudio() const {
    return recorder_.options().systemAudio;
}
void SettingsModel::setSystemAudio(bool record) {
    change([&](RecordingOptions& options) { options.systemAudio = record; });
}
bool SettingsModel::microphone() const {
    return recorder_.options().microphone;
}
void SettingsModel::setMicrophone(bool record) {
    change([&](RecordingOptions& options) { options.microphone = record; });
}

QString SettingsModel::microphoneID() const {
    return QString::fromStdString(recorder_.options().microphoneID.value_or(std::string()));
}

void SettingsModel::setMicrophoneID(const QString& id) {
    change([&](RecordingOptions& options) {
        options.microphoneID =
            id.isEmpty() ? std::nullopt : std::optional<std::string>(id.toStdString());
    });
}

QVariantList SettingsModel::microphones() const {
    const auto entry = [](const QString& id, const QString& title) {
        return QVariantMap{{QStringLiteral("id"), id}, {QStringLiteral("title"), title}};
    };
    QVariantList list;
    list.append(entry(QString(), defaultSourceTitle_.isEmpty()
                                     ? QStringLiteral("Default microphone")
                                     : QStringLiteral("Default (%1)").arg(defaultSourceTitle_)));
    bool chosenListed = microphoneID().isEmpty();
    for (const Source& source : sources_) {
        list.append(entry(source.id, source.title));
        chosenListed = chosenListed || source.id == microphoneID();
    }
    if (!chosenListed) {
        list.append(
            entry(microphoneID(), QStringLiteral("%1 (not connected)").arg(microphoneID())));
    }
    return list;
}

void SettingsModel::setWatching(bool watching) {
    if (watching == watching_) {
        return;
    }
    watching_ = watching;
    if (watching_) {
        refreshMicrophones();
        poll_.start();
    } else {
        poll_.stop();
    }
    emit watchingChanged();
}

void SettingsModel::refreshMicrophones() {
    if (querying_) {
        return;
    }
    querying_ = true;
    runOnWorker(
        this, [] { return AudioDevices::query(); },
        [this](const AudioDevices::Inventory& inventory) {
            querying_ = false;
            std::vector<Source> sources;
            QString defaultTitle;
            for (const AudioDevices::Microphone& microphone : inventory.microphones) {
                const Source source{QString::fromStdString(microphone.name),
                                    QString::fromStdString(microphone.description)};
                if (microphone.name == inventory.defaultSource) {
                    defaultTitle = source.title;
                }
                sources.push_back(source);
            }
            const bool same = defaultTitle == defaultSourceTitle_ &&
                              sources.size() == sources_.size() &&
                              std::equal(sources.begin(), sources.end(), sources_.begin(),
                                         [](const Source& a, const Source& b) {
                                             return a.id == b.id && a.title == b.title;
                                         });
            if (!same) {
                sources_ = std::move(sources);
                defaultSourceTitle_ = defaultTitle;
                emit microphonesChanged();
            }
        });
}

} // namespace lumenvale
