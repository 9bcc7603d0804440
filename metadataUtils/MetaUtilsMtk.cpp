// MetaUtils, platform part: capture statistics and burst metadata, the final
// crop region, faces, sensor types and modes, and the remaining geometry and
// camera-identity methods.
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

}  // namespace kvalgo2
