#include "editor/StoredCodec.h"

#include "base/Store.h"

namespace lumenvale {

Codec storedCodec() {
    return Store::loadOptions().codec;
}

} // namespace lumenvale
