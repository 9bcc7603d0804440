// The text grammar that the readers of a device's camera text share: the
// scanners of a line, logcat's prefixes and time, and the value rows
// "[v v v ]" that Android prints for a metadata entry and for a tag monitor
// event, read into a little-endian payload.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "kvhost/Metadata.h"

namespace kvhost {
namespace loader {

inline bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

inline bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

inline bool startsWith(std::string_view s, std::string_view prefix) {
    return s.substr(0, prefix.size()) == prefix;
}

inline bool contains(std::string_view s, std::string_view part) {
    return s.find(part) != std::string_view::npos;
}

inline std::string_view trim(std::string_view s) {
    while (!s.empty() && (isBlank(s.front()) || s.front() == '\r')) s.remove_prefix(1);
    while (!s.empty() && (isBlank(s.back()) || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

// Small scanners over a line: each consumes what it matches at `p` and
// reports whether it matched. Every line of a file passes through them.
inline bool skipDigits(std::string_view s, size_t& p) {
    const size_t start = p;
    while (p < s.size() && isDigit(s[p])) ++p;
    return p > start;
}

inline bool skipChar(std::string_view s, size_t& p, char c) {
    if (p >= s.size() || s[p] != c) return false;
    ++p;
    return true;
}

inline bool skipBlanks(std::string_view s, size_t& p) {
    const size_t start = p;
    while (p < s.size() && isBlank(s[p])) ++p;
    return p > start;
}

// A whole number of `s` in `base`; false when anything else is there.
template <typename T>
bool parseNumber(std::string_view s, T* value, int base = 10) {
    if (s.empty()) return false;
    const char* end = s.data() + s.size();
    const auto [ptr, ec] = std::from_chars(s.data(), end, *value, base);
    return ec == std::errc() && ptr == end;
}

// A float is read as a float, so the printed digits round as the device's did.
template <typename Real>
bool parseReal(std::string_view s, Real* value) {
    if (s.empty()) return false;
    const char* end = s.data() + s.size();
    const auto [ptr, ec] = std::from_chars(s.data(), end, *value);
    return ec == std::errc() && ptr == end;
}

// The line cleaned of what copying adds (CR, a logcat prefix, indentation,
// Markdown fences, // comments); "" for a line that carries nothing.
std::string_view cleanDumpLine(std::string_view line);

// The camera of a section line "== Camera device <ID> dynamic info: ==",
// under which a dumpsys prints an open camera's requests, results and tag
// monitor; nullopt for any other line.
std::optional<std::string> dynamicInfoCamera(std::string_view line);

// The wall-clock time of a raw log line's logcat prefix in nanoseconds,
// counted from the start of its month and day ("MM-DD HH:MM:SS.mmm"): it
// grows along a log, but it is not the camera's boot-time clock.
std::optional<int64_t> logLineTime(std::string_view line);

// How a value row of a tag is read.
struct RowFormat {
    kvhost::TagType type = kvhost::TagType::Byte;
    const kvhost::TagInfo* names = nullptr;  // the Android tag whose enum names may be printed
    // Elements may be printed without a blank between them, as Android 13's
    // tag monitor prints enum names, bytes and floats: floats are cut after
    // their eight decimals, enum names by the tag's value names, and the
    // digits of bytes only when `count` says how many elements they are.
    bool joined = false;
    size_t count = 0;  // the entry's element count; 0 when not known
};

// "[v v v ]": the values are appended to `bytes` and counted in `values`;
// "" or what is wrong with the row (then `bytes` may hold part of the row).
std::string readRow(std::string_view row, const RowFormat& format, std::vector<uint8_t>& bytes,
                    size_t& values);

}  // namespace loader
}  // namespace kvhost
