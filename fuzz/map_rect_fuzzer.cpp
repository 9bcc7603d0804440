// MapRectToInput on arbitrary arguments.
//
// Checks, for every input:
// - the result is -1 exactly when an argument is refused (image extent below
//   1, or a zero width or height of the rectangle or of the reference
//   region), 0 otherwise;
// - a refused call leaves the destination as it was;
// - an accepted rectangle lies inside the image (left < width, left + width
//   <= image width, likewise vertically) and has even width and height;
// - the rectangle equals the reference model of MappingModel.h exactly;
// - the call is a pure function: a second call gives the same rectangle.
#include <cstddef>
#include <cstdint>

#include "FuzzSupport.h"
#include "MapRectCase.h"
#include "MappingModel.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    kvfuzz::InitProcess();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kvfuzz::MapRectCase c;
    kvfuzz::Reader reader(data, size);
    kvfuzz::Visit(reader, c);

    kvalgo2::MetaUtils utils;
    __UtilsImage_Rect dst;
    kvfuzz::Poison(dst, static_cast<uint8_t>(size));
    const __UtilsImage_Rect before = dst;
    const int rc =
        utils.MapRectToInput(c.src, c.refer, c.inputWidth, c.inputHeight, c.sensor, &dst);

    const bool refused = c.inputHeight < 1 || c.inputWidth < 1 || c.src.width == 0 ||
                         c.src.height == 0 || c.refer.width == 0 || c.refer.height == 0;
    KVFUZZ_CHECK(rc == (refused ? -1 : 0), "result %d, arguments %s", rc,
                 refused ? "refused" : "valid");
    if (rc != 0) {
        KVFUZZ_CHECK(kvfuzz::SameBytes(dst, before), "a refused call wrote its destination");
        return 0;
    }

    KVFUZZ_CHECK(kvfuzz::InsideImage(dst, c.inputWidth, c.inputHeight),
                 "rect (%u, %u, %u, %u) not inside an even-sized place of image %dx%d", dst.left,
                 dst.top, dst.width, dst.height, c.inputWidth, c.inputHeight);

    const kvfuzz::MappedRect model =
        kvfuzz::ModelMapRect(c.src, c.refer, c.inputWidth, c.inputHeight, c.sensor);
    KVFUZZ_CHECK(model.result == 0 && kvfuzz::SameBytes(dst, model.rect),
                 "rect (%u, %u, %u, %u), model (%u, %u, %u, %u)", dst.left, dst.top, dst.width,
                 dst.height, model.rect.left, model.rect.top, model.rect.width, model.rect.height);

    __UtilsImage_Rect again;
    kvfuzz::Poison(again, 0x3C);
    KVFUZZ_CHECK(
        utils.MapRectToInput(c.src, c.refer, c.inputWidth, c.inputHeight, c.sensor, &again) == 0 &&
            kvfuzz::SameBytes(dst, again),
        "a second call mapped differently");
    return 0;
}
