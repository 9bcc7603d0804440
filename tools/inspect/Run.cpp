#include "Run.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <exception>
#include <new>

#include "JsonReader.h"
#include "Load.h"
#include "Report.h"
#include "Svg.h"
#include "kvhost/Capture.h"
#include "kvhost/LogCapture.h"

namespace inspect {
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

struct Arguments {
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
};

// A refusal of the run: its message, without the program's name.
struct Refusal {
    std::string message;
};

kvhost::DumpOptions dumpOptions(const Arguments& a) {
    kvhost::DumpOptions options;
    options.camera = a.camera;
    options.frame = a.frame;
    for (const std::string& s : a.statics) {
        int id = 0;
        int block = 0;
        if (!parsePair(s, '=', &id, &block) || block < 1) {
            throw Refusal{"--static " + s + ": expected ID=N, N a block number"};
        }
        options.statics[static_cast<uint32_t>(id)] = block;
    }
    if (!a.input.empty()) {
        int w = 0;
        int h = 0;
        if (!parsePair(a.input, 'x', &w, &h) || w < 1 || h < 1) {
            throw Refusal{"--input " + a.input + ": expected WxH, both at least 1"};
        }
        options.input.emplace(w, h);
    }
    return options;
}

// Everything the run prints on standard output, made whole before any of it
// is printed; the files it writes, written as they are made. The warnings
// are collected into `warnings`.
std::string produce(const Arguments& a, std::vector<std::string>& warnings) {
    const kvhost::DumpOptions options = dumpOptions(a);
    if (a.list) {
        kvhost::BlockList blocks = kvhost::listDumpBlocks(a.path);
        if (!blocks.error.empty()) throw Refusal{blocks.error};
        warnings = std::move(blocks.warnings);
        return std::move(blocks.text);
    }
    const kvhost::LoadResult loaded = kvhost::loadCapture(a.path, options, a.savePath);
    if (!loaded) throw Refusal{loaded.error};
    warnings = loaded.warnings;
    const kvhost::Capture& capture = *loaded.capture;
    const std::vector<CallRecord> calls = runGetters(capture);
    std::string report =
        a.json ? kvhost::loader::jsonText(jsonReport(capture, calls, a.logs), 2) + "\n"
               : textReport(capture, calls, a.logs);
    if (!a.svgPath.empty()) {
        kvhost::loader::writeFileAtomically(a.svgPath, drawGeometry(capture, calls));
    }
    return report;
}

}  // namespace

int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    CLI::App app{
        "Shows what every kvalgo2::MetaUtils getter returns for a capture: result code, decoded "
        "output and, on request, the library's log lines. FILE is a capture description "
        "(docs/capture-format.md) or a camera metadata dump, such as the output of "
        "`adb shell dumpsys media.camera` (docs/device-dumps.md)."};
    Arguments a;
    app.add_option("file", a.path, "capture description (JSON) or camera metadata dump (text)")
        ->required();
    CLI::Option* json = app.add_flag("--json", a.json, "print the report as JSON");
    CLI::Option* logs = app.add_flag("--logs", a.logs, "show the log lines of each call");
    CLI::Option* svg =
        app.add_option("--svg", a.svgPath, "draw the geometry of the capture into this SVG file");
    app.add_option("--camera", a.camera, "dump: the camera whose frame is read")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--frame", a.frame, "dump: the frame is block N alone (see --list)")
        ->check(CLI::PositiveNumber);
    app.add_option("--static", a.statics, "dump: ID=N, camera ID's static metadata is block N");
    app.add_option("--input", a.input,
                   "dump: the input image size WxH (default: the active array)");
    CLI::Option* save =
        app.add_option("--save-capture", a.savePath,
                       "dump: also write the capture built from it as a capture description");
    // The list runs no getter: there is no report, drawing or capture to give.
    app.add_flag("--list", a.list, "dump: list its metadata blocks and run nothing")
        ->excludes(json)
        ->excludes(logs)
        ->excludes(svg)
        ->excludes(save);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return app.exit(e, out, err);  // --help
        err << "metautils-inspect: " << e.what() << " (--help lists the options)\n";
        return 1;
    }

    // Library lines go into the report, never straight to the terminal.
    kvhost::setLogEcho(false);
    std::string text;
    std::vector<std::string> warnings;
    std::string problem;
    // Whatever goes wrong while reading, running or writing ends the run
    // here with one line naming the file; nothing has been printed yet.
    try {
        text = produce(a, warnings);
    } catch (const Refusal& r) {
        problem = r.message;
    } catch (const kvhost::loader::InputError& e) {
        problem = e.what();
    } catch (const std::bad_alloc&) {
        problem = a.path + ": out of memory";
    } catch (const std::exception& e) {
        problem = a.path + ": " + e.what();
    }
    if (!problem.empty()) {
        err << "metautils-inspect: " << problem << "\n";
        return 1;
    }
    for (const std::string& w : warnings) err << "warning: " << w << "\n";
    out << text << std::flush;
    if (!out) {
        err << "metautils-inspect: " << a.path << ": cannot print the report: standard output "
            << "is not writable\n";
        return 1;
    }
    return 0;
}

}  // namespace inspect
