#include "LumenvaleKit/Shortcuts.h"

#include "JsonCoding.h"

namespace lumenvale {

using jsoncoding::Json;

std::string encode(const Combo& combo) {
    Json document = Json::object();
    document["keyCode"] = combo.keyCode;
    document["mods"] = combo.mods.rawValue;
    return jsoncoding::write(document);
}

Result<Combo> decodeCombo(std::string_view json) {
    return jsoncoding::decodeDocument<Combo>(
        json, "The shortcut is not valid", [](const Json& object) {
            Combo combo;
            combo.keyCode =
                jsoncoding::readInteger(jsoncoding::requiredField(object, "keyCode"), "keyCode");
            combo.mods =
                Mods(jsoncoding::readInteger(jsoncoding::requiredField(object, "mods"), "mods"));
            return combo;
        });
}

std::string_view rawValue(RecAction action) {
    switch (action) {
    case RecAction::screen:
        return "screen";
    case RecAction::area:
        return "area";
    case RecAction::window:
        return "window";
    case RecAction::stop:
        return "stop";
    }
    return "stop";
}

std::optional<RecAction> recActionFromRawValue(std::string_view raw) {
    for (RecAction action : allRecActions) {
        if (raw == rawValue(action)) {
            return action;
        }
    }
    return std::nullopt;
}

std::string_view title(RecAction action) {
    switch (action) {
    case RecAction::screen:
        return "Record Screen";
    case RecAction::area:
        return "Record Area";
    case RecAction::window:
        return "Record Window";
    case RecAction::stop:
        return "Stop Recording";
    }
    return "Stop Recording";
}

int hotkeyID(RecAction action) {
    return static_cast<int>(action);
}

std::optional<RecAction> recActionFromHotkeyID(std::int64_t id) {
    for (RecAction action : allRecActions) {
        if (hotkeyID(action) == id) {
            return action;
        }
    }
    return std::nullopt;
}

std::string storageKey(RecAction action) {
    return "hotkey." + std::string(rawValue(action));
}

} // namespace lumenvale
