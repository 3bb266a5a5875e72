#include "LumenvaleKit/RecError.h"

namespace lumenvale {

std::string_view message(RecError error) {
    switch (error) {
    case RecError::windowGone:
        return "The window closed.";
    case RecError::displayGone:
        return "The display is gone.";
    case RecError::nothingRecorded:
        return "Nothing was recorded.";
    }
    return "Nothing was recorded.";
}

} // namespace lumenvale
