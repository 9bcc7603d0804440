// Heap use of the per-face path. This program replaces the global allocation
// functions to count calls, which can be done only once per program; it is
// therefore a binary of its own.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <vector>

#include "MetaUtils.h"
#include "kvhost/LogCapture.h"
#include "kvhost/Metadata.h"

namespace {

std::atomic<bool> gCounting{false};
std::atomic<long> gAllocations{0};

void* Allocate(std::size_t size) {
    if (gCounting.load()) ++gAllocations;
    return std::malloc(size != 0 ? size : 1);
}

}  // namespace

// Every replaceable form except the aligned ones goes through malloc/free, so
// sanitizer builds see matching pairs.
void* operator new(std::size_t size) {
    if (void* p = Allocate(size)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    if (void* p = Allocate(size)) return p;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}

namespace {

// Counts the allocations of `f`; the log sinks are quiet (no capture alive,
// no echo), as on a device where they write to preallocated buffers.
template <typename F>
long AllocationsOf(F f) {
    const bool echo = kvhost::logEcho();
    kvhost::setLogEcho(false);
    gAllocations = 0;
    gCounting = true;
    f();
    gCounting = false;
    kvhost::setLogEcho(echo);
    return gAllocations.load();
}

TEST(Allocation, FaceRectForTenFacesAllocatesNothing) {
    auto md = kvhost::Metadata::create();
    auto stat = kvhost::Metadata::create();
    ASSERT_EQ(stat->putInt32(0xF0000u, {0, 0, 4000, 3000}), 0);
    kvhost::setStaticMetadata(0, stat);
    ASSERT_EQ(md->putInt32("kovani.snapshot.fwkCameraId", {0}), 0);
    ASSERT_EQ(md->putInt32(0xD0000u, {0, 0, 4000, 3000}), 0);
    ASSERT_EQ(md->putInt32("kovani.insensorzoom.status", {1}), 0);
    std::vector<int32_t> faces;
    for (int i = 0; i < 10; ++i) {
        faces.insert(faces.end(),
                     {100 * i, 50 * i, 100 * i + 300, 50 * i + 300, 0, i, 45 * i, i, 0});
    }
    ASSERT_EQ(md->putInt32("kovani.bokeh.faceInfo", faces), 0);

    kvalgo2::MetaUtils utils;
    kvalgo2::KVFaceInfo info;
    int rc = -9;
    // A first call is not judged: it may meet one-time set-up of the stand-ins.
    AllocationsOf([&] { utils.GetFaceRect(md, 1920, 1080, info, 1); });
    EXPECT_EQ(AllocationsOf([&] { rc = utils.GetFaceRect(md, 1920, 1080, info, 1); }), 0);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(info.faceCount, 10);
    // Also on the large-input path, where the active size is doubled.
    EXPECT_EQ(AllocationsOf([&] { rc = utils.GetFaceRect(md, 8000, 6000, info, 1); }), 0);
    EXPECT_EQ(rc, 0);
    kvhost::clearStaticMetadata();
}

TEST(Allocation, MapRectToInputAllocatesNothing) {
    kvalgo2::MetaUtils utils;
    __UtilsImage_Rect dst;
    int accepted = -9;
    int rejected = -9;
    const kvalgo2::ChiRect full = {0, 0, 4000, 3000};
    const kvalgo2::ChiRect face = {1000, 1000, 400, 400};
    EXPECT_EQ(AllocationsOf([&] {
                  accepted = utils.MapRectToInput(face, full, 1920, 1080, full, &dst);
                  rejected = utils.MapRectToInput(face, full, 0, 1080, full, &dst);
              }),
              0);
    EXPECT_EQ(accepted, 0);
    EXPECT_EQ(rejected, -1);
}

// The counter itself: a live capture stores each line on the heap.
TEST(Allocation, CountingSeesTheCapturesAllocations) {
    kvhost::LogCapture capture;
    kvalgo2::MetaUtils utils;
    __UtilsImage_Rect dst;
    const kvalgo2::ChiRect full = {0, 0, 4000, 3000};
    EXPECT_GT(AllocationsOf([&] { utils.MapRectToInput(full, full, 0, 1080, full, &dst); }), 0);
    EXPECT_EQ(capture.texts(kvhost::LogSink::Online).size(), 1u);
}

}  // namespace
