#pragma once

#include "LumenvaleKit/Codec.h"
#include "LumenvaleKit/EditDecision.h"
#include "LumenvaleMedia/EditRenderer.h"

#include <QObject>
#include <atomic>
#include <filesystem>
#include <memory>
#include <string>

// Writing an edit to a file: the one path shared by the editor window and the
// `lumenvale export` command, so both name and write exports the same way.
namespace lumenvale::EditorExport {
Q_NAMESPACE

// What an export writes; the key names ("movie", "gif") are the stored form.
enum class Format { movie, gif };
Q_ENUM_NS(Format)

// "mp4" or "gif".
const char* fileExtension(Format format);

// Holds a chosen export name for this process while the export runs, so two exports
// started together never pick the same free name. Releases it when destroyed.
class Reservation {
  public:
    Reservation() = default;
    Reservation(std::filesystem::path path, std::string base);
    ~Reservation();
    Reservation(const Reservation&) = delete;
    Reservation& operator=(const Reservation&) = delete;

    // The name chosen.
    const std::filesystem::path& path() const { return path_; }
    // That name, or the next free one after it when another program takes it before
    // the export is complete.
    EditRenderer::Destination destination() const {
        return EditRenderer::Destination::numbered(path_, base_);
    }

  private:
    std::filesystem::path path_;
    std::string base_;
};

// The export's file next to the recording: "<recording's name> edited.<ext>", made
// unique the way recordings are ("… edited 2.mp4", "… edited 3.mp4"), skipping files
// that exist and names held by running exports. Reserves the name it returns.
// Any thread.
std::shared_ptr<Reservation> reserveTarget(const std::filesystem::path& recording, Format format);

// Writes `edit` of `source` to `destination` in `format`: a movie in `codec` (or the
// H.264 fallback when this machine cannot encode `codec`), or a GIF, and returns the
// path written. The file appears under its name only once complete and never replaces
// a file (EditRenderer::Destination). Blocking: call it on a worker thread; `progress`
// and `status` (sentences about how a movie export proceeds) are called on that thread.
// Throws MediaError; after a failure nothing is left behind.
std::filesystem::path
write(const std::filesystem::path& source, const EditDecision& edit, Format format, Codec codec,
      const EditRenderer::Destination& destination, const EditRenderer::Progress& progress,
      const std::atomic<bool>* cancel = nullptr, const EditRenderer::StatusText& status = {});

} // namespace lumenvale::EditorExport
