#pragma once

#include "LumenvaleKit/RecError.h"

#include <optional>
#include <stdexcept>
#include <string>

namespace lumenvale {

// Every failure of the media layer: what() is a sentence the user can read
// ("The movie file is damaged or incomplete.", "The display is gone."), never a
// bare library code. `recError` is set when the failure is one of the recorder's
// own cases, so the application can tell them apart.
class MediaError : public std::runtime_error {
  public:
    explicit MediaError(const std::string& message) : std::runtime_error(message) {}
    explicit MediaError(RecError error)
        : std::runtime_error(std::string(message(error))), recError(error) {}

    std::optional<RecError> recError;
};

} // namespace lumenvale
