#pragma once

#include "LumenvaleKit/Codec.h"
#include "LumenvaleMedia/Image.h"
#include "LumenvaleMedia/RecordingFiles.h"
#include "editor/PreviewPlayer.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

namespace lumenvale {

// What the editor model uses from the rest of the application, passed in so the model
// runs headless in tests and in the command line. Empty functions fall back to the
// behaviour named on each.
struct EditorServices {
    // Makes the model's preview player; called once, on the GUI thread.
    // Empty: a PreviewPlayerNull.
    std::function<std::unique_ptr<PreviewPlayer>()> makePlayer;
    // The codec of movie exports, read on the GUI thread when an export starts.
    // Empty: H.264.
    std::function<Codec()> exportCodec;
    // Makes the card's poster of a written export; called on the export's worker
    // thread. Empty or nothing returned: the card shows no poster.
    std::function<std::optional<Image>(const std::filesystem::path& file, double durationSeconds)>
        makePoster;
    // Shows the recording card for an export, as a Recording whose duration is the
    // edit's output duration and which has no parts; GUI thread. Empty: no card.
    std::function<void(const Recording&)> showCard;

    // The application's own: the codec of the recorder's current options and the
    // recordings' posters. The card is left to whoever shows the editor.
    static EditorServices standard();
};

} // namespace lumenvale
