// MapRectToInput on any arguments (the input is the Case record).
//
// Checks, for every input: the result is -1 exactly when an argument is
// refused (an image extent below 1, a zero width or height of the rectangle
// or of the reference region), and the destination is untouched then;
// otherwise the result is 0 and the rectangle lies inside the image with even
// width and height. Hand-worked mappings are checked once at start-up.
#include "FuzzSupport.h"

namespace {

using kvalgo2::ChiRect;

struct Case {
    ChiRect src, refer;
    int32_t width, height;
    ChiRect sensor;
};

__UtilsImage_Rect Map(const Case& c) {
    __UtilsImage_Rect dst;
    const __UtilsImage_Rect before = kvfuzz::Poison(dst, 0x3C);
    const int rc =
        kvalgo2::MetaUtils().MapRectToInput(c.src, c.refer, c.width, c.height, c.sensor, &dst);
    const bool refused = c.width < 1 || c.height < 1 || c.src.width == 0 || c.src.height == 0 ||
                         c.refer.width == 0 || c.refer.height == 0;
    KVFUZZ_CHECK(rc == (refused ? -1 : 0), "result %d, arguments %s", rc,
                 refused ? "refused" : "valid");
    KVFUZZ_CHECK(
        refused ? kvfuzz::SameBytes(dst, before) : kvfuzz::InsideImage(dst, c.width, c.height),
        "result %d, rect (%u, %u, %u, %u) in image %dx%d", rc, dst.left, dst.top, dst.width,
        dst.height, c.width, c.height);
    return dst;
}

}  // namespace

void Examples() {
    // 4000x3000 onto 1920x1080: the width fills at scale 0.48, 375 reference
    // lines are cut above and below.
    const ChiRect full{0, 0, 4000, 3000};
    const Case worked{{1000, 1000, 400, 400}, full, 1920, 1080, full};
    kvfuzz::Example("worked_example", worked, Map(worked), {480, 300, 192, 192});
    // Cut at the right border, 91 pixels made even.
    const Case right{{3810, 1000, 400, 400}, full, 1920, 1080, full};
    kvfuzz::Example("past_right_edge", right, Map(right), {1829, 300, 90, 192});
}

KVFUZZ_TARGET(Case, Map, Examples)
