#include "editor/EditorServices.h"

#include "editor/StoredCodec.h"

namespace lumenvale {

EditorServices EditorServices::standard() {
    EditorServices services;
    services.exportCodec = [] {
        return storedCodec();
    };
    return services;
}

} // namespace lumenvale
