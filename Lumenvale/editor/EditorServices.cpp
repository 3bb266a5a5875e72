#include "editor/EditorServices.h"

#include "recorder/ScreenRecorder.h"

namespace lumenvale {

EditorServices EditorServices::standard() {
    EditorServices services;
    services.exportCodec = [] {
        return ScreenRecorder::shared().options().codec;
    };
    services.makePoster = &RecordingFiles::poster;
    return services;
}

} // namespace lumenvale
