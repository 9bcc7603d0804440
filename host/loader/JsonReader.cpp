#include "JsonReader.h"

#include <cerrno>
#include <cstdlib>
#include <limits>

namespace kvhost {
namespace loader {

namespace {

// Deeper than any capture description goes; the parser's values nest by
// recursion, so a file nested thousands of levels deep is refused before it.
constexpr int kMaxDepth = 64;

void checkDepth(const std::string& text) {
    int depth = 0;
    size_t line = 1;
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\n') ++line;
        if (inString) {
            if (c == '\\') {
                ++i;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > kMaxDepth) {
                throw InputError("malformed JSON: nested more than " + std::to_string(kMaxDepth) +
                                 " levels deep at line " + std::to_string(line));
            }
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
}

}  // namespace

std::string jsonText(const Json& value, int indent) {
    return value.dump(indent, ' ', false, Json::error_handler_t::replace);
}

Json parseJson(const std::string& text) {
    checkDepth(text);
    try {
        return Json::parse(text);
    } catch (const Json::exception& e) {
        // Syntax errors, and numbers out of range ("1E6789"), which the
        // parser reports as its own kind of error.
        // "[json.exception.parse_error.101] parse error at line 3, column 5:
        // syntax error ...": the position is already in the text.
        const std::string what = e.what();
        const size_t start = what.find("] ");
        throw InputError("malformed JSON: " +
                         (start == std::string::npos ? what : what.substr(start + 2)));
    }
}

std::string describe(const Json& value) {
    std::string text = value.dump();
    return text.size() <= 40 ? text : text.substr(0, 37) + "...";
}

Node Node::operator[](const char* key) const {
    static const Json kAbsent;
    const Json& child = value_.is_object() && value_.contains(key) ? value_.at(key) : kAbsent;
    return Node(child, path_.empty() ? key : path_ + separator_ + key);
}

Node Node::operator[](size_t index) const {
    return Node(value_.at(index), path_ + "[" + std::to_string(index) + "]");
}

void Node::fail(const std::string& message) const {
    throw InputError(path_.empty() ? message : path_ + ": " + message);
}

int64_t Node::integer(int64_t min, int64_t max, const char* what) const {
    const auto expected = [&] {
        const std::string range = what != nullptr ? what
                                                  : "an integer from " + std::to_string(min) +
                                                        " to " + std::to_string(max);
        fail("expected " + range + ", got " + describe(value_));
    };
    int64_t v = 0;
    if (value_.is_number_unsigned()) {
        const uint64_t u = value_.get<uint64_t>();
        if (u > static_cast<uint64_t>(INT64_MAX)) expected();
        v = static_cast<int64_t>(u);
    } else if (value_.is_number_integer()) {
        v = value_.get<int64_t>();
    } else if (value_.is_string()) {
        const std::string& s = value_.get_ref<const std::string&>();
        const bool negative = !s.empty() && s[0] == '-';
        const std::string digits = s.substr(negative ? 1 : 0);
        if (digits.size() < 3 || digits[0] != '0' || (digits[1] != 'x' && digits[1] != 'X')) {
            expected();
        }
        char* end = nullptr;
        errno = 0;
        const unsigned long long u = std::strtoull(digits.c_str() + 2, &end, 16);
        if (*end != '\0' || errno != 0 || u > static_cast<unsigned long long>(INT64_MAX)) {
            expected();
        }
        v = negative ? -static_cast<int64_t>(u) : static_cast<int64_t>(u);
    } else {
        expected();
    }
    if (v < min || v > max) expected();
    return v;
}

int32_t Node::int32() const {
    return static_cast<int32_t>(
        integer(std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
}

double Node::number() const {
    if (!value_.is_number()) fail("expected a number, got " + describe(value_));
    return value_.get<double>();
}

bool Node::boolean() const {
    if (!value_.is_boolean()) fail("expected true or false, got " + describe(value_));
    return value_.get<bool>();
}

const std::string& Node::string() const {
    if (!value_.is_string()) fail("expected a string, got " + describe(value_));
    return value_.get_ref<const std::string&>();
}

const Json& Node::array() const {
    if (!value_.is_array()) fail("expected an array, got " + describe(value_));
    return value_;
}

Fields::Fields(const Node& node) : node_(node) {
    if (!node.json().is_object()) node.fail("expected an object, got " + describe(node.json()));
}

bool Fields::has(const char* key) const {
    return node_.json().contains(key);
}

Node Fields::need(const char* key) {
    if (!has(key)) node_.fail(std::string("missing key \"") + key + "\"");
    taken_.insert(key);
    return node_[key];
}

std::optional<Node> Fields::take(const char* key) {
    if (!has(key)) return std::nullopt;
    taken_.insert(key);
    return node_[key];
}

void Fields::only(std::initializer_list<const char*> keys, const char* noun) const {
    for (const auto& item : node_.json().items()) {
        bool known = false;
        for (const char* key : keys) known = known || item.key() == key;
        if (!known) node_.fail(std::string("unknown ") + noun + " \"" + item.key() + "\"");
    }
}

void Fields::finish() const {
    for (const auto& item : node_.json().items()) {
        if (taken_.count(item.key()) == 0) node_.fail("unknown key \"" + item.key() + "\"");
    }
}

}  // namespace loader
}  // namespace kvhost
