#include "gui/editor/PreviewPlayerMpv.h"

#include "editor/PreviewPlayerNull.h"

#include <QDebug>
#include <QMetaObject>
#include <charconv>
#include <clocale>
#include <mpv/client.h>
#include <string>
#include <utility>
#include <vector>

namespace lumenvale {
namespace {

// Observed properties, told apart by their reply numbers.
enum class Watched : std::uint64_t { position = 1, paused, ended };
// Marks the replies to seeks, which are sent without waiting for the player's core.
constexpr std::uint64_t seekReply = 100;

std::string decimal(double value) {
    char text[64];
    const auto written =
        std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 6);
    return {text, written.ptr};
}

QString mpvError(int code) {
    return QString::fromUtf8(mpv_error_string(code));
}

// A string node that points into `text`, which must outlive it.
mpv_node stringNode(const std::string& text) {
    mpv_node node{};
    node.format = MPV_FORMAT_STRING;
    node.u.string = const_cast<char*>(text.c_str()); // mpv only reads it
    return node;
}

// A map node over keys and values that must outlive it.
struct NodeMap {
    std::vector<std::string> keys;
    std::vector<std::string> values;
    std::vector<char*> keyPointers;
    std::vector<mpv_node> valueNodes;
    mpv_node_list list{};

    void add(std::string key, std::string value) {
        keys.push_back(std::move(key));
        values.push_back(std::move(value));
    }
    mpv_node node() {
        keyPointers.clear();
        valueNodes.clear();
        for (std::size_t index = 0; index < keys.size(); ++index) {
            keyPointers.push_back(keys[index].data());
            valueNodes.push_back(stringNode(values[index]));
        }
        list.num = static_cast<int>(keys.size());
        list.keys = keyPointers.data();
        list.values = valueNodes.data();
        mpv_node made{};
        made.format = MPV_FORMAT_NODE_MAP;
        made.u.list = &list;
        return made;
    }
};

// The result node of a command, freed with it.
struct CommandResult {
    mpv_node node{};
    ~CommandResult() { mpv_free_node_contents(&node); }
};

} // namespace

PreviewPlayerMpv::Made PreviewPlayerMpv::create() {
    std::setlocale(LC_NUMERIC, "C");
    MpvCore core(mpv_create(), mpv_terminate_destroy);
    if (!core) {
        return {nullptr, "The preview’s player (mpv) could not start."};
    }
    const std::pair<const char*, const char*> options[] = {
        {"config", "no"},
        {"terminal", "no"},
        {"load-scripts", "no"},
        {"ytdl", "no"},
        {"osc", "no"},
        {"input-default-bindings", "no"},
        {"idle", "yes"},
        // Pictures go to the render API (PreviewSurface).
        {"vo", "libmpv"},
        // At the end, keep the last frame and pause.
        {"keep-open", "yes"},
        {"keep-open-pause", "yes"},
        // Every seek lands on the exact frame, never on a keyframe before it.
        {"hr-seek", "yes"},
        {"pause", "yes"},
        {"audio-pitch-correction", "yes"},
        {"audio-client-name", "Lumenvale"},
        // A local file needs no cache beyond the demuxer's own read-ahead; the default
        // back buffer alone would hold 50 MiB of a long recording.
        {"cache", "no"},
        {"demuxer-max-back-bytes", "0"},
        {"demuxer-max-bytes", "16MiB"},
    };
    for (const auto& [name, value] : options) {
        if (const int status = mpv_set_option_string(core.get(), name, value); status < 0) {
            return {nullptr, QStringLiteral("The preview’s player (mpv) refused the option %1: %2.")
                                 .arg(QString::fromUtf8(name), mpvError(status))};
        }
    }
    if (const int status = mpv_initialize(core.get()); status < 0) {
        return {nullptr, QStringLiteral("The preview’s player (mpv) could not start: %1.")
                             .arg(mpvError(status))};
    }
    mpv_observe_property(core.get(), static_cast<std::uint64_t>(Watched::position), "time-pos",
                         MPV_FORMAT_DOUBLE);
    mpv_observe_property(core.get(), static_cast<std::uint64_t>(Watched::paused), "pause",
                         MPV_FORMAT_FLAG);
    mpv_observe_property(core.get(), static_cast<std::uint64_t>(Watched::ended), "eof-reached",
                         MPV_FORMAT_FLAG);
    return {std::unique_ptr<PreviewPlayerMpv>(new PreviewPlayerMpv(std::move(core))), {}};
}

PreviewPlayerMpv::PreviewPlayerMpv(MpvCore core) : core_(std::move(core)) {
    // Called on one of mpv's threads: hand the events to the GUI thread, once per batch.
    mpv_set_wakeup_callback(
        core_.get(),
        [](void* context) {
            auto* self = static_cast<PreviewPlayerMpv*>(context);
            if (!self->wakeupQueued_.exchange(true)) {
                QMetaObject::invokeMethod(self, "takeEvents", Qt::QueuedConnection);
            }
        },
        this);
}

PreviewPlayerMpv::~PreviewPlayerMpv() {
    // No wakeup reaches this object from here on; a surface may still hold the core,
    // which then stays silent until it lets go.
    mpv_set_wakeup_callback(core_.get(), nullptr, nullptr);
    const char* stop[] = {"stop", nullptr};
    mpv_command(core_.get(), stop);
}

void PreviewPlayerMpv::setPreview(const EditRenderer::Built& preview) {
    plan_ = planPreview(preview);
    loaded_ = false;
    ended_ = false;
    pendingSeekSeconds_ = 0;
    positionSeconds_ = 0;
    scheduleLoad();
}

void PreviewPlayerMpv::seek(double outputSeconds) {
    positionSeconds_ = outputSeconds;
    ended_ = false;
    if (!loaded_) {
        pendingSeekSeconds_ = outputSeconds; // the load starts there or seeks once loaded
        return;
    }
    applySeek(outputSeconds);
}

void PreviewPlayerMpv::play() {
    setPaused(false);
}

void PreviewPlayerMpv::pause() {
    setPaused(true);
}

double PreviewPlayerMpv::rate() const {
    return paused_ || ended_ ? 0 : 1;
}

double PreviewPlayerMpv::currentTimeSeconds() const {
    return ended_ && plan_ ? plan_->outputDurationSeconds : positionSeconds_;
}

void PreviewPlayerMpv::surfaceAttached() {
    if (!plan_) {
        return;
    }
    if (!pendingSeekSeconds_) {
        pendingSeekSeconds_ = currentTimeSeconds();
    }
    loaded_ = false;
    scheduleLoad();
}

void PreviewPlayerMpv::setPaused(bool paused) {
    paused_ = paused;
    int flag = paused ? 1 : 0;
    mpv_set_property(core_.get(), "pause", MPV_FORMAT_FLAG, &flag);
}

void PreviewPlayerMpv::scheduleLoad() {
    if (loadScheduled_) {
        return;
    }
    loadScheduled_ = true;
    // After the seek that follows setPreview(), so the load starts at its target.
    QMetaObject::invokeMethod(
        this,
        [this] {
            loadScheduled_ = false;
            load();
        },
        Qt::QueuedConnection);
}

void PreviewPlayerMpv::load() {
    if (!plan_ || loaded_) {
        return;
    }
    const double startSeconds = pendingSeekSeconds_.value_or(0);
    pendingSeekSeconds_.reset();
    const std::string speed = decimal(plan_->speed);
    mpv_set_property_string(core_.get(), "speed", speed.c_str());

    NodeMap options;
    options.add("start", decimal(startSeconds * plan_->speed));
    options.add("vf", plan_->videoFilter);
    options.add("lavfi-complex", plan_->audioGraph);
    options.add("aid", plan_->audioGraph.empty() ? "no" : "auto");
    mpv_node optionsNode = options.node();

    NodeMap command;
    command.add("name", "loadfile");
    command.add("url", plan_->url);
    command.add("flags", "replace");
    mpv_node commandNode = command.node();
    // The options are a map inside the command's map.
    std::vector<char*> keys(command.keyPointers);
    std::vector<mpv_node> values(command.valueNodes);
    keys.push_back(const_cast<char*>("options"));
    values.push_back(optionsNode);
    mpv_node_list list{static_cast<int>(keys.size()), values.data(), keys.data()};
    commandNode.u.list = &list;

    CommandResult result;
    if (const int status = mpv_command_node(core_.get(), &commandNode, &result.node); status < 0) {
        emit failed(QStringLiteral("The preview can’t be played: %1.").arg(mpvError(status)));
        return;
    }
    loadingEntry_ = -1;
    if (result.node.format == MPV_FORMAT_NODE_MAP) {
        for (int index = 0; index < result.node.u.list->num; ++index) {
            const mpv_node& value = result.node.u.list->values[index];
            if (std::string(result.node.u.list->keys[index]) == "playlist_entry_id" &&
                value.format == MPV_FORMAT_INT64) {
                loadingEntry_ = value.u.int64;
            }
        }
    }
    positionSeconds_ = startSeconds;
}

void PreviewPlayerMpv::applySeek(double outputSeconds) {
    const std::string target = decimal(outputSeconds * (plan_ ? plan_->speed : 1));
    const char* command[] = {"seek", target.c_str(), "absolute+exact", nullptr};
    // Without waiting: while the user scrubs, the core is busy decoding up to the last
    // target, and the window must not wait for it.
    seekTargetSeconds_ = outputSeconds;
    if (mpv_command_async(core_.get(), seekReply, command) < 0) {
        pendingSeekSeconds_ = outputSeconds; // not seekable yet: once loaded
        loaded_ = false;
    }
}

void PreviewPlayerMpv::takeEvents() {
    wakeupQueued_.store(false);
    while (true) {
        const mpv_event* event = mpv_wait_event(core_.get(), 0);
        if (event->event_id == MPV_EVENT_NONE) {
            return;
        }
        handle(*event);
    }
}

void PreviewPlayerMpv::handle(const mpv_event& event) {
    switch (event.event_id) {
    case MPV_EVENT_PROPERTY_CHANGE: {
        const auto* property = static_cast<const mpv_event_property*>(event.data);
        const bool hasValue = property->format != MPV_FORMAT_NONE;
        switch (static_cast<Watched>(event.reply_userdata)) {
        case Watched::position:
            // Positions of a preview still loading or of a seek still pending are stale.
            if (hasValue && loaded_ && !pendingSeekSeconds_ && plan_) {
                positionSeconds_ = *static_cast<const double*>(property->data) / plan_->speed;
            }
            break;
        case Watched::paused:
            if (hasValue) {
                paused_ = *static_cast<const int*>(property->data) != 0;
            }
            break;
        case Watched::ended:
            ended_ = hasValue && *static_cast<const int*>(property->data) != 0 && loaded_;
            break;
        }
        break;
    }
    case MPV_EVENT_COMMAND_REPLY:
        if (event.reply_userdata == seekReply && event.error < 0 && seekTargetSeconds_ &&
            !pendingSeekSeconds_) {
            pendingSeekSeconds_ = seekTargetSeconds_; // not seekable yet: once loaded
            loaded_ = false;
        }
        break;
    case MPV_EVENT_START_FILE:
        startedEntry_ = static_cast<const mpv_event_start_file*>(event.data)->playlist_entry_id;
        break;
    case MPV_EVENT_FILE_LOADED:
        if (loadingEntry_ >= 0 && startedEntry_ == loadingEntry_) {
            loadingEntry_ = -1;
            loaded_ = true;
            if (pendingSeekSeconds_) {
                const double target = *pendingSeekSeconds_;
                pendingSeekSeconds_.reset();
                applySeek(target);
            }
        }
        break;
    case MPV_EVENT_END_FILE: {
        const auto* ended = static_cast<const mpv_event_end_file*>(event.data);
        if (ended->reason == MPV_END_FILE_REASON_ERROR &&
            ended->playlist_entry_id == loadingEntry_) {
            loadingEntry_ = -1;
            emit failed(
                QStringLiteral("The preview can’t be played: %1.").arg(mpvError(ended->error)));
        }
        break;
    }
    default:
        break;
    }
}

std::unique_ptr<PreviewPlayer> makeMpvPreviewPlayer() {
    PreviewPlayerMpv::Made made = PreviewPlayerMpv::create();
    if (made.player) {
        QObject::connect(made.player.get(), &PreviewPlayerMpv::failed,
                         [](const QString& message) { qWarning().noquote() << message; });
        return std::move(made.player);
    }
    qWarning().noquote() << made.error << "The editor shows no preview.";
    return std::make_unique<PreviewPlayerNull>();
}

} // namespace lumenvale
