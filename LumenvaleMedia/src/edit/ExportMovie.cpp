// Movie export: an edit that only cuts is copied (Passthrough), any other edit is
// encoded again (EncodeMovie).

#include "edit/EncodeMovie.h"
#include "edit/Passthrough.h"
#include "edit/SourceMovie.h"

namespace lumenvale {

std::filesystem::path
EditRenderer::exportMovie(const std::filesystem::path& source, const EditDecision& edit,
                          Codec codec, const Destination& destination, const Progress& progress,
                          const std::atomic<bool>* cancel, const StatusText& status) {
    Built built;
    {
        edit::SourceMovie movie = edit::openSourceMovie(source);
        built = edit::resolveEdit(movie, edit);
        if (edit.isPassthrough()) {
            if (edit::canCopySound(movie, built)) {
                return edit::exportCutOnly(movie, built, codec, destination,
                                           edit::ExportHooks{progress, cancel, status});
            }
            if (status) {
                status("This movie’s sound can’t be copied, so the whole movie is encoded again.");
            }
        }
    }
    return edit::encodeMovie(built, source, codec, destination, progress, cancel);
}

} // namespace lumenvale
