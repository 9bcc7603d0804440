// Faces (raw records, mapped and unmapped rectangles, the algorithm layer's
// repacking) and the focus region and touch point.
#include <cstring>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace kvtest {
namespace {

using kvalgo2::KVFaceInfo;
using Rect4 = std::vector<uint32_t>;

struct Face {
    int32_t left, top, right, bottom;
    int32_t angle = 0;
    int32_t extraA = 0;  // element 5
    int32_t extraB = 0;  // element 7
};

class FaceTest : public MetaTest {
protected:
    // Crop region in the frame, active array in camera 0's static metadata.
    void Geometry(std::vector<int32_t> crop, std::vector<int32_t> active) {
        ASSERT_EQ(md->putInt32(0xD0000u, std::move(crop)), 0);
        ASSERT_EQ(StaticFor(0)->putInt32(0xF0000u, std::move(active)), 0);
    }
    // 4000x3000 into 1920x1080: scale 0.48, 375 rows cut above the image.
    void Standard() { Geometry({0, 0, 4000, 3000}, {0, 0, 4000, 3000}); }
    // A 1921x1081 array into a 1921x1081 image: faces map one to one (sizes
    // made even), and the odd size shows how the fallback centre is halved.
    void Identity() { Geometry({0, 0, 1921, 1081}, {0, 0, 1921, 1081}); }

    // Nine words a face; elements 4 and 8 are junk that must not show.
    void Faces(const std::vector<Face>& faces) {
        std::vector<int32_t> w;
        for (const Face& f : faces) {
            w.insert(w.end(),
                     {f.left, f.top, f.right, f.bottom, -444, f.extraA, f.angle, f.extraB, -888});
        }
        ASSERT_EQ(md->putInt32("kovani.bokeh.faceInfo", w), 0);
    }
    void InSensorZoom(int32_t status) {
        ASSERT_EQ(md->putInt32("kovani.insensorzoom.status", {status}), 0);
    }
    // The SensorSize group of each mapping line.
    std::vector<std::string> SensorSizes() const {
        std::vector<std::string> out;
        for (const std::string& m : Messages("MapRectToInput"))
            out.push_back(m.substr(m.rfind('[')));
        return out;
    }
    // The first n face rectangles as "left top width height", ";"-separated.
    static std::string Rects(const KVFaceInfo& info, int n) {
        std::string out;
        for (int i = 0; i < n; ++i) {
            const auto& r = info.faces[i].rect;
            out += (i ? "; " : "") + std::to_string(r.left) + " " + std::to_string(r.top) + " " +
                   std::to_string(r.width) + " " + std::to_string(r.height);
        }
        return out;
    }
    static KVFaceInfo Filled() {
        KVFaceInfo info;
        std::memset(&info, 0xA5, sizeof info);
        return info;
    }
};

// ---- GetFacesInfoHolder ---------------------------------------------------------------

TEST_F(FaceTest, HolderPointsIntoTheContainer) {
    // 20 elements: 2 faces, 2 spare.
    ASSERT_EQ(md->putInt32("kovani.bokeh.faceInfo", std::vector<int32_t>(20, 1)), 0);
    int* faces = nullptr;
    uint32_t count = 99;
    EXPECT_EQ(utils.GetFacesInfoHolder(md, &faces, &count), 0);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(faces, md->find("kovani.bokeh.faceInfo").data.i32);
    EXPECT_EQ(utils.GetFacesInfoHolder(md, nullptr, &count), -2);
    EXPECT_EQ(Lines(), (LineList{L(4, kMtk, "GetFacesInfoHolder", "arg err")}));
}

// ---- GetFaceRect ------------------------------------------------------------------------

TEST_F(FaceTest, FaceRectMapsIntoTheImage) {
    Standard();
    Faces({{1000, 1000, 1400, 1400, 30, 11, 12}});
    KVFaceInfo info = Filled();
    EXPECT_EQ(utils.GetFaceRect(md, 1920, 1080, info, 0), 0);
    KVFaceInfo expected{};  // everything else cleared
    expected.faceCount = 1;
    expected.faces[0] = {{480, 300, 192, 192}, 480 + 96, 300 + 96, 0};
    expected.faceExtra[0][0] = 11;
    expected.faceExtra[0][1] = 30;
    expected.faceExtra[0][2] = 12;
    EXPECT_EQ(Bytes(info), Bytes(expected));
}

TEST_F(FaceTest, RotationsAndTheLargestFace) {
    Identity();
    const int32_t angles[10] = {44, 45, 134, 135, 224, 225, 314, 315, -90, 400};
    const int32_t turns[10] = {0, 270, 270, 180, 180, 90, 90, 0, 0, 0};
    const int32_t sizes[10] = {10, 20, 30, 50, 40, 50, 12, 14, 16, 18};  // largest: 3 and 5
    std::vector<Face> faces;
    for (int i = 0; i < 10; ++i) faces.push_back({100, 100, 100 + sizes[i], 200, angles[i]});
    Faces(faces);
    KVFaceInfo info = Filled();
    EXPECT_EQ(utils.GetFaceRect(md, 1921, 1081, info, 0), 0);
    EXPECT_EQ(info.faceCount, 10);
    EXPECT_EQ(info.largestFaceIndex, 3);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(info.faces[i].rotation, turns[i]) << angles[i];
        EXPECT_EQ(info.faceExtra[i][1], angles[i]);
    }
    // Scale 65538 / 4000: face 0 fills the image, 65538^2 = 2^32 + 262148,
    // and stays larger than face 1's 32768^2 (floor(32769.0) made even).
    Geometry({0, 0, 4000, 4000}, {0, 0, 4000, 4000});
    Faces({{0, 0, 4000, 4000}, {0, 0, 2000, 2000}});
    EXPECT_EQ(utils.GetFaceRect(md, 65538, 65538, info, 0), 0);
    EXPECT_EQ(Rects(info, 2), "0 0 65538 65538; 0 0 32768 32768");
    EXPECT_EQ(info.largestFaceIndex, 0);
}

TEST_F(FaceTest, RejectedAndEdgeFacesGetTheImageCentre) {
    Identity();
    // A zero-width face is rejected by the mapping and keeps a cleared
    // rectangle; faces of width or height 1 map to size 0 at the edge. Each
    // has a centre coordinate of 0 and falls back to (1921/2, 1081/2).
    Faces({{700, 700, 700, 800, 90}, {0, 500, 1, 600}, {500, 0, 600, 1}});
    KVFaceInfo info = Filled();
    EXPECT_EQ(utils.GetFaceRect(md, 1921, 1081, info, 0), 0);
    EXPECT_EQ(Rects(info, 3), "0 0 0 0; 0 500 0 100; 500 0 100 0");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(std::make_pair(info.faces[i].centerX, info.faces[i].centerY),
                  std::make_pair(960, 540));
    }
    EXPECT_EQ(info.faces[0].rotation, 270);  // written although the mapping failed
    EXPECT_EQ(info.largestFaceIndex, 0);     // every area is 0
    EXPECT_EQ(Messages("MapRectToInput")[0], "arg err");
}

TEST_F(FaceTest, LargeInputDoublesTheActiveSizeFromFaceToFace) {
    // A 2^30-wide array: face 0 is mapped with (2^31, 6000), a very wide
    // sensor, so the height fills (scale 4500/3000 = 1.5). For face 1 the
    // width doubles again and wraps to 0: the width fills (scale 2, 375 rows
    // cut). Without the compounding every face would map like face 0.
    Geometry({0, 0, 4000, 3000}, {0, 0, 0x40000000, 3000});
    Faces({{1000, 1000, 1400, 1400}, {1000, 1000, 1400, 1400}, {1000, 1000, 1400, 1400}});
    KVFaceInfo info = Filled();
    EXPECT_EQ(utils.GetFaceRect(md, 8000, 4500, info, 0), 0);
    EXPECT_EQ(Rects(info, 3), "1500 1500 600 600; 2000 1250 800 800; 2000 1250 800 800");
    EXPECT_EQ(info.largestFaceIndex, 1);
    EXPECT_EQ(SensorSizes(), (std::vector<std::string>{"[0,0,-2147483648,6000]", "[0,0,0,12000]",
                                                       "[0,0,0,24000]"}));
}

TEST_F(FaceTest, InSensorZoomUsesTheDoubledActiveSize) {
    // Face i is converted with a quarter of 2^i times the array: (1000, 750),
    // (2000, 1500), (4000, 3000); then mapped with 2^(i+1) times it.
    Standard();
    InSensorZoom(1);
    Faces({{2000, 1500, 2200, 1700}, {2000, 1500, 2200, 1700}, {2000, 1500, 2200, 1700}});
    KVFaceInfo info = Filled();
    EXPECT_EQ(utils.GetFaceRect(md, 8000, 4500, info, 1), 0);
    // Converted (2000, 1500, 400, 400), scale 2: top 2 * (1500 - 375) = 2250;
    // then (0, 0, 400, 400); then (-4000, -3000) wraps near 2^32: the scaled
    // offsets saturate and are clamped to the last column and row, sizes 1 -> 0.
    EXPECT_EQ(Rects(info, 3), "4000 2250 800 800; 0 0 800 800; 7999 4499 0 0");
    EXPECT_EQ(info.faces[2].centerX, 7999);
    EXPECT_EQ(info.faces[2].centerY, 4499);
    EXPECT_EQ(SensorSizes(), (std::vector<std::string>{"[0,0,8000,6000]", "[0,0,16000,12000]",
                                                       "[0,0,32000,24000]"}));
}

TEST_F(FaceTest, NoConversionWithoutPermissionOrStatusNoDoublingAtTheLimits) {
    Standard();
    Faces({{2000, 1500, 2200, 1700}, {2000, 1500, 2200, 1700}});
    // {status, permission, width, height}
    const int cases[][4] = {
        {1, 0, 1920, 1080}, {0, 1, 1920, 1080}, {1, 0, 5000, 4500}, {1, 0, 8000, 4000}};
    for (const auto& c : cases) {
        capture.clear();
        InSensorZoom(c[0]);
        KVFaceInfo info = Filled();
        EXPECT_EQ(utils.GetFaceRect(md, c[2], c[3], info, c[1]), 0);
        EXPECT_EQ(SensorSizes(), (std::vector<std::string>(2, "[0,0,4000,3000]")));
        for (const std::string& m : Messages("MapRectToInput"))
            EXPECT_EQ(m.substr(0, 26), "SrcRect[2000,1500,200,200]");
    }
}

TEST_F(FaceTest, MoreThanTenFacesStayInsideTheRecord) {
    Identity();
    std::vector<Face> faces;
    for (int i = 0; i < 12; ++i)
        faces.push_back({10 * i, 20 * i, 12 * i + 2, 20 * i + 40, 0, 100 + i});
    Faces(faces);
    // The record followed by guard bytes: nothing may be written past it.
    struct {
        KVFaceInfo info;
        unsigned char guard[256];
    } out;
    for (bool noMap : {false, true}) {
        std::memset(&out, 0xA5, sizeof out);
        EXPECT_EQ(noMap ? utils.GetFacesNoMap(md, 1921, 1081, out.info)
                        : utils.GetFaceRect(md, 1921, 1081, out.info, 0),
                  0);
        EXPECT_EQ(out.info.faceCount, 10);
        EXPECT_EQ(out.info.faceExtra[9][0], 109);  // the first ten
        EXPECT_EQ(Bytes(out.guard), std::vector<uint8_t>(sizeof out.guard, 0xA5));
        EXPECT_EQ(out.info.largestFaceIndex, noMap ? static_cast<int32_t>(0xA5A5A5A5) : 9);
    }
}

TEST_F(FaceTest, FaceRectFailuresLeaveAClearedRecord) {
    auto expectFailure = [&](const char* message) {
        capture.clear();
        KVFaceInfo info = Filled();
        EXPECT_EQ(utils.GetFaceRect(md, 1920, 1080, info, 0), -1);
        EXPECT_EQ(Bytes(info), Bytes(KVFaceInfo{}));
        EXPECT_EQ(Messages("GetFaceRect"), (std::vector<std::string>{message}));
    };
    StaticFor(0)->putInt32(0xF0000u, {0, 0, 4000, 3000});
    Faces({{100, 100, 200, 200}});
    expectFailure("get active/crop size err");  // no crop region
    md->putInt32(0xD0000u, {0, 0, 4000, 3000});
    md->erase("kovani.snapshot.fwkCameraId");  // no active array
    expectFailure("get active/crop size err");
    Standard();
    md->erase("kovani.bokeh.faceInfo");
    expectFailure("no face");
    md->putInt32("kovani.bokeh.faceInfo", {1, 2, 3, 4, 5, 6, 7, 8});  // not one whole face
    expectFailure("no face");
}

// ---- GetFacesNoMap ------------------------------------------------------------------------

TEST_F(FaceTest, NoMapWritesOnlyRectanglesExtrasAndCount) {
    Standard();
    Faces({{100, 200, 300, 500, 135, 7, 8}, {-10, 5, 30, 4, 0, 9, 10}});
    KVFaceInfo info = Filled();
    KVFaceInfo expected = Filled();  // largest index, centres, rotations kept
    EXPECT_EQ(utils.GetFacesNoMap(md, 1920, 1080, info), 0);
    expected.faceCount = 2;
    expected.faces[0].rect = {100, 200, 200, 300};
    expected.faces[1].rect = {static_cast<uint32_t>(-10), 5, 40, 0xFFFFFFFF};  // 4 - 5 wraps
    const int32_t extras[2][3] = {{7, 135, 8}, {9, 0, 10}};
    std::memcpy(expected.faceExtra, extras, sizeof extras);
    EXPECT_EQ(Bytes(info), Bytes(expected));

    // Large input: coordinates doubled, the active size never; in-sensor zoom
    // needs no permission here: (x - 1000) * 2, (y - 750) * 2, then doubled.
    Faces({{2000, 1500, 2200, 1700}, {2000, 1500, 2200, 1700}});
    EXPECT_EQ(utils.GetFacesNoMap(md, 8000, 4500, info), 0);
    EXPECT_EQ(Rects(info, 2), "4000 3000 400 400; 4000 3000 400 400");
    EXPECT_EQ(utils.GetFacesNoMap(md, -8000, 4500, info), 0);  // -8000 is not above 5000
    EXPECT_EQ(Rects(info, 2), "2000 1500 200 200; 2000 1500 200 200");
    InSensorZoom(0x100);  // the whole word is the status
    EXPECT_EQ(utils.GetFacesNoMap(md, 8000, 4500, info), 0);
    EXPECT_EQ(Rects(info, 2), "4000 3000 800 800; 4000 3000 800 800");
}

TEST_F(FaceTest, NoMapWithoutActiveArrayOrFaces) {
    InSensorZoom(1);
    Faces({{100, 200, 300, 500}});
    KVFaceInfo info = Filled();
    EXPECT_EQ(utils.GetFacesNoMap(md, 1920, 1080, info), 0);
    EXPECT_EQ(Rects(info, 1), "200 400 400 600");  // zero quarter
    // The missing active array and face luma are logged by their getters.
    EXPECT_EQ(Lines(), (LineList{kLookupMiss, L(3, kMU, "GetFwkCameraId", "Get fwkCameraId err"),
                                 L(3, kMU, "GetActiveArraySize", "GetMetadata FwkCameraId fail"),
                                 kLookupMiss,
                                 L(3, kMtk, "GetBurstInfoFaceLuma",
                                   "GetMetadata kovani.ae.average.face.luma err")}));
    // A 4002 x 3003 array: quarters 1000 and 750, subtracted before doubling.
    StaticFor(0)->putInt32(0xF0000u, {0, 0, 4002, 3003});
    Faces({{2000, 1500, 2201, 1703}});
    EXPECT_EQ(utils.GetFacesNoMap(md, 1920, 1080, info), 0);
    EXPECT_EQ(Rects(info, 1), "2000 1500 402 406");

    for (bool partial : {false, true}) {  // no tag, then less than one face
        md->erase("kovani.bokeh.faceInfo");
        if (partial) md->putInt32("kovani.bokeh.faceInfo", {1, 2, 3, 4, 5, 6, 7, 8});
        info = Filled();
        EXPECT_EQ(utils.GetFacesNoMap(md, 1920, 1080, info), -1);
        EXPECT_EQ(Bytes(info), Bytes(Filled()));
        EXPECT_EQ(Lines().back(), L(3, kMtk, "GetFacesNoMap", "no face"));
    }
}

// ---- GetFaceInfo ---------------------------------------------------------------------------

TEST_F(FaceTest, FaceInfoGivesInclusiveCorners) {
    Identity();
    // Mapped to (10, 20, 100, 50), and a zero-width face that the mapping rejects.
    Faces({{10, 20, 110, 70, 0, 1, 2}, {300, 300, 300, 400, 0, 3, 4}});
    AIspFaceInfo info;
    std::memset(&info, 0xA5, sizeof info);
    EXPECT_EQ(utils.GetFaceInfo(md, info, 1921, 1081), 0);
    EXPECT_EQ(info.count, 2);
    // Inclusive corners; the rejected face's cleared rectangle gives 0 + 0 - 1.
    EXPECT_EQ(std::vector<int32_t>(info.rect[0], info.rect[1] + 4),
              (std::vector<int32_t>{10, 20, 109, 69, 0, 0, -1, -1}));
    EXPECT_EQ(info.rect[2][0], static_cast<int32_t>(0xA5A5A5A5));  // past the count

    md->erase("kovani.bokeh.faceInfo");
    EXPECT_EQ(utils.GetFaceInfo(md, info, 1921, 1081), -1);
    EXPECT_EQ(info.count, 0);
}

// ---- Focus region and touch point -----------------------------------------------------------

class FocusTest : public FaceTest {
protected:
    void SetUp() override { Identity(); }
    void AfRegion(std::vector<int32_t> words) {
        ASSERT_EQ(md->putInt32(0x80060001u, std::move(words)), 0);
    }
    UtilsImageBuf image{1921, 1081};
    __UtilsImage_Rect roi = {9, 9, 9, 9};
};

TEST_F(FocusTest, RegionIsMapped) {
    // Reversed corners: the width wraps near 2^32 and is cut to 1921 - 300 -> 1620.
    // Of two regions the second, from element 7, is used.
    for (const auto& words : {std::vector<int32_t>{0, 1, 300, 200, 100, 400},
                              std::vector<int32_t>{0, 2, 1, 1, 5, 5, 0, 300, 200, 100, 400}}) {
        AfRegion(words);
        EXPECT_EQ(utils.GetfocusROI(md, &image, &roi), 0);
        EXPECT_EQ(Fields(roi), (Rect4{300, 200, 1620, 200}));
    }
}

TEST_F(FocusTest, RegionFailuresLeaveTheRegion) {
    auto roiLine = [](const std::string& m) { return L(1, kMtk, "GetfocusROI", m); };
    const struct {
        std::vector<int32_t> words;  // empty: tag absent
        Line last;
    } cases[] = {
        {{}, roiLine("fail to read AF region")},
        {{4, 0, 1, 2, 3, 4}, roiLine("incorrect AF region 4 0")},
        {{5, 3, 1, 2, 3, 4}, roiLine("incorrect AF region 5 3")},
        {{6, -1, 1, 2, 3, 4}, roiLine("incorrect AF region 6 -1")},
        // A zero-width region: the mapping's rejection is passed through.
        {{0, 1, 300, 200, 300, 400}, L(3, kMU, "MapRectToInput", "arg err")},
    };
    for (const auto& c : cases) {
        capture.clear();
        md->erase(0x80060001u);
        if (!c.words.empty()) AfRegion(c.words);
        EXPECT_EQ(utils.GetfocusROI(md, &image, &roi), -1) << c.last;
        EXPECT_EQ(Lines().back(), c.last);
    }
    // Missing active array, then missing crop region: their codes.
    capture.clear();
    md->erase("kovani.snapshot.fwkCameraId");
    EXPECT_EQ(utils.GetfocusROI(md, &image, &roi), -2);
    md->erase(0xD0000u);
    EXPECT_EQ(utils.GetfocusROI(md, &image, &roi), -2);
    EXPECT_EQ(Messages("GetfocusROI"),
              (std::vector<std::string>{"GetActiveArraySize err", "GetCropRegion err"}));
    EXPECT_EQ(Messages("GetActiveArraySize").size(), 1u);  // not reached the second time
    EXPECT_EQ(Fields(roi), (Rect4{9, 9, 9, 9}));
}

TEST_F(FocusTest, TouchPointIsTheRegionCentreAndAlwaysWritten) {
    auto touch = [&](int rc) {
        __UtilsImage_point point = {7, 7};
        EXPECT_EQ(utils.GetfocusTP(md, &image, &point), rc);
        return std::vector<int>{point.x, point.y};
    };
    // (10, 20) to (40, 61): mapped (10, 20, 30, 40) after the even alignment.
    AfRegion({3, 1, 10, 20, 40, 61});
    EXPECT_EQ(touch(0), (std::vector<int>{25, 40}));
    AfRegion({3, 1, 0, 20, 1, 61});  // width 1 -> 0: the centre has x 0, not y
    EXPECT_EQ(touch(0), (std::vector<int>{0, 40}));
    AfRegion({3, 4, 10, 20, 40, 61});  // region fails: centre of a zero region
    EXPECT_EQ(touch(-1), (std::vector<int>{0, 0}));
    md->erase(0xD0000u);
    EXPECT_EQ(touch(-2), (std::vector<int>{0, 0}));
}

TEST_F(FocusTest, ArgumentErrors) {
    AfRegion({3, 1, 100, 200, 300, 400});
    __UtilsImage_point point = {7, 7};
    EXPECT_EQ(utils.GetfocusROI(md, &image, nullptr), -2);
    EXPECT_EQ(utils.GetfocusROI(md, nullptr, &roi), -2);
    EXPECT_EQ(utils.GetfocusROI(nullptr, &image, &roi), -2);
    EXPECT_EQ(utils.GetfocusTP(md, &image, nullptr), -2);
    EXPECT_EQ(utils.GetfocusTP(md, nullptr, &point), -2);
    EXPECT_EQ(utils.GetfocusTP(nullptr, &image, &point), -2);
    EXPECT_EQ(Fields(roi), (Rect4{9, 9, 9, 9}));
    EXPECT_EQ(point.x, 7);
    const Line roiErr = L(4, kMtk, "GetfocusROI", "arg err");
    const Line tpErr = L(4, kMU, "GetfocusTP", "arg err");
    EXPECT_EQ(Lines(), (LineList{roiErr, roiErr, roiErr, tpErr, tpErr, tpErr}));
}

}  // namespace
}  // namespace kvtest
