// metautils-inspect: what every kvalgo2::MetaUtils getter returns for one
// capture, run off-device against the host stand-ins of the platform.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <iostream>

#include "Capture.h"
#include "Report.h"
#include "Svg.h"
#include "kvhost/LogCapture.h"

int main(int argc, char** argv) {
    CLI::App app{
        "Shows what every kvalgo2::MetaUtils getter returns for a capture: result code, decoded "
        "output and, on request, the library's log lines. The capture description format is "
        "in docs/capture-format.md."};
    std::string capturePath;
    std::string svgPath;
    bool json = false;
    bool logs = false;
    app.add_option("capture", capturePath, "capture description (JSON)")->required();
    app.add_flag("--json", json, "print the report as JSON");
    app.add_flag("--logs", logs, "show the log lines of each call");
    app.add_option("--svg", svgPath, "draw the geometry of the capture into this SVG file");
    CLI11_PARSE(app, argc, argv);

    // Library lines go into the report, never straight to the terminal.
    kvhost::setLogEcho(false);
    std::string report;
    std::string svg;
    try {
        const inspect::Capture capture = inspect::loadCapture(capturePath);
        const inspect::Installed installed = inspect::installCapture(capture);
        const std::vector<inspect::CallRecord> calls = inspect::runGetters(capture, installed);
        report = json ? inspect::jsonReport(capture, calls, logs).dump(2) + "\n"
                      : inspect::textReport(capture, calls, logs);
        if (!svgPath.empty()) svg = inspect::drawGeometry(capture, calls);
    } catch (const inspect::InputError& e) {
        std::cerr << "metautils-inspect: " << e.what() << "\n";
        return 1;
    }
    if (!svgPath.empty()) {
        std::ofstream out(svgPath, std::ios::binary);
        out << svg;
        out.close();
        if (!out) {
            std::cerr << "metautils-inspect: " << svgPath << ": cannot write\n";
            return 1;
        }
    }
    std::cout << report;
    return 0;
}
