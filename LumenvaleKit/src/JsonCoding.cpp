#include "JsonCoding.h"

#include <cmath>
#include <limits>

namespace lumenvale::jsoncoding {

namespace {

std::string quoted(const std::string& name) {
    return "\"" + name + "\"";
}

[[noreturn]] void fail(const std::string& name, const char* expectation, const Json& value) {
    throw Invalid{quoted(name) + " must be " + expectation + ", not " +
                  (value.is_null() ? std::string("null") : std::string(value.type_name())) + "."};
}

} // namespace

Json parseObject(std::string_view text) {
    Json document = Json::parse(text.begin(), text.end(), nullptr, /*allow_exceptions=*/false);
    if (document.is_discarded()) {
        throw Invalid{"it is not well-formed JSON."};
    }
    if (!document.is_object()) {
        throw Invalid{"it is not a JSON object."};
    }
    return document;
}

const Json* optionalField(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) {
        return nullptr;
    }
    return &*found;
}

const Json& requiredField(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end()) {
        throw Invalid{quoted(key) + " is missing."};
    }
    if (found->is_null()) {
        throw Invalid{quoted(key) + " is null."};
    }
    return *found;
}

std::int64_t readInteger(const Json& value, const std::string& name) {
    if (value.is_number_unsigned()) {
        const auto unsignedValue = value.get<std::uint64_t>();
        if (unsignedValue > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            throw Invalid{quoted(name) + " is too large."};
        }
        return static_cast<std::int64_t>(unsignedValue);
    }
    if (value.is_number_integer()) {
        return value.get<std::int64_t>();
    }
    if (value.is_number_float()) {
        const double number = value.get<double>();
        // [-2^63, 2^63): the doubles that convert to a signed 64-bit integer.
        if (std::trunc(number) == number && number >= -9223372036854775808.0 &&
            number < 9223372036854775808.0) {
            return static_cast<std::int64_t>(number);
        }
        throw Invalid{quoted(name) + " must be a whole number."};
    }
    fail(name, "an integer", value);
}

double readNumber(const Json& value, const std::string& name) {
    if (!value.is_number()) {
        fail(name, "a number", value);
    }
    return value.get<double>();
}

bool readBool(const Json& value, const std::string& name) {
    if (!value.is_boolean()) {
        fail(name, "true or false", value);
    }
    return value.get<bool>();
}

std::string readString(const Json& value, const std::string& name) {
    if (!value.is_string()) {
        fail(name, "a string", value);
    }
    return value.get<std::string>();
}

Rect readRect(const Json& value, const std::string& name) {
    const auto isPair = [](const Json& pair) {
        return pair.is_array() && pair.size() == 2;
    };
    if (!isPair(value) || !isPair(value[0]) || !isPair(value[1])) {
        throw Invalid{quoted(name) + " must be a rectangle [[x, y], [width, height]]."};
    }
    return {readNumber(value[0][0], name + ".x"), readNumber(value[0][1], name + ".y"),
            readNumber(value[1][0], name + ".width"), readNumber(value[1][1], name + ".height")};
}

Json writeRect(const Rect& rect) {
    return Json::array({Json::array({rect.x, rect.y}), Json::array({rect.width, rect.height})});
}

std::string write(const Json& document) {
    return document.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace lumenvale::jsoncoding
