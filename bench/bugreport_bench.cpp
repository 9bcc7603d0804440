// Bug reports as `adb bugreport` hands them over, at the size of today's
// phones: 200 MB of logcat lines with the camera service's dump (the sample
// dump) in the middle, as text and as the zip (the text deflated, the entry
// named as phones name it). metautils-inspect lists the dump's blocks of
// each, in a child; the figures are ratios of processor time to `grep -c`
// over the text (`grep -c RES:`, as for sessions) in the same
// run, targets 3 and 6. KVBENCH_BUGREPORT_MB
// makes the report smaller (the test command's quick pass).
#include <archive.h>
#include <archive_entry.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "Child.h"
#include "Ratios.h"
#include "Scene.h"

namespace kvbench {
namespace {

size_t ReportBytes() {
    const char* mb = std::getenv("KVBENCH_BUGREPORT_MB");
    return (mb != nullptr && std::atoll(mb) > 0 ? std::atoll(mb) : 200) << 20;
}

std::string TempPath(const std::string& name) {
    return (std::filesystem::temp_directory_path() / name).string();
}

// Logcat lines of other services until half the size, the camera dump, then
// more lines to the size.
std::string ReportText() {
    std::ifstream in(std::string(KVBENCH_SAMPLES_DIR) + "/dumpsys-camera.txt", std::ios::binary);
    std::ostringstream dump;
    dump << in.rdbuf();
    const char* const tags[] = {"ActivityManager", "WindowManager", "PackageManager",
                                "SurfaceFlinger",  "audioserver",   "BatteryStats"};
    std::minstd_rand random(1);
    const auto below = [&](size_t n) { return static_cast<unsigned>(random() % n); };
    std::string text =
        "========================================================\n"
        "== dumpstate: 2026-11-25 10:00:00\n"
        "========================================================\n";
    const size_t size = ReportBytes();
    text.reserve(size + dump.str().size() + 4096);
    char line[160];
    bool camera = false;
    for (unsigned n = 0; text.size() < size; ++n) {
        if (!camera && text.size() > size / 2) {
            text +=
                "-------------------------------------------------------------------------\n"
                "DUMP OF SERVICE media.camera:\n" +
                dump.str() +
                "--------- 0.052s was the duration of dumpsys media.camera, ending at: "
                "2026-11-25 10:00:05\n";
            camera = true;
        }
        const int length = std::snprintf(
            line, sizeof line,
            "11-25 10:%02u:%02u.%03u  1000  %u  %u I %s: event %u value=%u state=running\n",
            n / 60000 % 60, n / 1000 % 60, n % 1000, 100 + below(9900), 100 + below(9900),
            tags[below(std::size(tags))], n, below(1u << 20));
        text.append(line, static_cast<size_t>(length));
    }
    return text;
}

const std::string& TextPath() {
    static const std::string path = [] {
        const std::string p = TempPath("metautils_bench_bugreport.txt");
        std::ofstream(p, std::ios::binary) << ReportText();
        std::atexit([] { std::remove(TextPath().c_str()); });
        return p;
    }();
    return path;
}

// The text inside a zip as bugreport-<device>-<build>-<date>.txt, deflated.
const std::string& ZipPath() {
    static const std::string path = [] {
        const std::string p = TempPath("metautils_bench_bugreport.zip");
        std::ifstream in(TextPath(), std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        const std::string bytes = text.str();
        archive* zip = archive_write_new();
        archive_write_set_format_zip(zip);
        archive_write_open_filename(zip, p.c_str());
        archive_entry* entry = archive_entry_new();
        archive_entry_set_pathname(entry, "bugreport-sdk_phone64-TP1A.220624.014-2026-11-25.txt");
        archive_entry_set_size(entry, static_cast<la_int64_t>(bytes.size()));
        archive_entry_set_filetype(entry, AE_IFREG);
        archive_entry_set_perm(entry, 0644);
        archive_write_header(zip, entry);
        archive_write_data(zip, bytes.data(), bytes.size());
        archive_entry_free(entry);
        archive_write_close(zip);
        archive_write_free(zip);
        std::atexit([] { std::remove(ZipPath().c_str()); });
        return p;
    }();
    return path;
}

void GrepReport(benchmark::State& state) {
    // Status 1 is "no line matched", not a failure.
    const std::string command = "grep -c RES: " + TextPath() + " > /dev/null; [ $? -le 1 ]";
    ChildTimer timer(state);
    for (auto _ : state) {
        if (!timer.add(RunCommand(command), "grep failed")) return;
    }
}

void ListReport(benchmark::State& state, const std::string& (*path)()) {
    const std::string out = TempPath("metautils_bench_bugreport.out");
    ChildTimer timer(state);
    for (auto _ : state) {
        if (!timer.add(RunInspect({path(), "--list"}, out), "the run failed")) return;
    }
    std::remove(out.c_str());
}

}  // namespace

void RegisterBugReportBenchmarks() {
    const std::string name = "bugreport/200 MB/";
    Register(name + "grep -c", GrepReport)->UseManualTime()->Unit(benchmark::kMillisecond);
    Register(name + "--list of the text", [](benchmark::State& s) { ListReport(s, TextPath); })
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    Register(name + "--list of the zip", [](benchmark::State& s) { ListReport(s, ZipPath); })
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    // Google Benchmark names a run with manual time so.
    AddRatio({"a 200 MB bug report, its camera dump listed / grep -c RES:",
              name + "--list of the text/manual_time", name + "grep -c/manual_time", 3, ""});
    AddRatio({"the same inside the zip / grep -c RES: over the text",
              name + "--list of the zip/manual_time", name + "grep -c/manual_time", 6, ""});
}

}  // namespace kvbench
