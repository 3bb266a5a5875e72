// The recorder's options: every assignment is saved to the store, options for one run
// never are.

#include "LumenvaleKit/RecordingOptions.h"
#include "base/Store.h"
#include "recorder/ScreenRecorder.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

namespace lumenvale {
namespace {

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

    // Options for this run only are never saved.
    RecordingOptions thisRun = options;
    thisRun.fps = 7;
    recorder.setRunOptions(thisRun);
    EXPECT_EQ(recorder.optionsInForce(), thisRun);
    EXPECT_EQ(recorder.options(), options);
    EXPECT_EQ(Store::loadOptions(), options);
    EXPECT_EQ(changes.count(), 1);
}

} // namespace
} // namespace lumenvale
