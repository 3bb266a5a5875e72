#include "recorder/RecActionRun.h"

#include <array>
#include <gtest/gtest.h>
#include <map>

namespace lumenvale {
namespace {

TEST(RecActionRun, EachActionInEachPhase) {
    using R = ActionResponse;
    using Phase = RecorderPhase::Phase;
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

} // namespace
} // namespace lumenvale
