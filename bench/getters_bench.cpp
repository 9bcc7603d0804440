// Each shape of getter against the floor: what a plug-in writes by hand with
// the container, KvMetadata::find of the same tag and the copy of its value;
// and against that floor plus the one copy of the std::shared_ptr that the
// interface's by-value parameter costs each call.
#include <cstring>
#include <utility>

#include "MetaDefs.h"
#include "Ratios.h"
#include "Scene.h"

namespace kvbench {
namespace {

namespace tag = kvalgo2::tag;

// ---- Floors ---------------------------------------------------------------
// Out of line, as the library's getters are to a plug-in.

template <typename T>
int CopyValue(const camera_metadata_ro_entry_t& e, T* out) {
    if (e.count == 0) return -1;
    std::memcpy(out, e.data.u8, sizeof(T));
    return 0;
}

__attribute__((noinline)) int FloorSensitivity(const KvMetadata& md, int* out) {
    return CopyValue(md.find(tag::ANDROID_SENSOR_SENSITIVITY), out);
}

__attribute__((noinline)) int FloorThermalLevel(const KvMetadata& md, int* out) {
    return CopyValue(md.find("kovani.thermal.thermalLevel"), out);
}

__attribute__((noinline)) int FloorSmartAe(const KvMetadata& md,
                                           KV_SMARTAE::SmartAEProcOutput* out) {
    return CopyValue(md.find("kovani.ai.asd.SmartAE"), out);
}

// The static getter by hand: the frame's framework camera id, that camera's
// static metadata, the tag in it.
__attribute__((noinline)) int FloorActiveArray(const KvMetadata& md, kvalgo2::ChiRect* out) {
    int cameraId = 0;
    if (CopyValue(md.find("kovani.snapshot.fwkCameraId"), &cameraId) != 0) return -1;
    const std::shared_ptr<KvMetadata> stat =
        StaticMetadataWraper::getInstance()->getStaticMetadata(static_cast<uint32_t>(cameraId));
    if (!stat) return -1;
    return CopyValue(stat->find(tag::ANDROID_SENSOR_INFO_ACTIVE_ARRAY_SIZE), out);
}

// The floor behind the interface's parameter: a shared_ptr taken by value.
template <typename Out, int (*Floor)(const KvMetadata&, Out*)>
__attribute__((noinline)) int WithSharedCopy(std::shared_ptr<KvMetadata> md, Out* out) {
    return Floor(*md, out);
}

// The interface's own floor: the getter takes the shared_ptr by value and
// hands it on, moved, to the lookup primitive, which takes it by value too
// (GetMetaData's signature) and finds the tag.
template <typename Out, int (*Floor)(const KvMetadata&, Out*)>
__attribute__((noinline)) int Primitive(std::shared_ptr<KvMetadata> md, Out* out) {
    return Floor(*md, out);
}

template <typename Out, int (*Floor)(const KvMetadata&, Out*)>
__attribute__((noinline)) int ThroughPrimitive(std::shared_ptr<KvMetadata> md, Out* out) {
    return Primitive<Out, Floor>(std::move(md), out);
}

// ---- Benchmarks of one shape ------------------------------------------------

template <typename Out>
using Getter = int (kvalgo2::MetaUtils::*)(std::shared_ptr<KvMetadata>, Out*);

template <typename Out, int (*Floor)(const KvMetadata&, Out*)>
void RegisterShape(const std::string& shape, Getter<Out> getter, const char* getterName,
                   bool scalar) {
    const std::string prefix = "getter/" + shape + "/";
    Register(prefix + "floor", [](benchmark::State& state) {
        const std::shared_ptr<KvMetadata> md = scene().frame;
        Out out{};
        if (!Expect(state, Floor(*md, &out) == 0, "floor failed")) return;
        for (auto _ : state) {
            benchmark::DoNotOptimize(Floor(*md, &out));
            benchmark::DoNotOptimize(out);
        }
    });
    // The floor behind the interface's parameter, alone and handed on.
    for (const auto& [suffix, call] :
         {std::pair{"floor+shared_ptr", &WithSharedCopy<Out, Floor>},
          std::pair{"floor+shared_ptr+primitive", &ThroughPrimitive<Out, Floor>}}) {
        Register(prefix + suffix, [call = call](benchmark::State& state) {
            const std::shared_ptr<KvMetadata> md = scene().frame;
            Out out{};
            for (auto _ : state) {
                benchmark::DoNotOptimize(call(md, &out));
                benchmark::DoNotOptimize(out);
            }
        });
    }
    Register(prefix + getterName, [getter](benchmark::State& state) {
        const std::shared_ptr<KvMetadata> md = scene().frame;
        kvalgo2::MetaUtils utils = Utils();
        Out out{};
        Out expected{};
        Floor(*md, &expected);
        if (!Expect(
                state,
                (utils.*getter)(md, &out) == 0 && std::memcmp(&out, &expected, sizeof(Out)) == 0,
                "getter did not give the tag's value")) {
            return;
        }
        for (auto _ : state) {
            benchmark::DoNotOptimize((utils.*getter)(md, &out));
            benchmark::DoNotOptimize(out);
        }
    });
    const std::string measured = prefix + getterName;
    AddRatio({shape + ": " + getterName + " / floor", measured, prefix + "floor", 0, ""});
    AddRatio({shape + ": " + getterName + " / floor+shared_ptr", measured,
              prefix + "floor+shared_ptr", scalar ? 1.3 : 0, ""});
    AddRatio({shape + ": " + getterName + " / floor+shared_ptr+primitive", measured,
              prefix + "floor+shared_ptr+primitive", 0, ""});
}

}  // namespace

void RegisterGetterBenchmarks() {
    scene();
    RegisterShape<int, FloorSensitivity>("by-id scalar", &kvalgo2::MetaUtils::GetSensitivity,
                                         "GetSensitivity", true);
    RegisterShape<int, FloorThermalLevel>("by-name scalar", &kvalgo2::MetaUtils::GetThermalLevel,
                                          "GetThermalLevel", true);
    RegisterShape<kvalgo2::ChiRect, FloorActiveArray>("static via fwkCameraId",
                                                      &kvalgo2::MetaUtils::GetActiveArraySize,
                                                      "GetActiveArraySize", true);
    RegisterShape<KV_SMARTAE::SmartAEProcOutput, FloorSmartAe>(
        "record copy (448 B)", &kvalgo2::MetaUtils::GetSmartAeInfo, "GetSmartAeInfo", false);
}

}  // namespace kvbench
