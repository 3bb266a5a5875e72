#include "edit/EncoderSettings.h"

#include <algorithm>
#include <set>
#include <sstream>
#include <string_view>

namespace lumenvale::edit {
namespace {

constexpr std::string_view optionsMarker = " - options: ";

bool printable(std::uint8_t byte) {
    return byte >= 0x20 && byte < 0x7F;
}

std::vector<std::pair<std::string, std::string>> splitOptions(std::string_view text) {
    std::vector<std::pair<std::string, std::string>> options;
    std::istringstream words{std::string(text)};
    std::string word;
    while (words >> word) {
        const auto equals = word.find('=');
        if (equals == std::string::npos) {
            options.emplace_back(word, ""); // x265's flags: "wpp", "no-pmode"
        } else {
            options.emplace_back(word.substr(0, equals), word.substr(equals + 1));
        }
    }
    return options;
}

void append(std::string& parameters, const std::string& key, const std::string& value) {
    if (!parameters.empty()) {
        parameters += ':';
    }
    parameters += key + "=" + value;
}

// x264 prints its settings after its own adjustments; they are given back here in
// the names its parser takes. Psychovisual tuning is left off: with it on, x264
// lowers the chroma QP offset once more, and the printed offset already holds that.
std::optional<std::string> x264Parameters(const EncoderSettings& settings) {
    const auto is = [&](const char* key, const char* wanted) {
        const auto value = settings.value(key);
        return !value || *value == wanted;
    };
    if (!is("interlaced", "0") || !is("cqm", "0") || !is("intra_refresh", "0") ||
        !is("fake_interlaced", "0")) {
        return std::nullopt;
    }
    std::string parameters = "psy=0";
    static const std::vector<std::pair<const char*, const char*>> sameMeaning = {
        {"cabac", "cabac"},
        {"ref", "ref"},
        {"8x8dct", "8x8dct"},
        {"chroma_qp_offset", "chroma-qp-offset"},
        {"bluray_compat", "bluray-compat"},
        {"constrained_intra", "constrained-intra"},
        {"bframes", "bframes"},
        {"b_adapt", "b-adapt"},
        {"weightb", "weightb"},
        {"weightp", "weightp"},
        {"open_gop", "open-gop"},
        {"keyint", "keyint"},
        {"keyint_min", "min-keyint"},
        {"scenecut", "scenecut"},
        {"mbtree", "mbtree"},
        {"qcomp", "qcomp"},
        {"vbv_maxrate", "vbv-maxrate"},
        {"vbv_bufsize", "vbv-bufsize"},
        {"nal_hrd", "nal-hrd"},
    };
    for (const auto& [written, parsed] : sameMeaning) {
        if (const auto value = settings.value(written)) {
            append(parameters, parsed, *value);
        }
    }
    if (const auto pyramid = settings.value("b_pyramid")) {
        static const char* const names[] = {"none", "strict", "normal"};
        const int index = std::clamp(std::atoi(pyramid->c_str()), 0, 2);
        append(parameters, "b-pyramid", names[index]);
    }
    // "deblock=1:-1:-1": on, then the two offsets.
    if (const auto deblock = settings.value("deblock")) {
        const auto first = deblock->find(':');
        if (deblock->rfind("0", 0) == 0) {
            append(parameters, "no-deblock", "1");
        } else if (first != std::string::npos) {
            std::string offsets = deblock->substr(first + 1);
            std::replace(offsets.begin(), offsets.end(), ':', ',');
            append(parameters, "deblock", offsets);
        }
    }
    // The rate control decides the picture's initial QP, which the PPS carries.
    const std::string control = settings.value("rc").value_or("crf");
    if (control == "crf") {
        append(parameters, "crf", settings.value("crf").value_or("23"));
    } else if (control == "cqp") {
        append(parameters, "qp", settings.value("qp").value_or("23"));
    } else if (const auto bitrate = settings.value("bitrate")) {
        append(parameters, "bitrate", *bitrate);
    } else {
        return std::nullopt;
    }
    return parameters;
}

// x265 prints the video signal description even when it writes none; naming one of
// these values makes it write the description, so the defaults are left out.
bool isDefaultSignal(const std::string& key, const std::string& value) {
    static const std::vector<std::pair<std::string, std::string>> defaults = {
        {"videoformat", "5"}, {"range", "0"},       {"colorprim", "2"},
        {"transfer", "2"},    {"colormatrix", "2"}, {"overscan", "0"}};
    return std::find(defaults.begin(), defaults.end(), std::pair{key, value}) != defaults.end();
}

// x265 prints nearly every setting in its parser's own names; what belongs to the
// run (threads, input, statistics files, logging) is left to the encoder here. A few
// are printed in a shape its parser reads differently.
std::optional<std::string> x265Parameters(const EncoderSettings& settings) {
    const auto is = [&](const char* key, const char* wanted) {
        const auto value = settings.value(key);
        return !value || *value == wanted;
    };
    if (!is("bitdepth", "8") || !is("input-csp", "1") || !is("interlace", "0")) {
        return std::nullopt;
    }
    static const std::set<std::string> runOnly = {"cpuid",
                                                  "frame-threads",
                                                  "numa-pools",
                                                  "pools",
                                                  "log-level",
                                                  "input-csp",
                                                  "fps",
                                                  "input-res",
                                                  "total-frames",
                                                  "bitdepth",
                                                  "psnr",
                                                  "ssim",
                                                  "pmode",
                                                  "pme",
                                                  "stats-write",
                                                  "stats-read",
                                                  "zone-count",
                                                  "annexb",
                                                  "repeat-headers",
                                                  "rc",
                                                  "chromaloc",
                                                  "chromaloc-top",
                                                  "chromaloc-bottom",
                                                  "display-window",
                                                  "left",
                                                  "top",
                                                  "right",
                                                  "bottom",
                                                  "interlace",
                                                  "scenecut-aware-qp",
                                                  "conformance-window-offsets",
                                                  "analysis-reuse-level",
                                                  "analysis-save-reuse-level",
                                                  "analysis-load-reuse-level",
                                                  "scale-factor",
                                                  "refine-intra",
                                                  "refine-inter",
                                                  "refine-mv",
                                                  "refine-ctu-distortion",
                                                  "refine-analysis-type",
                                                  "copy-pic",
                                                  "ctu-info",
                                                  "svt",
                                                  "hist-threshold",
                                                  "cll",
                                                  "max-cll",
                                                  "master-display",
                                                  "dolby-vision-profile"};
    std::string parameters = "log-level=error";
    for (const auto& [key, value] : settings.options) {
        const std::string name = key.rfind("no-", 0) == 0 ? key.substr(3) : key;
        if (runOnly.count(name) != 0 || isDefaultSignal(key, value)) {
            continue;
        }
        // The parameter string separates settings with colons.
        std::string written = value.empty() ? "1" : value;
        std::replace(written.begin(), written.end(), ':', ',');
        append(parameters, key, written);
    }
    // "chromaloc=1 chromaloc-top=T chromaloc-bottom=B" is written back as the type.
    if (settings.value("chromaloc").value_or("0") != "0") {
        append(parameters, "chromaloc", settings.value("chromaloc-top").value_or("0"));
    }
    // "display-window=1 left=L top=T right=R bottom=B" likewise, as one list.
    if (settings.value("display-window").value_or("0") != "0") {
        append(parameters, "display-window",
               settings.value("left").value_or("0") + "," + settings.value("top").value_or("0") +
                   "," + settings.value("right").value_or("0") + "," +
                   settings.value("bottom").value_or("0"));
    }
    return parameters;
}

} // namespace

std::optional<std::string> EncoderSettings::value(const std::string& key) const {
    for (const auto& [name, value] : options) {
        if (name == key) {
            return value;
        }
    }
    return std::nullopt;
}

std::optional<EncoderSettings> findEncoderSettings(std::span<const std::uint8_t> bytes) {
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    for (const auto& [signature, encoder] :
         {std::pair{std::string_view("x264 - core "), SourceEncoder::x264},
          std::pair{std::string_view("x265 (build "), SourceEncoder::x265}}) {
        const auto at = text.find(signature);
        if (at == std::string_view::npos) {
            continue;
        }
        std::size_t end = at;
        while (end < bytes.size() && printable(bytes[end])) {
            ++end;
        }
        const std::string_view written = text.substr(at, end - at);
        const auto options = written.find(optionsMarker);
        if (options == std::string_view::npos) {
            return std::nullopt;
        }
        return EncoderSettings{encoder,
                               splitOptions(written.substr(options + optionsMarker.size()))};
    }
    return std::nullopt;
}

std::optional<std::string> encoderParameters(const EncoderSettings& settings) {
    return settings.encoder == SourceEncoder::x264 ? x264Parameters(settings)
                                                   : x265Parameters(settings);
}

} // namespace lumenvale::edit
