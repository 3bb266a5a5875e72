#include "editor/StoredCodec.h"

namespace lumenvale {

Codec storedCodec() {
    return Codec::h264; // placeholder until the settings store lands
}

} // namespace lumenvale
