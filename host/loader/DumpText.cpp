#include "DumpText.h"

#include <cstring>

#include "TagPayload.h"

namespace kvhost {
namespace loader {
namespace {

using kvhost::TagType;

// A row of byte values holds at most this many: Android prints 16 a line.
constexpr size_t kBytesPerRow = 16;

// logcat's time: "MM-DD HH:MM:SS.mmm", or with the year in front.
bool skipLogTime(std::string_view s, size_t& p) {
    size_t q = p;
    if (!skipDigits(s, q) || !skipChar(s, q, '-') || !skipDigits(s, q)) return false;
    if (skipChar(s, q, '-') && !skipDigits(s, q)) return false;
    if (!skipBlanks(s, q) || !skipDigits(s, q) || !skipChar(s, q, ':') || !skipDigits(s, q) ||
        !skipChar(s, q, ':') || !skipDigits(s, q)) {
        return false;
    }
    if (skipChar(s, q, '.') && !skipDigits(s, q)) return false;
    p = q;
    return true;
}

bool isLogLevel(char c) {
    return c != '\0' && std::strchr("VDIWEFS", c) != nullptr;
}

// threadtime's "[uid] pid tid L tag: ".
bool skipThreadTag(std::string_view s, size_t& p) {
    size_t q = p;
    int numbers = 0;
    while (skipDigits(s, q)) {
        ++numbers;
        if (!skipBlanks(s, q)) return false;
    }
    if (numbers < 2 || q + 1 >= s.size() || !isLogLevel(s[q]) || !isBlank(s[q + 1])) return false;
    const size_t colon = s.find(": ", q + 2);
    if (colon == std::string_view::npos) return false;
    p = colon + 2;
    return true;
}

// brief's and time's "L/tag( pid): ".
bool skipBriefTag(std::string_view s, size_t& p) {
    if (p + 1 >= s.size() || !isLogLevel(s[p]) || s[p + 1] != '/') return false;
    const size_t close = s.find("): ", p + 2);
    if (close == std::string_view::npos) return false;
    const size_t open = s.rfind('(', close);
    if (open == std::string_view::npos || open < p + 2) return false;
    size_t q = open + 1;
    skipBlanks(s, q);
    if (!skipDigits(s, q) || q != close) return false;
    p = close + 3;
    return true;
}

// One value token of a byte, int32, int64, float or double entry.
std::string appendToken(const RowFormat& f, std::string_view token, std::vector<uint8_t>& bytes) {
    const TagType type = f.type;
    if (type == TagType::Float || type == TagType::Double) {
        float fl = 0;
        double d = 0;
        const bool read = type == TagType::Float ? parseReal(token, &fl) : parseReal(token, &d);
        if (!read) return "\"" + std::string(token) + "\" is not a number";
        if (type == TagType::Float) {
            append(bytes, fl);
        } else {
            append(bytes, d);
        }
        return "";
    }
    if (type == TagType::Int64) {
        int64_t v = 0;
        if (!parseNumber(token, &v)) return "\"" + std::string(token) + "\" is not an int64 value";
        append(bytes, v);
        return "";
    }
    int64_t v = 0;
    if (!parseNumber(token, &v)) {
        const kvhost::EnumValue* named =
            f.names != nullptr ? kvhost::findEnum(*f.names, token) : nullptr;
        if (named == nullptr) {
            return "\"" + std::string(token) + "\" is neither a number nor a value name of the tag";
        }
        v = named->value;
    }
    if (type == TagType::Byte) {
        if (v < 0 || v > 255) return std::string(token) + " is out of a byte's range";
        append(bytes, static_cast<uint8_t>(v));
    } else {
        if (v < INT32_MIN || v > INT32_MAX) return std::string(token) + " is out of int32's range";
        append(bytes, static_cast<int32_t>(v));
    }
    return "";
}

// "(numerator / denominator)" at s[p].
bool appendRational(std::string_view s, size_t& p, std::vector<uint8_t>& bytes) {
    size_t q = p;
    // An optionally signed int32 between blanks.
    const auto number = [&](int32_t* v) {
        skipBlanks(s, q);
        const size_t start = q;
        skipChar(s, q, '-');
        if (!skipDigits(s, q) || !parseNumber(s.substr(start, q - start), v)) return false;
        skipBlanks(s, q);
        return true;
    };
    int32_t n = 0;
    int32_t d = 0;
    if (!skipChar(s, q, '(') || !number(&n) || !skipChar(s, q, '/') || !number(&d) ||
        !skipChar(s, q, ')')) {
        return false;
    }
    append(bytes, n);
    append(bytes, d);
    p = q;
    return true;
}

// The cuts of `token` into value names of `tag`: the first two, which is
// enough to tell one from many.
std::vector<std::vector<std::string_view>> splitNames(const kvhost::TagInfo& tag,
                                                      std::string_view token) {
    std::vector<std::vector<std::string_view>> splits;
    std::vector<std::string_view> names;
    const auto follow = [&](const auto& self, size_t at) -> void {
        if (at == token.size()) return splits.push_back(names);
        for (const kvhost::EnumValue& e : tag.enums) {
            if (splits.size() == 2 || token.compare(at, e.name.size(), e.name) != 0) continue;
            names.push_back(token.substr(at, e.name.size()));
            self(self, at + e.name.size());
            names.pop_back();
        }
    };
    follow(follow, 0);
    return splits;
}

// A token that may hold several elements printed without a blank between
// them; `last` when nothing follows it in its row.
std::string appendJoined(const RowFormat& f, std::string_view token, bool last,
                         std::vector<uint8_t>& bytes, size_t& values) {
    // Each element's value appended, without a list of them.
    const auto one = [&](std::string_view piece) {
        std::string problem = appendToken(f, piece, bytes);
        if (problem.empty()) ++values;
        return problem;
    };
    bool digits = true;
    for (const char c : token) digits = digits && isDigit(c);
    if (f.type == TagType::Float || f.type == TagType::Double) {
        // "%0.8f" without a blank: each value ends eight digits after its point.
        for (size_t at = 0; at < token.size();) {
            const size_t point = token.find('.', at);
            const size_t end =
                point == std::string_view::npos ? token.size() : std::min(token.size(), point + 9);
            if (std::string problem = one(token.substr(at, end - at)); !problem.empty()) {
                return problem;
            }
            at = end;
        }
        return "";
    }
    if (f.type == TagType::Byte && digits && token.size() > 1 && last) {
        // Bytes printed as "%hhu" with nothing between them: "10" is the
        // byte 10 or the bytes 1 and 0, told apart only by the count.
        const size_t expected = f.count > values ? std::min(kBytesPerRow, f.count - values) : 0;
        if (expected == 1) return one(token);
        if (expected != token.size()) {
            return "the joined digits \"" + std::string(token) + "\" read as bytes only when " +
                   "the tag's element count is known and equals the digit count";
        }
        for (size_t i = 0; i < token.size(); ++i) {
            if (std::string problem = one(token.substr(i, 1)); !problem.empty()) return problem;
        }
        return "";
    }
    if (digits || token[0] == '-' || f.names == nullptr ||
        kvhost::findEnum(*f.names, token) != nullptr) {
        return one(token);
    }
    const auto splits = splitNames(*f.names, token);
    if (splits.size() != 1) {
        return "\"" + std::string(token) + "\" is " +
               (splits.empty() ? "neither a number nor value names of the tag"
                               : "value names of the tag cut in 2 or more ways");
    }
    for (const std::string_view piece : splits[0]) {
        if (std::string problem = one(piece); !problem.empty()) return problem;
    }
    return "";
}

}  // namespace

std::string_view cleanDumpLine(std::string_view line) {
    std::string_view s = trim(line);
    size_t p = 0;
    if (skipLogTime(s, p)) {
        skipBlanks(s, p);
        if (!skipThreadTag(s, p) && !skipBriefTag(s, p)) p = 0;
    } else {
        skipBriefTag(s, p);
    }
    s = trim(s.substr(p));
    if (startsWith(s, "```") || startsWith(s, "~~~")) return {};
    const size_t comment = s.find("//");
    if (comment != std::string_view::npos) s = trim(s.substr(0, comment));
    return s;
}

std::optional<std::string> dynamicInfoCamera(std::string_view s) {
    constexpr std::string_view kDevice = "Camera device ";
    if (!startsWith(s, "==")) return std::nullopt;
    const size_t at = s.find(kDevice);
    if (at == std::string_view::npos || !contains(s, "dynamic info")) return std::nullopt;
    size_t p = at + kDevice.size();
    const size_t start = p;
    while (p < s.size() && !isBlank(s[p]) && s[p] != ':') ++p;
    return std::string(s.substr(start, p - start));
}

std::optional<int64_t> logLineTime(std::string_view line) {
    const std::string_view s = trim(line);
    size_t end = 0;
    if (!skipLogTime(s, end)) return std::nullopt;
    // The digit runs of "[YYYY-]MM-DD HH:MM:SS[.fraction]".
    std::vector<std::string_view> runs;
    for (size_t p = 0; p < end;) {
        const size_t start = p;
        skipDigits(s, p);
        runs.push_back(s.substr(start, p - start));
        while (p < end && !isDigit(s[p])) ++p;
    }
    const bool fraction = s.substr(0, end).find('.') != std::string_view::npos;
    const size_t first = runs.size() - (fraction ? 1 : 0) == 6 ? 1 : 0;  // the year dropped
    // Each field as a device prints it, two digits: more would be no time
    // of a log line, and could overflow the nanoseconds.
    int64_t v[5] = {};
    for (size_t i = 0; i < 5; ++i) parseNumber(runs[first + i].substr(0, 2), &v[i]);
    int64_t nanos = 0;
    if (fraction) {
        const std::string_view digits = runs.back().substr(0, 9);
        parseNumber(digits, &nanos);
        for (size_t i = digits.size(); i < 9; ++i) nanos *= 10;
    }
    const int64_t days = v[0] * 31 + v[1];
    return (((days * 24 + v[2]) * 60 + v[3]) * 60 + v[4]) * 1000000000 + nanos;
}

std::string readRow(std::string_view row, const RowFormat& format, std::vector<uint8_t>& bytes,
                    size_t& values) {
    const size_t close = row.rfind(']');
    if (row.empty() || row[0] != '[' || close == std::string_view::npos) {
        return "value row without its closing \"]\"";
    }
    if (!trim(row.substr(close + 1)).empty()) return "text after the value row";
    const std::string_view s = row.substr(1, close - 1);
    size_t p = 0;
    while (true) {
        skipBlanks(s, p);
        if (p >= s.size()) return "";
        if (format.type == TagType::Rational) {
            if (!appendRational(s, p, bytes)) {
                return "\"" + std::string(trim(s.substr(p))) + "\" is not a rational (n / d)";
            }
        } else if (s[p] == '(') {
            // A label after a value, "[0 (mode) 1 (transform) ]": not a value.
            const size_t end = s.find(')', p);
            if (end == std::string_view::npos) return "unclosed label \"(\"";
            p = end + 1;
            continue;
        } else {
            const size_t start = p;
            while (p < s.size() && !isBlank(s[p])) ++p;
            const std::string_view token = s.substr(start, p - start);
            if (format.joined) {
                const std::string problem =
                    appendJoined(format, token, p == s.size(), bytes, values);
                if (!problem.empty()) return problem;
                continue;
            }
            const std::string problem = appendToken(format, token, bytes);
            if (!problem.empty()) return problem;
        }
        ++values;
    }
}

}  // namespace loader
}  // namespace kvhost
