#include "recorder/RecorderPhase.h"

namespace lumenvale::RecorderPhase {

std::string_view name(Phase phase) {
    switch (phase) {
    case Phase::idle:
        return "idle";
    case Phase::selecting:
        return "selecting";
    case Phase::countdown:
        return "countdown";
    case Phase::recording:
        return "recording";
    case Phase::paused:
        return "paused";
    case Phase::finishing:
        return "finishing";
    }
    return "?";
}

std::string_view name(Event event) {
    switch (event) {
    case Event::selectionOpened:
        return "selectionOpened";
    case Event::countdownBegan:
        return "countdownBegan";
    case Event::streamStarted:
        return "streamStarted";
    case Event::startAbandoned:
        return "startAbandoned";
    case Event::paused:
        return "paused";
    case Event::resumed:
        return "resumed";
    case Event::finishBegan:
        return "finishBegan";
    case Event::finishEnded:
        return "finishEnded";
    }
    return "?";
}

} // namespace lumenvale::RecorderPhase
