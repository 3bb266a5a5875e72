#include "gui/settings/SettingsModel.h"

#include "LumenvaleMedia/AudioDevices.h"
#include "LumenvaleMedia/RecordingPipeline.h"
#include "base/PathText.h"
#include "base/SaveFolder.h"
#include "base/Store.h"
#include "desktop/Autostart.h"
#include "desktop/Desktop.h"
#include "desktop/Permissions.h"
#include "editor/WorkerTask.h"
#include "recorder/ScreenRecorder.h"

#include <QUrl>
#include <QVariantMap>
#include <algorithm>

namespace lumenvale {

bool SettingsModel::clicksSeen() const {
    return Desktop::globalClicks() == Desktop::GlobalClicks::seen;
}

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

const RecordingOptions& SettingsModel::options() const {
    return recorder_.options();
}

void SettingsModel::store(const RecordingOptions& options) {
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
    return toQString(SaveFolder::resolve(options()));
}

void SettingsModel::setSaveFolder(const QString& folder) {
    const QUrl url(folder);
    const QString path = url.isLocalFile() ? url.toLocalFile() : folder;
    if (path.isEmpty()) {
        return;
    }
    set(&RecordingOptions::folderPath, std::optional<std::string>(toPath(path).string()));
}

void SettingsModel::setStartAtLogin(bool start) {
    const QString failure =
        Autostart::set(start ? Autostart::Login::start : Autostart::Login::stayQuiet);
    startAtLogin_ = Autostart::isEnabled();
    emit loginChanged();
    setProblem(failure.isEmpty() ? Store::problem() : failure);
}

int SettingsModel::fps() const {
    return static_cast<int>(options().fps);
}

void SettingsModel::setFps(int fps) {
    if (fps > 0) {
        set(&RecordingOptions::fps, std::int64_t{fps});
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
    return QString::fromUtf8(rawValue(options().codec));
}

void SettingsModel::setCodec(const QString& codec) {
    if (const std::optional<Codec> chosen = codecFromRawValue(codec.toStdString())) {
        set(&RecordingOptions::codec, *chosen);
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

void SettingsModel::setBubbleDiameter(double points) {
    set(&RecordingOptions::bubbleDiameter, std::clamp(points, bubbleMinimum(), bubbleMaximum()));
}

QString SettingsModel::microphoneID() const {
    return QString::fromStdString(options().microphoneID.value_or(std::string()));
}

void SettingsModel::setMicrophoneID(const QString& id) {
    set(&RecordingOptions::microphoneID,
        id.isEmpty() ? std::nullopt : std::optional<std::string>(id.toStdString()));
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
    Permissions::shared().setShown(watching); // the Permissions tab's rows follow quickly
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
