// MapRectToInput on any arguments (the input is the Case record).
//
// Checks, for every input: the result is -1 exactly when an argument is
// refused (an image extent below 1, a zero width or height of the rectangle
// or of the reference region), and the destination is untouched then;
// otherwise the result is 0 and the rectangle lies inside the image with even
// width and height. Hand-worked mappings are checked once at start-up.
#include <cstddef>
#include <cstdint>

#include "FuzzSupport.h"

namespace {

using kvalgo2::ChiRect;

struct Case {
    ChiRect src;
    ChiRect refer;
    int32_t width;
    int32_t height;
    ChiRect sensor;
};

int Map(const Case& c, __UtilsImage_Rect& dst) {
    kvalgo2::MetaUtils utils;
    kvfuzz::Poison(dst, 0x3C);
    const __UtilsImage_Rect before = dst;
    const int rc = utils.MapRectToInput(c.src, c.refer, c.width, c.height, c.sensor, &dst);
    const bool refused = c.width < 1 || c.height < 1 || c.src.width == 0 || c.src.height == 0 ||
                         c.refer.width == 0 || c.refer.height == 0;
    KVFUZZ_CHECK(rc == (refused ? -1 : 0), "result %d, arguments %s", rc,
                 refused ? "refused" : "valid");
    if (refused) {
        KVFUZZ_CHECK(kvfuzz::SameBytes(dst, before), "a refused call wrote its destination");
    } else {
        KVFUZZ_CHECK(kvfuzz::InsideImage(dst, c.width, c.height),
                     "rect (%u, %u, %u, %u) not inside image %dx%d with even size", dst.left,
                     dst.top, dst.width, dst.height, c.width, c.height);
    }
    return rc;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kvfuzz::InitProcess();
    // 4000x3000 onto 1920x1080: the width fills at scale 0.48, 375 reference
    // lines are cut above and below.
    const ChiRect full{0, 0, 4000, 3000};
    const ChiRect face{1000, 1000, 400, 400};
    const struct {
        const char* name;
        Case c;
        __UtilsImage_Rect want;
    } examples[] = {
        {"worked_example", {face, full, 1920, 1080, full}, {480, 300, 192, 192}},
        {"corner_in_top_margin",
         {{1000, 200, 400, 400}, full, 1920, 1080, full},
         {480, 0, 192, 192}},
        // Cut at the right border, 91 pixels made even.
        {"past_right_edge", {{3810, 1000, 400, 400}, full, 1920, 1080, full}, {1829, 300, 90, 192}},
        // A ratio that is not a number: the height fills at scale 0.36.
        {"zero_sensor_height", {face, full, 1920, 1080, {0, 0, 4000, 0}}, {360, 360, 144, 144}},
    };
    for (const auto& e : examples) {
        __UtilsImage_Rect dst;
        KVFUZZ_CHECK(Map(e.c, dst) == 0 && kvfuzz::SameBytes(dst, e.want),
                     "%s: (%u, %u, %u, %u), expected (%u, %u, %u, %u)", e.name, dst.left, dst.top,
                     dst.width, dst.height, e.want.left, e.want.top, e.want.width, e.want.height);
        kvfuzz::SaveSeed(e.name, e.c);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    __UtilsImage_Rect dst;
    Map(kvfuzz::Input(data, size).Take<Case>(), dst);
    return 0;
}
