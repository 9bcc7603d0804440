// The tool's paths: reading a 5 MB device dump of 40 metadata blocks (the
// sample dump's header and open camera, with the static characteristics of
// 19 cameras and their physical cameras generated between), and
// metautils-inspect's whole run over one capture description. Absolute
// times: there is no bare-container floor to hold them against.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "Dump.h"
#include "JsonReader.h"
#include "Ratios.h"
#include "Report.h"
#include "Scene.h"
#include "kvhost/Capture.h"

namespace kvbench {
namespace {

constexpr int kCameras = 19;  // two blocks each, and the sample's two of the open camera
constexpr int kExpectedBlocks = 2 * kCameras + 2;
constexpr int kRows = 1300;  // rows of each of the three stream tables: ~130 kB a block

// One block of static characteristics with three large stream tables.
void AppendStaticBlock(std::string& out) {
    const std::string rows = std::to_string(4 * kRows);
    out +=
        "      Dumping camera metadata array: 6 / 6 entries, 512 / 1024 bytes of extra data.\n"
        "        Version: 1, Flags: 00000000\n"
        "        android.lens.info.shadingMapSize (90006): int32[2]\n"
        "          [17 13 ]\n";
    out += "        android.scaler.availableStreamConfigurations (d000a): int32[" + rows + "]\n";
    for (int i = 0; i < kRows; ++i) {
        out += "          [" + std::to_string(32 + i % 4) + " " + std::to_string(640 + 16 * i) +
               " " + std::to_string(480 + 12 * i) + (i % 7 == 0 ? " INPUT ]\n" : " OUTPUT ]\n");
    }
    for (const char* table :
         {"availableMinFrameDurations (d000b)", "availableStallDurations (d000c)"}) {
        out += std::string("        android.scaler.") + table + ": int64[" + rows + "]\n";
        for (int i = 0; i < kRows; ++i) {
            out += "          [" + std::to_string(32 + i % 4) + " " + std::to_string(640 + 16 * i) +
                   " " + std::to_string(480 + 12 * i) + " " + std::to_string(33333333 + 1000 * i) +
                   " ]\n";
        }
    }
    out +=
        "        android.sensor.info.activeArraySize (f0000): int32[4]\n"
        "          [0 0 4000 3000 ]\n"
        "        android.sensor.info.colorFilterArrangement (f0002): byte[1]\n"
        "          [RGGB ]\n";
}

std::string ReadSample(const char* name) {
    std::ifstream in(std::string(KVBENCH_SAMPLES_DIR) + "/" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The sample dump with its cameras' static sections replaced by generated ones.
const std::string& BigDump() {
    static const std::string text = [] {
        const std::string sample = ReadSample("dumpsys-camera.txt");
        const size_t staticAt = sample.find("== Camera HAL device");
        const size_t dynamicAt = sample.find("== Camera device 0 dynamic info");
        if (staticAt == std::string::npos || dynamicAt == std::string::npos) return std::string();
        std::string out = sample.substr(0, staticAt);
        for (int camera = 0; camera < kCameras; ++camera) {
            out += "== Camera HAL device device@3.7/internal/" + std::to_string(camera) +
                   " (v3.7) static information: ==\n"
                   "  Resource cost: 100\n"
                   "  Conflicting devices: None\n"
                   "  API2 camera characteristics:\n";
            AppendStaticBlock(out);
            out += "    Physical camera " + std::to_string(100 + camera) + " characteristics:\n";
            AppendStaticBlock(out);
            out += "\n";
        }
        out += sample.substr(dynamicAt);
        return out;
    }();
    return text;
}

std::string Megabytes(size_t bytes) {
    char text[64];
    std::snprintf(text, sizeof text, "%.1f MB, %d blocks", static_cast<double>(bytes) / 1e6,
                  kExpectedBlocks);
    return text;
}

void ReadDump(benchmark::State& state) {
    const std::string& text = BigDump();
    try {
        const kvhost::loader::Dump dump = kvhost::loader::readDump(text, "generated");
        if (!Expect(state,
                    dump.blocks.size() == kExpectedBlocks && dump.blocks[0].entries.size() == 6,
                    "the generated dump did not read whole")) {
            return;
        }
        for (auto _ : state) benchmark::DoNotOptimize(kvhost::loader::readDump(text, "generated"));
    } catch (const kvhost::loader::InputError& e) {
        state.SkipWithError(e.what());
        return;
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
    state.SetLabel(Megabytes(text.size()));
}

// From the file to the capture, as a plug-in test loads it: read, split,
// resolve the tags, choose the frame and the static metadata, build the
// containers and register them.
void LoadDumpFile(benchmark::State& state) {
    const std::string& text = BigDump();
    const std::string path =
        (std::filesystem::temp_directory_path() / "metautils_bench_dump.txt").string();
    {
        std::ofstream out(path, std::ios::binary);
        out << text;
    }
    const kvhost::LoadResult first = kvhost::loadCapture(path);
    if (Expect(state, first && first.capture->frame->size() > 0,
               first ? "no frame in the dump" : first.error.c_str())) {
        for (auto _ : state) benchmark::DoNotOptimize(kvhost::loadCapture(path));
    }
    std::remove(path.c_str());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
    state.SetLabel(Megabytes(text.size()));
}

// `metautils-inspect samples/main-faces.json` in process: load, install,
// every getter with its log lines, the text report.
void InspectCapture(benchmark::State& state) {
    const std::string path = std::string(KVBENCH_SAMPLES_DIR) + "/main-faces.json";
    for (auto _ : state) {
        const kvhost::LoadResult loaded = kvhost::loadCapture(path);
        if (!loaded) {
            state.SkipWithError(loaded.error.c_str());
            break;
        }
        const std::vector<inspect::CallRecord> calls = inspect::runGetters(*loaded.capture);
        benchmark::DoNotOptimize(inspect::textReport(*loaded.capture, calls, false));
    }
    // The capture replaced the scene's static metadata and adapter script.
    Install(scene());
}

}  // namespace

void RegisterCaptureBenchmarks() {
    Register("capture/readDump, 5 MB", ReadDump)->Unit(benchmark::kMillisecond);
    Register("capture/loadCapture, 5 MB dump", LoadDumpFile)->Unit(benchmark::kMillisecond);
    Register("capture/metautils-inspect main-faces.json", InspectCapture)
        ->Unit(benchmark::kMillisecond);
}

}  // namespace kvbench
