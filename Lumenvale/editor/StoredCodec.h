#pragma once

#include "LumenvaleKit/Codec.h"

namespace lumenvale {

// The codec of the stored recording options: what a recording made now would use,
// and so what exports use unless told otherwise. GUI (main) thread.
Codec storedCodec();

} // namespace lumenvale
