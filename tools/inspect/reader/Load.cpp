#include "Load.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace inspect {
namespace {

// A whole dumpsys of a phone with many cameras is a few megabytes.
constexpr size_t kMaxFileBytes = size_t{64} << 20;
constexpr size_t kChunk = 1 << 16;

bool anyOption(const DumpOptions& o) {
    return o.camera || o.frame || !o.statics.empty() || o.input;
}

}  // namespace

std::string readInputFile(const std::string& path) {
    const auto fail = [&](const std::string& what) { throw InputError(path + ": " + what); };
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored))
        fail("cannot open: " + std::string(std::strerror(EISDIR)));
    std::ifstream in(path, std::ios::binary);
    if (!in) fail("cannot open: " + std::string(std::strerror(errno)));
    std::string text;
    while (in) {
        const size_t at = text.size();
        text.resize(at + kChunk);
        in.read(text.data() + at, static_cast<std::streamsize>(kChunk));
        text.resize(at + static_cast<size_t>(in.gcount()));
        // Binary data shows in its first bytes: a NUL never appears in text.
        if (std::memchr(text.data() + at, '\0', text.size() - at) != nullptr) {
            fail("binary data, neither a capture description nor a camera metadata dump");
        }
        if (text.size() > kMaxFileBytes) fail("larger than 64 MiB, more than any dump");
    }
    if (in.bad()) fail("cannot read: " + std::string(std::strerror(errno)));
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) fail("empty file");
    return text;
}

bool isCaptureDescription(std::string_view text) {
    if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);  // a UTF-8 byte order mark
    const size_t first = text.find_first_not_of(" \t\r\n");
    return first != std::string_view::npos && text[first] == '{';
}

Capture loadFile(const std::string& path, const DumpOptions& options) {
    return loadText(readInputFile(path), path, options);
}

Capture loadText(const std::string& text, const std::string& path, const DumpOptions& options) {
    if (isCaptureDescription(text)) {
        if (anyOption(options)) {
            throw InputError(path +
                             ": a capture description; --camera, --frame, --static and "
                             "--input apply to dumps");
        }
        return parseCapture(text, path);
    }
    return captureFromDump(readDump(text, path), options);
}

}  // namespace inspect
