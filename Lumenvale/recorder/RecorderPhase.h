#pragma once

#include <QObject>
#include <array>
#include <optional>
#include <string_view>

namespace lumenvale {

// Where the recorder is in its state machine, in this order.
namespace RecorderPhase {
Q_NAMESPACE

enum class Phase { idle, selecting, countdown, recording, paused, finishing };
Q_ENUM_NS(Phase)

// What moves the recorder from one phase to the next.
enum class Event {
    selectionOpened, // an area or window start waits for the user's pick
    countdownBegan,  // the start runs the countdown
    streamStarted,   // the capture runs and writes the first part
    startAbandoned,  // cancelled, stopped, permission refused or the stream failed
    paused,          // the current part was detached
    resumed,         // a new part was attached
    finishBegan,     // stop, or the system stopped the stream
    finishEnded,     // the movie was saved, or saving failed
};
Q_ENUM_NS(Event)

struct Transition {
    Phase from;
    Event event;
    Phase to;
};

// Every allowed transition; anything else is a programming error.
inline constexpr std::array<Transition, 15> transitions{{
    {Phase::idle, Event::selectionOpened, Phase::selecting},
    {Phase::idle, Event::countdownBegan, Phase::countdown},
    {Phase::idle, Event::streamStarted, Phase::recording},
    {Phase::selecting, Event::countdownBegan, Phase::countdown},
    {Phase::selecting, Event::streamStarted, Phase::recording},
    {Phase::selecting, Event::startAbandoned, Phase::idle},
    {Phase::countdown, Event::streamStarted, Phase::recording},
    {Phase::countdown, Event::startAbandoned, Phase::idle},
    {Phase::idle, Event::startAbandoned, Phase::idle},
    {Phase::recording, Event::paused, Phase::paused},
    {Phase::paused, Event::resumed, Phase::recording},
    {Phase::recording, Event::finishBegan, Phase::finishing},
    {Phase::paused, Event::finishBegan, Phase::finishing},
    {Phase::finishing, Event::finishBegan, Phase::finishing},
    {Phase::finishing, Event::finishEnded, Phase::idle},
}};

// The phase that `event` leads to from `from`; nothing when the table has no such row.
constexpr std::optional<Phase> next(Phase from, Event event) {
    for (const Transition& row : transitions) {
        if (row.from == from && row.event == event) {
            return row.to;
        }
    }
    return std::nullopt;
}

// "idle", "selecting", ... as in the enumeration.
std::string_view name(Phase phase);
std::string_view name(Event event);

} // namespace RecorderPhase
} // namespace lumenvale
