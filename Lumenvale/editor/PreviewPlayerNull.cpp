#include "editor/PreviewPlayerNull.h"

namespace lumenvale {

void PreviewPlayerNull::setPreview(const EditRenderer::Built& preview) {
    preview_ = preview;
    calls_.push_back({CallKind::setPreview, 0, preview.edit});
}

void PreviewPlayerNull::seek(double outputSeconds) {
    timeSeconds_ = outputSeconds;
    calls_.push_back({CallKind::seek, outputSeconds, std::nullopt});
}

void PreviewPlayerNull::play() {
    rate_ = 1;
    calls_.push_back({CallKind::play, 0, std::nullopt});
}

void PreviewPlayerNull::pause() {
    rate_ = 0;
    calls_.push_back({CallKind::pause, 0, std::nullopt});
}

void PreviewPlayerNull::simulate(double timeSeconds, double rate) {
    timeSeconds_ = timeSeconds;
    rate_ = rate;
}

} // namespace lumenvale
