// Reading a capture description: JSON values that know where they are in the
// file, objects whose keys must all be understood, and integers with ranges.
// Every problem is thrown as an InputError whose text names the position
// ("frame.tags[3] \"kovani.flash.mode\": values[1]: expected int32 values").
#pragma once

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>

namespace kvhost {
namespace loader {

using Json = nlohmann::ordered_json;

// A bad capture description. The text does not name the file: the caller
// that knows it puts it in front.
class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The JSON text of a value. Bytes that are not UTF-8 (a device's vendor
// string, a file's name) become U+FFFD: JSON cannot hold them, and an
// output must not fail on them.
std::string jsonText(const Json& value, int indent = -1);

// Parses JSON text; a syntax error names its line and column.
Json parseJson(const std::string& text);

// A value and its position, as written in error messages.
class Node {
public:
    Node(const Json& value, std::string path, std::string separator = ".")
        : value_(value), path_(std::move(path)), separator_(std::move(separator)) {}

    const Json& json() const { return value_; }
    const std::string& path() const { return path_; }

    Node operator[](const char* key) const;
    Node operator[](size_t index) const;

    [[noreturn]] void fail(const std::string& message) const;

    // Checked reads; each fails with a message naming this position. An
    // integer is a JSON integer or a hexadecimal string ("0x1ff"); `what`
    // replaces "an integer from min to max" in the message.
    int64_t integer(int64_t min, int64_t max, const char* what = nullptr) const;
    int32_t int32() const;
    double number() const;
    bool boolean() const;
    const std::string& string() const;
    const Json& array() const;

private:
    const Json& value_;
    std::string path_;
    std::string separator_;  // between this position and a key below it
};

// An object whose keys are taken one by one; finish() rejects any key that
// nobody took, so a misspelt key is an error, not silently ignored.
class Fields {
public:
    explicit Fields(const Node& node);

    bool has(const char* key) const;
    Node need(const char* key);
    std::optional<Node> take(const char* key);
    const Node& node() const { return node_; }
    // Fails on the first key that is not in `keys`, before anything is
    // read: a misspelt section is reported as such, not as a missing one.
    void only(std::initializer_list<const char*> keys, const char* noun) const;
    void finish() const;

private:
    Node node_;
    std::set<std::string> taken_;
};

// Short text of a value for messages: the value itself when short.
std::string describe(const Json& value);

}  // namespace loader
}  // namespace kvhost
