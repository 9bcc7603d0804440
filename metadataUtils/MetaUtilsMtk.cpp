// MetaUtils, platform part: capture statistics and burst metadata, the final
// crop region, faces, sensor types and modes, and the remaining geometry and
// camera-identity methods.
#include <algorithm>
#include <cstring>

#include "KvMetadata.h"
#include "MetaDefs.h"
#include "MetaLog.h"
#include "MetaUtils.h"
#include "TagGetter.h"

namespace kvalgo2 {

using detail::Convert;
using detail::Copy;
using detail::kDefaultMessages;

// ===========================================================================
// Burst and preview exposure
// ===========================================================================

// clang-format off
KV_TAG_GETTER(GetBurstInfoFaceLuma, float, "kovani.ae.average.face.luma",
              KV_FULL("GetMetadata kovani.ae.average.face.luma err",
                      "get metadata kovani.ae.average.face.luma err"),
              (Convert<int32_t, float>))
// clang-format on

// ===========================================================================
// Image geometry: main array size, minimum digital zoom, faces, focus region
// ===========================================================================

namespace {

// The full array around a crop region centred in it: the crop's size plus
// its left and top margin twice over, in wrapping unsigned arithmetic.
void StoreMainActiveSize(const void* data, ChiRect* out) {
    const ChiRect crop = detail::Load<ChiRect>(data);
    *out = ChiRect{0, 0, crop.width + 2u * crop.left, crop.height + 2u * crop.top};
}

void TraceMainActiveSize(const log::LogSite& at, const ChiRect& r) {
    log::Write(at, 2, KV_LOG_PREFIX "main active size [%d %d %d %d]", r.left, r.top, r.width,
               r.height);
}

}  // namespace

// clang-format off
KV_TAG_GETTER(GetActiveArraySizeMain, ChiRect, tag::ANDROID_SCALER_CROP_REGION, kDefaultMessages,
              StoreMainActiveSize, false, TraceMainActiveSize)
KV_STATIC_TAG_GETTER(GetRealAvailableMinDigitalZoom, float,
                     "com.kovani.scaler.availableMinDigitalZoom",
                     KV_SHORT("GetMetadata com.kovani.scaler.availableMinDigitalZoom fail"),
                     Copy<float>)
// clang-format on

}  // namespace kvalgo2
