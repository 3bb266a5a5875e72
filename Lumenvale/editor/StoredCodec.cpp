#include "editor/StoredCodec.h"

#include "recorder/Store.h"

namespace lumenvale {

Codec storedCodec() {
    return Store::loadOptions().codec;
}

} // namespace lumenvale
