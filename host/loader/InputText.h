// Reading what a user hands the tools: a file of any size, read once as a
// stream, or the bug report inside the zip that `adb bugreport` writes. Of a
// bug report only its camera text is kept: the camera service's dump
// (`DUMP OF SERVICE media.camera`) whole, and elsewhere the lines of camera
// metadata (metadata blocks, their entries and value rows, tag monitor
// events, as a HAL's log prints them); every other line is kept as an empty
// line, so that line numbers stay those of the file.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace kvhost {
namespace loader {

// The bytes of an input, shared by copies: a string, or the pages a file
// was read into (readInput).
class Text {
public:
    Text() = default;
    Text(std::string text);  // NOLINT(google-explicit-constructor): a string is a text
    Text(std::shared_ptr<const void> holder, std::string_view bytes)
        : holder_(std::move(holder)), view_(bytes) {}

    std::string_view view() const { return view_; }
    operator std::string_view() const { return view_; }  // NOLINT(google-explicit-constructor)

private:
    std::shared_ptr<const void> holder_;
    std::string_view view_;
};

struct InputText {
    Text text;
    std::string note;  // what was read of it, when not the whole file as it is
};

// Bounds that no real input reaches: a longer line, more lines, or a zip
// entry that expands past its bound is an error naming the file.
struct InputLimits {
    size_t lineBytes = size_t{16} << 20;
    size_t lines = size_t{100} << 20;
    size_t keptBytes = size_t{1} << 30;
    size_t entryBytes = size_t{8} << 30;
};

// The text of the file at `path`: its bytes, or for a zip the bug report's
// text inside it. Throws InputError naming the file: it cannot be read, is
// binary, empty, a zip without a bug report, or passes `limits`.
InputText readInput(const std::string& path, const InputLimits& limits = {});

// The same from bytes already in memory (for tests and fuzzing): a zip's
// bytes or a text.
InputText readInputBytes(std::string_view bytes, const std::string& path,
                         const InputLimits& limits = {});

}  // namespace loader
}  // namespace kvhost
