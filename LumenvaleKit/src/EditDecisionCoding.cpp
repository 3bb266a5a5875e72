#include "JsonCoding.h"
#include "LumenvaleKit/EditDecision.h"

#include <limits>

namespace lumenvale {

using jsoncoding::Invalid;
using jsoncoding::Json;

namespace {

// A track number as written in "volumes": a decimal integer without sign "+",
// leading zeros or blanks ("1", "-2", "0"), inside the range of int.
int readTrackNumber(const std::string& key) {
    const bool negative = !key.empty() && key.front() == '-';
    const std::string digits = negative ? key.substr(1) : key;
    const bool canonical = !digits.empty() && digits.size() <= 10 &&
                           digits.find_first_not_of("0123456789") == std::string::npos &&
                           (digits == "0" || digits.front() != '0') && !(negative && digits == "0");
    if (canonical) {
        long long magnitude = 0;
        for (char digit : digits) {
            magnitude = magnitude * 10 + (digit - '0');
        }
        const long long number = negative ? -magnitude : magnitude;
        if (number >= std::numeric_limits<int>::min() &&
            number <= std::numeric_limits<int>::max()) {
            return static_cast<int>(number);
        }
    }
    throw Invalid{"the track number \"" + key + "\" in \"volumes\" is not a decimal integer."};
}

Clip readClip(const Json& value, std::size_t index) {
    const std::string name = "clips[" + std::to_string(index) + "]";
    if (!value.is_object()) {
        throw Invalid{"\"" + name + "\" must be an object."};
    }
    const auto field = [&](const char* key) -> const Json& {
        const auto found = value.find(key);
        if (found == value.end() || found->is_null()) {
            throw Invalid{"\"" + name + "." + key + "\" is missing."};
        }
        return *found;
    };
    const std::string idText = jsoncoding::readString(field("id"), name + ".id");
    const std::optional<Uuid> id = Uuid::parse(idText);
    if (!id) {
        throw Invalid{"\"" + name + ".id\" is not a UUID."};
    }
    return Clip{*id, jsoncoding::readNumber(field("start"), name + ".start"),
                jsoncoding::readNumber(field("end"), name + ".end")};
}

EditDecision readEdit(const Json& object) {
    EditDecision edit;
    edit.sourceDuration = jsoncoding::readNumber(
        jsoncoding::requiredField(object, "sourceDuration"), "sourceDuration");
    const Json& clips = jsoncoding::requiredField(object, "clips");
    if (!clips.is_array()) {
        throw Invalid{"\"clips\" must be an array."};
    }
    for (std::size_t i = 0; i < clips.size(); ++i) {
        edit.clips.push_back(readClip(clips[i], i));
    }
    edit.speed = jsoncoding::readNumber(jsoncoding::requiredField(object, "speed"), "speed");
    if (const Json* crop = jsoncoding::optionalField(object, "crop")) {
        edit.crop = jsoncoding::readRect(*crop, "crop");
    }
    const Json& volumes = jsoncoding::requiredField(object, "volumes");
    if (!volumes.is_object()) {
        throw Invalid{"\"volumes\" must be an object."};
    }
    for (const auto& [key, gain] : volumes.items()) {
        edit.volumes[readTrackNumber(key)] = jsoncoding::readNumber(gain, "volumes." + key);
    }
    return edit;
}

} // namespace

std::string encode(const EditDecision& edit) {
    Json document = Json::object();
    document["sourceDuration"] = edit.sourceDuration;
    Json clips = Json::array();
    for (const Clip& clip : edit.clips) {
        Json coded = Json::object();
        coded["id"] = clip.id.text();
        coded["start"] = clip.start;
        coded["end"] = clip.end;
        clips.push_back(std::move(coded));
    }
    document["clips"] = std::move(clips);
    document["speed"] = edit.speed;
    if (edit.crop) {
        document["crop"] = jsoncoding::writeRect(*edit.crop);
    }
    Json volumes = Json::object();
    for (const auto& [track, gain] : edit.volumes) {
        volumes[std::to_string(track)] = gain;
    }
    document["volumes"] = std::move(volumes);
    return jsoncoding::write(document);
}

Result<EditDecision> decodeEditDecision(std::string_view json) {
    return jsoncoding::decodeDocument<EditDecision>(json, "The edit is not valid", readEdit);
}

} // namespace lumenvale
