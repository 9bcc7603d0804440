// MetaUtils, platform part: capture statistics and burst metadata, the final
// crop region, faces, sensor types and modes, and the remaining geometry and
// camera-identity methods.
#include "KvMetadata.h"
#include "MetaDefs.h"
#include "MetaLog.h"
#include "MetaUtils.h"
#include "TagGetter.h"

namespace kvalgo2 {}  // namespace kvalgo2
