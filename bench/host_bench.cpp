// The host container itself: find by id and by name, and the name lookup of
// the tag table against a linear scan over every registered name (Android's
// whole table and the vendor tags), both walking the same names in turn.
#include <cstring>
#include <string>
#include <vector>

#include "MetaDefs.h"
#include "Ratios.h"
#include "Scene.h"

namespace kvbench {
namespace {

void FindById(benchmark::State& state) {
    const std::shared_ptr<KvMetadata> md = scene().frame;
    for (auto _ : state) {
        benchmark::DoNotOptimize(md->find(kvalgo2::tag::ANDROID_SENSOR_SENSITIVITY));
    }
}

void FindByName(benchmark::State& state) {
    const std::shared_ptr<KvMetadata> md = scene().frame;
    for (auto _ : state) benchmark::DoNotOptimize(md->find("kovani.thermal.thermalLevel"));
}

const std::vector<kvhost::TagInfo>& AllTags() {
    static const std::vector<kvhost::TagInfo> tags = kvhost::knownTags();
    return tags;
}

// What a table without an index would do: compare the name with each entry.
__attribute__((noinline)) int ScanForName(const std::vector<kvhost::TagInfo>& tags,
                                          const char* name, uint32_t* id) {
    for (const kvhost::TagInfo& t : tags) {
        if (std::strcmp(t.name.c_str(), name) == 0) {
            *id = t.id;
            return 0;
        }
    }
    return -2;
}

// Looks up every registered name in turn with `lookup`.
template <int (*Lookup)(const std::vector<kvhost::TagInfo>&, const char*, uint32_t*)>
void EveryName(benchmark::State& state) {
    const std::vector<kvhost::TagInfo>& tags = AllTags();
    size_t next = 0;
    for (auto _ : state) {
        uint32_t id = 0;
        const kvhost::TagInfo& want = tags[next];
        if (Lookup(tags, want.name.c_str(), &id) != 0 || id != want.id) {
            state.SkipWithError("a registered name was not found");
            break;
        }
        next = next + 1 == tags.size() ? 0 : next + 1;
    }
    state.SetLabel(std::to_string(tags.size()) + " names");
}

int TableLookup(const std::vector<kvhost::TagInfo>&, const char* name, uint32_t* id) {
    return KvMetadata::getTagFromName(name, id);
}

}  // namespace

void RegisterHostBenchmarks() {
    scene();
    Register("host/find by id", FindById);
    Register("host/find by name", FindByName);
    Register("host/getTagFromName, every name in turn", EveryName<TableLookup>);
    Register("host/linear scan of the names, every name in turn", EveryName<ScanForName>);
    AddRatio({"host: find by name / find by id", "host/find by name", "host/find by id", 0, ""});
    AddRatio({"host: linear name scan / getTagFromName",
              "host/linear scan of the names, every name in turn",
              "host/getTagFromName, every name in turn", 0, ""});
}

}  // namespace kvbench
