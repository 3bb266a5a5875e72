#pragma once

// Strict reading and writing helpers shared by the core's JSON codings. Internal to
// LumenvaleKit: the public interface speaks only std::string and Result.

#include "LumenvaleKit/Geometry.h"
#include "LumenvaleKit/Result.h"

#include <cstdint>
#include <exception>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace lumenvale::jsoncoding {

using Json = nlohmann::ordered_json;

// Thrown inside a decoder when the input does not match the coding; the decoder's
// entry point turns it into a DecodeError, so it never leaves the library.
struct Invalid {
    std::string reason; // a sentence, e.g. "\"volumes\" is missing."
};

// The top-level object of a document; Invalid when the text is not JSON or not an object.
Json parseObject(std::string_view text);

// The value under `key`, or nullptr when the key is missing or holds null.
const Json* optionalField(const Json& object, const char* key);
// The value under `key`; Invalid when it is missing or null.
const Json& requiredField(const Json& object, const char* key);

// Typed reads. `name` is how the value is called in messages ("fps", "clips[2].end").
// An integer accepts a JSON integer, or a float that is a whole number inside the
// signed 64-bit range (2.0 is 2; 1.5 fails). A number accepts integers and floats.
std::int64_t readInteger(const Json& value, const std::string& name);
double readNumber(const Json& value, const std::string& name);
bool readBool(const Json& value, const std::string& name);
std::string readString(const Json& value, const std::string& name);
// A rectangle coded as [[x, y], [width, height]]: exactly two arrays of exactly two numbers.
Rect readRect(const Json& value, const std::string& name);

Json writeRect(const Rect& rect);
// Compact text. Floats are written so that reading them back gives the same value;
// a string that is not valid UTF-8 has its bad bytes replaced (JSON cannot carry them).
std::string write(const Json& document);

// Runs `decode` on the parsed top-level object and turns every failure into a
// DecodeError whose message starts with `what` ("The edit is not valid").
template <typename T, typename Decode>
Result<T> decodeDocument(std::string_view text, const char* what, Decode decode) {
    try {
        return Result<T>(decode(parseObject(text)));
    } catch (const Invalid& invalid) {
        return Result<T>(DecodeError{std::string(what) + ": " + invalid.reason});
    } catch (const std::exception& error) {
        return Result<T>(DecodeError{std::string(what) + ": " + error.what()});
    } catch (...) {
        return Result<T>(DecodeError{std::string(what) + "."});
    }
}

} // namespace lumenvale::jsoncoding
