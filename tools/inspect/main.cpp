// metautils-inspect: what every kvalgo2::MetaUtils getter returns for one
// capture, run off-device against the host stand-ins of the platform. The
// capture comes from a capture description or from a device's camera
// metadata dump.
#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <iostream>

#include "Report.h"
#include "Svg.h"
#include "kvhost/Capture.h"
#include "kvhost/LogCapture.h"

namespace {

// "<a><sep><b>" with two non-negative ints, as --static ID=N and --input WxH take them.
bool parsePair(const std::string& text, char sep, int* a, int* b) {
    const size_t at = text.find(sep);
    if (at == std::string::npos) return false;
    const auto one = [](const char* first, const char* last, int* v) {
        const auto [ptr, ec] = std::from_chars(first, last, *v);
        return first != last && ec == std::errc() && ptr == last && *v >= 0;
    };
    const char* s = text.data();
    return one(s, s + at, a) && one(s + at + 1, s + text.size(), b);
}

bool writeFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    out.close();
    return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "Shows what every kvalgo2::MetaUtils getter returns for a capture: result code, decoded "
        "output and, on request, the library's log lines. FILE is a capture description "
        "(docs/capture-format.md) or a camera metadata dump, such as the output of "
        "`adb shell dumpsys media.camera` (docs/device-dumps.md)."};
    std::string path;
    std::string svgPath;
    std::string savePath;
    bool json = false;
    bool logs = false;
    bool list = false;
    std::optional<int> camera;
    std::optional<int> frame;
    std::vector<std::string> statics;
    std::string input;
    app.add_option("file", path, "capture description (JSON) or camera metadata dump (text)")
        ->required();
    app.add_flag("--json", json, "print the report as JSON");
    app.add_flag("--logs", logs, "show the log lines of each call");
    app.add_option("--svg", svgPath, "draw the geometry of the capture into this SVG file");
    app.add_option("--camera", camera, "dump: the camera whose frame is read")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--frame", frame, "dump: the frame is block N alone (see --list)")
        ->check(CLI::PositiveNumber);
    app.add_option("--static", statics, "dump: ID=N, camera ID's static metadata is block N");
    app.add_option("--input", input, "dump: the input image size WxH (default: the active array)");
    app.add_flag("--list", list, "dump: list its metadata blocks and run nothing");
    app.add_option("--save-capture", savePath,
                   "dump: also write the capture built from it as a capture description");
    CLI11_PARSE(app, argc, argv);

    // Library lines go into the report, never straight to the terminal.
    kvhost::setLogEcho(false);
    const auto fail = [](const std::string& message) {
        std::cerr << "metautils-inspect: " << message << "\n";
        return 1;
    };
    const auto warn = [](const std::vector<std::string>& warnings) {
        for (const std::string& w : warnings) std::cerr << "warning: " << w << "\n";
    };
    kvhost::DumpOptions options;
    options.camera = camera;
    options.frame = frame;
    for (const std::string& s : statics) {
        int id = 0;
        int block = 0;
        if (!parsePair(s, '=', &id, &block) || block < 1) {
            return fail("--static " + s + ": expected ID=N, N a block number");
        }
        options.statics[static_cast<uint32_t>(id)] = block;
    }
    if (!input.empty()) {
        int w = 0;
        int h = 0;
        if (!parsePair(input, 'x', &w, &h) || w < 1 || h < 1) {
            return fail("--input " + input + ": expected WxH, both at least 1");
        }
        options.input.emplace(w, h);
    }
    if (list) {
        const kvhost::BlockList blocks = kvhost::listDumpBlocks(path);
        if (!blocks.error.empty()) return fail(blocks.error);
        warn(blocks.warnings);
        std::cout << blocks.text;
        return 0;
    }
    const kvhost::LoadResult loaded = kvhost::loadCapture(path, options, savePath);
    if (!loaded) return fail(loaded.error);
    warn(loaded.warnings);
    const kvhost::Capture& capture = *loaded.capture;
    const std::vector<inspect::CallRecord> calls = inspect::runGetters(capture);
    const std::string report = json ? inspect::jsonReport(capture, calls, logs).dump(2) + "\n"
                                    : inspect::textReport(capture, calls, logs);
    if (!svgPath.empty() && !writeFile(svgPath, inspect::drawGeometry(capture, calls))) {
        return fail(svgPath + ": cannot write");
    }
    std::cout << report;
    return 0;
}
