#include "recorder/RecorderUiNull.h"

#include "recorder/ScreenRecorder.h"

namespace lumenvale {

void RecorderUiNull::openSelection(SelectionMode) {
    recorder_.selectionCancelled();
}

} // namespace lumenvale
