// Reading a camera session: every layout of Android's tag monitor events
// gives the values the device logged, the frame rule gives each frame's
// tags, a log without events gives one frame per metadata block, and what
// does not read is left out with a warning naming its line.
#include "Sequence.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "LoaderTestSupport.h"
#include "MetaUtils.h"

namespace kvhost {
namespace loader {
namespace {

using Tags = std::map<std::string, std::vector<uint8_t>>;

std::shared_ptr<const Sequence::Data> load(const std::vector<std::string>& texts,
                                           SequenceOptions options = {}) {
    std::vector<std::unique_ptr<ScratchFile>> files;
    std::vector<std::string> paths;
    for (size_t i = 0; i < texts.size(); ++i) {
        files.push_back(std::make_unique<ScratchFile>("session" + std::to_string(i), texts[i]));
        paths.push_back(files.back()->path);
    }
    if (!options.input) options.input.emplace(640, 480);
    return readSequence(paths, options);
}

// Frame i's tags by name, without the camera id that every frame gets.
Tags tagsOf(const Sequence::Data& d, size_t i) {
    size_t part = 0;
    while (part + 1 < d.parts.size() && d.firstFrame[part + 1] <= i) ++part;
    Tags tags;
    for (const TagPayload& p : frameTags(d.parts[part], i - d.firstFrame[part])) {
        if (p.info->name != "kovani.snapshot.fwkCameraId") tags[p.info->name] = p.bytes;
    }
    return tags;
}

std::vector<int64_t> numbers(const std::shared_ptr<const Sequence::Data>& d) {
    const Sequence s(d);
    std::vector<int64_t> out;
    for (size_t i = 0; i < s.frameCount(); ++i) out.push_back(s.info(i).number);
    return out;
}

std::string allWarnings(const Sequence::Data& d) {
    std::string out;
    for (const std::string& w : d.warnings) out += w.substr(w.find(':')) + "\n";
    return out;
}

const auto kAuto = bytesOf<uint8_t>({1});  // AUTO, of android.control.afMode
const auto kPicture = bytesOf<uint8_t>({4});
const auto kZoom15 = bytesOf<float>({1.5f});

struct LayoutCase {
    const char* name;
    std::string text;
    std::vector<int64_t> frames;
    Tags last;            // the tags of the last frame
    std::string warning;  // in the warnings, "" for none
    const char* physical = nullptr;
    const char* client = nullptr;
    std::string note = "";  // in the notes, "" for none
};

class EventLayout : public ::testing::TestWithParam<LayoutCase> {};

TEST_P(EventLayout, GivesTheLoggedValues) {
    const LayoutCase& c = GetParam();
    SequenceOptions o;
    if (c.physical) o.physical = c.physical;
    if (c.client) o.client = c.client;
    const auto d = load({c.text}, o);
    EXPECT_EQ(numbers(d), c.frames);
    EXPECT_EQ(tagsOf(*d, c.frames.size() - 1), c.last);
    std::string notes;
    for (const std::string& n : d->notes) notes += n + "\n";
    EXPECT_NE(notes.find(c.note), std::string::npos) << notes;
    const std::string warnings = allWarnings(*d);
    if (c.warning.empty()) {
        EXPECT_EQ(warnings, "");
    } else {
        EXPECT_NE(warnings.find(c.warning), std::string::npos) << warnings;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Android, EventLayout,
    ::testing::Values(
        LayoutCase{"Android11",
                   "f5:1000ns:            REQ:android.control.afMode: [AUTO ]\n"
                   "f7:3000ns:                           RES:android.control.zoomRatio: "
                   "[1.50000000 ]\n"
                   "f7:3000ns:                           RES:android.control.aeCompensationStep: "
                   "[(1 / 3) ]\n",
                   {5, 7},
                   {{"android.control.afMode", kAuto},
                    {"android.control.zoomRatio", kZoom15},
                    {"android.control.aeCompensationStep", bytesOf<int32_t>({1, 3})}},
                   ""},
        LayoutCase{"Android12StreamIds",
                   "f5:1000ns:              REQ:android.control.afMode: [AUTO ]  output stream "
                   "ids:  0  1 \n"
                   "f6:2000ns:              REQ:android.control.afMode: [CONTINUOUS_PICTURE ]  "
                   "input stream id: 3 \n",
                   {5, 6},
                   {{"android.control.afMode", kPicture}},
                   ""},
        // Enum names, bytes and floats joined; a byte's digits read where its
        // count is known (a block's entry), else left out.
        LayoutCase{"Android13Joined",
                   "Dumping camera metadata array: 1 / 1 entries\n"
                   "android.jpeg.thumbnailQuality (70005): byte[1]\n[90 ]\n"
                   "f5:1000ns:             REQ: output stream ids: 0 1\n"
                   "f5:1000ns:             REQ:android.lens.focusRange: [0.500000002.25000000]\n"
                   "f5:1000ns:             REQ:android.control.aeMode: [ON_AUTO_FLASH]\n"
                   "f6:2000ns:             REQ:android.jpeg.thumbnailQuality: [85]\n"
                   "f6:2000ns:             REQ:android.jpeg.quality: [95]\n"
                   "f6:2000ns:             REQ:android.control.aeRegions: [0 0 10 10 1 ]\n",
                   {5, 6},
                   {{"android.lens.focusRange", bytesOf<float>({0.5f, 2.25f})},
                    {"android.control.aeMode", bytesOf<uint8_t>({2})},
                    {"android.jpeg.thumbnailQuality", bytesOf<uint8_t>({85})},
                    {"android.control.aeRegions", bytesOf<int32_t>({0, 0, 10, 10, 1})}},
                   ":8: android.jpeg.quality: the joined digits \"95\" read as bytes only when"},
        LayoutCase{"Android14",
                   "f9:1000ns:             REQ:android.control.afMode: [AUTO]\n"
                   "f9:1000ns:             REQ:android.lens.focusRange: [0.50000000 2.25000000 ]\n"
                   "f9:1000ns:             REQ:android.jpeg.quality: [95 ]\n",
                   {9},
                   {{"android.control.afMode", kAuto},
                    {"android.lens.focusRange", bytesOf<float>({0.5f, 2.25f})},
                    {"android.jpeg.quality", bytesOf<uint8_t>({95})}},
                   ""},
        // Oldest first: of two results of one frame, the later line wins;
        // another camera's events are not mixed in.
        LayoutCase{"WatchDump",
                   "Client: com.example.camera (active)\n"
                   "0:com.example.camera  f5:1000ns:               RES:android.control.afMode: "
                   "[CONTINUOUS_PICTURE]\n"
                   "0:com.example.camera  f5:1000ns:               RES:android.control.afMode: "
                   "[AUTO]\n"
                   "Client: com.other.app (cached)\n"
                   "2:com.other.app  f8:1000ns:               RES:android.control.zoomRatio: "
                   "[1.50000000]\n",
                   {5},
                   {{"android.control.afMode", kAuto}},
                   ""},
        // Newest first: the first line is the later event.
        LayoutCase{"DumpsysNewestFirst",
                   "== Camera device 0 dynamic info: ==\n"
                   "     Tag monitoring enabled for tags:\n"
                   "        android.control.afMode\n"
                   "     Monitored tag event log:\n"
                   "        f7:2000ns:               RES:android.control.afMode: [AUTO]\n"
                   "        f7:2000ns:               RES:android.control.afMode: "
                   "[CONTINUOUS_PICTURE]\n"
                   "        f3:1000ns:               RES:android.control.afMode: [OFF]\n",
                   {3, 7},
                   {{"android.control.afMode", kAuto}},
                   ""},
        LayoutCase{"LogcatCrlf",
                   "03-14 09:41:02.120  5120  5133 I CameraService: f5:1000ns:          "
                   "   REQ:android.control.zoomRatio: [1.50000000]\r\n"
                   "E/CameraService( 5120): f6:2000ns:             REQ:android.control.afMode: "
                   "[AUTO]\r\n",
                   {5, 6},
                   {{"android.control.zoomRatio", kZoom15}, {"android.control.afMode", kAuto}},
                   ""},
        // A physical camera's events are its own; long arrays continue on the
        // next lines.
        LayoutCase{
            "PhysicalAndContinued",
            "f5:1000ns: 2             REQ:android.control.afRegions: [0 0 8 8 1 10 10 20 ]\n"
            "                                     [20 1 ]\n"
            "f6:1000ns:               REQ:android.control.afMode: [AUTO]\n",
            {5},
            {{"android.control.afRegions", bytesOf<int32_t>({0, 0, 8, 8, 1, 10, 10, 20, 20, 1})}},
            "",
            "2"},
        // Android 14's watch dump: the active client's events, whatever the
        // order of the sections; a cached client's after its "Cached @" line.
        LayoutCase{"WatchActiveClient",
                   "Client: com.other.app (cached)\n"
                   "Cached @ 03-14 09:40:11\n"
                   "0:com.other.app  f3:1000ns:                            "
                   "RES:android.control.afMode: [OFF]\n\n"
                   "Client: com.example.camera (active)\n"
                   "0:com.example.camera  f8:2000ns:                            "
                   "RES:android.control.afMode: [AUTO]\n",
                   {8},
                   {{"android.control.afMode", kAuto}},
                   "",
                   nullptr,
                   nullptr,
                   "client com.example.camera (active): the active client; 1 events of "
                   "com.other.app (cached @ 03-14 09:40:11) left out"},
        LayoutCase{"WatchCachedClientChosen",
                   "Client: com.example.camera (active)\n"
                   "0:com.example.camera  f8:2000ns:                            "
                   "RES:android.control.afMode: [AUTO]\n\n"
                   "Client: com.other.app (cached)\n"
                   "Cached @ 03-14 09:40:11\n"
                   "0:com.other.app  f3:1000ns:                            "
                   "RES:android.control.afMode: [CONTINUOUS_PICTURE]\n",
                   {3},
                   {{"android.control.afMode", kPicture}},
                   "",
                   nullptr,
                   "com.other.app",
                   "client com.other.app (cached @ 03-14 09:40:11): given"},
        // Two-digit camera ids lead watch lines; the client's first event
        // names its camera.
        LayoutCase{"WatchTwoDigitCamera",
                   "Client: com.example.camera (active)\n"
                   "12:com.example.camera  f4:0ns:             REQ:android.control.zoomRatio: "
                   "[1.50000000]\n"
                   "3:com.example.camera  f9:0ns:             REQ:android.control.afMode: "
                   "[AUTO]\n",
                   {4},
                   {{"android.control.zoomRatio", kZoom15}},
                   "",
                   nullptr,
                   nullptr,
                   "frames: the tag monitor events of camera 12 by com.example.camera, 1 of the 2"},
        // Requests run ahead of results: a later frame's request lines come
        // between an earlier frame's result lines; stream changes stand on
        // lines of their own and make frames; enum names end without a
        // blank, integers with one.
        LayoutCase{"WatchInterleaved",
                   "0:com.example.camera  f10:0ns:             REQ: output stream ids: 0 1\n"
                   "0:com.example.camera  f10:0ns:             REQ:android.control.afRegions: "
                   "[0 0 0 0 0 ]\n"
                   "0:com.example.camera  f13:0ns:             REQ:android.control.afRegions: "
                   "[10 20 30 40 1 ]\n"
                   "0:com.example.camera  f14:0ns:             REQ: output stream ids: 0 1 2\n"
                   "0:com.example.camera  f10:5000ns:                            "
                   "RES:android.control.afMode: [OFF]\n"
                   "0:com.example.camera  f11:6000ns:                            "
                   "RES:android.control.afRegions: [0 0 0 0 0 ]\n"
                   "0:com.example.camera  f13:8000ns:                            "
                   "RES:android.control.afMode: [AUTO]\n",
                   {10, 11, 13, 14},
                   {{"android.control.afMode", kAuto},
                    {"android.control.afRegions", bytesOf<int32_t>({0, 0, 0, 0, 0})}},
                   "",
                   nullptr,
                   nullptr,
                   "client com.example.camera: the client of the file's first event"}),
    [](const auto& info) { return std::string(info.param.name); });

// The frame rule over one log: result over request, removed tags, tags
// absent before their first event, the blocks' tags that are not monitored,
// and each frame's timestamp.
TEST(FrameRule, GivesEachFrameItsTags) {
    const auto d =
        load({"Dumping camera metadata array: 2 / 2 entries\n"
              "android.control.afMode (10007): byte[1]\n[OFF ]\n"
              "android.jpeg.orientation (70003): int32[1]\n[90 ]\n"
              "Tag monitoring enabled for tags:\n"
              "android.control.afMode\nandroid.control.zoomRatio\n"
              "Monitored tag event log:\n"
              "f4:450ns:                RES: android.control.afMode:  (Removed)\n"
              "f3:300ns:                RES:android.control.afMode: [CONTINUOUS_PICTURE]\n"
              "f3:250ns:  REQ:android.control.zoomRatio: [1.50000000]\n"
              "f2:150ns:  REQ:android.control.afMode: [AUTO]\n"
              "f1:50ns:   REQ: output stream ids: 0\n"});
    const std::vector<int32_t> orientation = {90};
    const std::vector<Tags> frames = {
        {},
        {{"android.control.afMode", kAuto}},
        {{"android.control.afMode", kPicture}, {"android.control.zoomRatio", kZoom15}},
        {{"android.control.afMode", kAuto}, {"android.control.zoomRatio", kZoom15}},
    };
    const Sequence s(d);
    ASSERT_EQ(s.frameCount(), frames.size());
    const int64_t stamps[] = {50, 150, 300, 450};
    for (size_t i = 0; i < frames.size(); ++i) {
        Tags want = frames[i];
        want["android.jpeg.orientation"] = bytesOf<int32_t>({90});
        EXPECT_EQ(tagsOf(*d, i), want) << "frame " << i;
        EXPECT_EQ(s.info(i).timestamp, stamps[i]) << "frame " << i;
    }
    // Recorded per frame: the monitored tags with events, from their first
    // event; orientation comes from the blocks. A frame without an event of
    // a tag did not change it.
    const std::vector<kvhost::RecordedTag> recorded = s.recordedTags();
    ASSERT_EQ(recorded.size(), 2u);
    EXPECT_EQ(recorded[0].name, "android.control.afMode");
    EXPECT_EQ(recorded[0].firstFrame, 2);
    EXPECT_EQ(recorded[1].name, "android.control.zoomRatio");
    EXPECT_EQ(recorded[1].firstFrame, 3);
    const uint32_t afMode = recorded[0].id;
    const bool changed[] = {false, true, true, true};
    for (size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(s.changed(i, afMode), changed[i]) << "frame " << i;
    }
    EXPECT_FALSE(s.changed(0, recorded[1].id));
    EXPECT_TRUE(s.changed(2, recorded[1].id));
    EXPECT_FALSE(s.changed(3, recorded[1].id));
}

// A tag's changes without building frames: both sides merged in frame
// order (a frame's request first), the later of one side's events of a
// frame, a removal, and each new file starting with the tag unset. The
// frames' numbers and times in one call, and how often each result was set.
TEST(Changes, MergeBothSidesFileAfterFile) {
    const std::string head =
        "Tag monitoring enabled for tags:\nandroid.control.afMode\nandroid.control.zoomRatio\n"
        "Monitored tag event log:\n";
    const auto d = load({head + "f5:500ns:  RES:android.control.afMode: [AUTO]\n"
                                "f5:490ns:  REQ:android.control.afMode: [CONTINUOUS_PICTURE]\n"
                                "f4:400ns:  REQ:android.control.afMode:  (Removed)\n"
                                "f3:300ns:  RES:android.control.afMode: [CONTINUOUS_PICTURE]\n"
                                "f3:290ns:  RES:android.control.afMode: [AUTO]\n"
                                "f2:200ns:  REQ:android.control.afMode: [AUTO]\n"
                                "f1:100ns:  REQ:android.control.zoomRatio: [1.50000000]\n",
                         head + "f9:900ns:  REQ:android.control.afMode: [AUTO]\n"});
    const Sequence s(d);
    struct Change {
        size_t frame;
        bool result, removed;
        uint8_t value;
        bool operator==(const Change& o) const {
            return frame == o.frame && result == o.result && removed == o.removed &&
                   value == o.value;
        }
    };
    std::vector<Change> got;
    const kvhost::TagInfo* afMode = kvhost::findTag("android.control.afMode");
    for (const kvhost::TagChange& c : s.changes(afMode->id)) {
        got.push_back({c.frame, c.result, c.removed, c.removed ? uint8_t(0) : c.bytes[0]});
    }
    const std::vector<Change> want = {
        {1, false, false, 1}, {2, true, false, 4},  {3, false, true, 0}, {4, false, false, 4},
        {4, true, false, 1},  {5, false, false, 1}, {5, true, true, 0}};
    EXPECT_TRUE(got == want) << ::testing::PrintToString(got.size()) << " changes";
    // Each side alone: the same changes.
    for (const bool result : {false, true}) {
        std::vector<Change> side;
        for (const kvhost::TagChange& c : s.changes(afMode->id, result)) {
            side.push_back({c.frame, c.result, c.removed, c.removed ? uint8_t(0) : c.bytes[0]});
        }
        std::vector<Change> fromBoth;
        std::copy_if(want.begin(), want.end(), std::back_inserter(fromBoth),
                     [&](const Change& c) { return c.result == result; });
        EXPECT_TRUE(side == fromBoth) << (result ? "result" : "request");
    }
    const std::vector<kvhost::FrameInfo> infos = s.infos();
    ASSERT_EQ(infos.size(), s.frameCount());
    for (size_t i = 0; i < infos.size(); ++i) {
        EXPECT_EQ(infos[i].number, s.info(i).number) << "frame " << i;
        EXPECT_EQ(infos[i].timestamp, s.info(i).timestamp) << "frame " << i;
    }
    const std::vector<kvhost::RecordedTag> recorded = s.recordedTags();
    ASSERT_EQ(recorded.size(), 2u);
    EXPECT_EQ(recorded[0].resultFrames, 2u);  // f3 and f5; f3's two events are one frame
    EXPECT_EQ(recorded[1].resultFrames, 0u);
}

// A log that a HAL fills with each result's metadata: one frame a block,
// numbered and timed by its tags or its place and log line; several files
// one after the other.
TEST(FrameBlocks, OneFrameABlockFileAfterFile) {
    const std::string block = "Dumping camera metadata array: 1 / 1 entries\n";
    const auto d = load({"03-14 09:41:02.500  5120  5133 D CamHal: " + block +
                             "android.control.afMode (10007): byte[1]\n[AUTO ]\n" + block +
                             "android.sync.frameNumber (170000): int64[1]\n[42 ]\n" + block +
                             "android.sensor.timestamp (e0010): int64[1]\n[777 ]\n",
                         "Tag monitoring disabled (enable with -m <name1,..,nameN>)\n" + block +
                             "android.jpeg.orientation (70003): int32[1]\n[90 ]\n"});
    EXPECT_EQ(numbers(d), (std::vector<int64_t>{1, 42, 3, 1}));
    const Sequence s(d);
    EXPECT_EQ(s.info(0).timestamp,
              ((3 * 31 + 14) * 86400 + 9 * 3600 + 41 * 60 + 2) * 1000000000LL + 500000000);
    EXPECT_EQ(s.info(2).timestamp, 777);
    EXPECT_EQ(tagsOf(*d, 0), (Tags{{"android.control.afMode", kAuto}}));
    EXPECT_EQ(tagsOf(*d, 3), (Tags{{"android.jpeg.orientation", bytesOf<int32_t>({90})}}));
    // Every tag of a block is recorded on its frame.
    std::vector<std::string> recorded;
    for (const kvhost::RecordedTag& t : s.recordedTags()) recorded.push_back(t.name);
    EXPECT_EQ(recorded,
              (std::vector<std::string>{"android.control.afMode", "android.sync.frameNumber",
                                        "android.sensor.timestamp", "android.jpeg.orientation"}));
    EXPECT_TRUE(s.changed(0, s.recordedTags()[0].id));
    EXPECT_FALSE(s.changed(1, s.recordedTags()[0].id));
}

// Watch output holds no static metadata: alone it reads without an input
// size; after a dump of the same phone it takes that dump's static metadata
// and active array; --input still wins.
TEST(Statics, AFileWithoutThemBorrowsTheDumpBeforeIt) {
    const ScratchFile watch("watch.txt",
                            "0:com.example.camera  f5:0ns:             "
                            "REQ:android.control.afMode: [AUTO]\n");
    const ScratchFile dump("dump.txt",
                           "== Camera HAL device device@3.7/internal/0 (v3.7) static "
                           "information: ==\nDumping camera metadata array: 1 / 1 entries\n"
                           "android.sensor.info.activeArraySize (f0000): int32[4]\n"
                           "[0 0 4000 3000 ]\n");
    const auto frameOf = [](const std::vector<std::string>& paths, SequenceOptions o) {
        const SequenceResult r = loadSequence(paths, o);
        EXPECT_TRUE(r) << r.error;
        return r ? r.sequence->frame(r.sequence->frameCount() - 1) : LoadResult{};
    };
    const auto noted = [](const LoadResult& f, const std::string& what) {
        for (const std::string& n : f.capture->notes) {
            if (n.find(what) != std::string::npos) return true;
        }
        return false;
    };
    const LoadResult alone = frameOf({watch.path}, {});
    ASSERT_TRUE(alone) << alone.error;
    EXPECT_EQ(alone.capture->inputWidth, 0);
    EXPECT_TRUE(alone.capture->statics.empty());
    EXPECT_TRUE(noted(alone, "input image size unknown: camera 0 has no active array size"));
    const LoadResult lent = frameOf({dump.path, watch.path}, {});
    ASSERT_TRUE(lent) << lent.error;
    EXPECT_EQ(lent.capture->inputWidth, 4000);
    EXPECT_EQ(lent.capture->inputHeight, 3000);
    EXPECT_EQ(lent.capture->statics.count(0), 1u);
    EXPECT_FALSE(noted(lent, "input image size unknown"));
    SequenceOptions given;
    given.input.emplace(640, 480);
    const LoadResult sized = frameOf({dump.path, watch.path}, given);
    ASSERT_TRUE(sized) << sized.error;
    EXPECT_EQ(sized.capture->inputWidth, 640);
    // A file given before the dump has nothing to borrow from.
    const SequenceResult before = loadSequence({watch.path, dump.path});
    ASSERT_TRUE(before) << before.error;
    EXPECT_EQ(before.sequence->frame(0).capture->inputWidth, 0);
    clearStaticMetadata();
}

TEST(BadEvents, AreLeftOutWithAWarningNamingTheLine) {
    const auto d =
        load({"f1:10ns:  REQ:android.control.afMode: [AUTO]\n"
              "f2:20ns:  ASK:android.control.afMode: [AUTO]\n"
              "f3:30ns:  REQ:android.control.zoomRatio: [fast]\n"
              "f4:40ns:  REQ:android.control.afMode: [SOMETIMES]\n"
              "f5:50ns:  REQ:org.example.own.level: [7 ]\n"});
    EXPECT_EQ(allWarnings(*d),
              ":2: an event line without REQ: or RES:; the event is left out\n"
              ":3: android.control.zoomRatio: \"fast\" is not a number; the event is left out\n"
              ":4: android.control.afMode: \"SOMETIMES\" is neither a number nor value names "
              "of the tag; the event is left out\n"
              ":5: org.example.own.level: neither the tag table nor the dump's vendor tags "
              "type it; read as int32 from its printed values\n");
    EXPECT_EQ(numbers(d), (std::vector<int64_t>{1, 5}));
    EXPECT_EQ(tagsOf(*d, 1)["org.example.own.level"], bytesOf<int32_t>({7}));
}

TEST(BadFiles, AreOneErrorNamingTheFile) {
    const ScratchFile text("no-events.txt", "camera service started\n");
    const SequenceResult r = loadSequence({text.path});
    EXPECT_FALSE(r);
    EXPECT_EQ(r.error, text.path +
                           ": neither a tag monitor event log nor a camera metadata dump: no "
                           "event line and no \"Dumping camera metadata array\" line");
    SequenceOptions other;
    other.camera = 3;
    const ScratchFile log("camera-0.txt", "0:app  f1:10ns:  REQ:android.control.afMode: [AUTO]\n");
    EXPECT_EQ(loadSequence({log.path}, other).error,
              log.path + ": camera 3 has no tag monitor event (the log has events of camera 0)");
    SequenceOptions client;
    client.client = "com.absent";
    EXPECT_EQ(
        loadSequence({log.path}, client).error,
        log.path + ": client com.absent has no tag monitor event (the log has events of app)");
    EXPECT_EQ(Sequence(nullptr).frame(0).error, "frame 0: the sequence has 0 frames");
}

// What a plug-in sees along a recorded session: the zoom ratio moving from
// 1.0 to 2.0, whichever Android printed it.
TEST(SessionSamples, ZoomRatioMovesFrameByFrame) {
    for (const char* sample : {"session-android13.txt", "session-android11.txt"}) {
        const SequenceResult r =
            loadSequence({std::string(KVTEST_SOURCE_DIR) + "/samples/" + sample});
        ASSERT_TRUE(r) << r.error;
        EXPECT_EQ(r.warnings, std::vector<std::string>{}) << sample;
        std::vector<float> zoom;
        for (size_t i = 0; i < r.sequence->frameCount(); ++i) {
            const LoadResult f = r.sequence->frame(i);
            ASSERT_TRUE(f) << f.error;
            float ratio = 0;
            EXPECT_EQ(kvalgo2::MetaUtils().GetAndroidZoomRatio(f.capture->frame, &ratio), 0);
            if (zoom.empty() || zoom.back() != ratio) zoom.push_back(ratio);
        }
        EXPECT_EQ(zoom, (std::vector<float>{1.0f, 1.1f, 1.2f, 1.3f, 1.4f, 1.5f, 1.6f, 1.7f, 1.8f,
                                            1.9f, 2.0f}))
            << sample;
    }
    clearStaticMetadata();
}

// The watch sample: the active client's camera 0 through an AE precapture,
// the cached client's and the other camera's events left out.
TEST(SessionSamples, WatchDumpReadsTheActiveClient) {
    const SequenceResult r =
        loadSequence({std::string(KVTEST_SOURCE_DIR) + "/samples/session-watch.txt"});
    ASSERT_TRUE(r) << r.error;
    EXPECT_EQ(r.warnings, std::vector<std::string>{});
    const Sequence& s = *r.sequence;
    std::vector<int64_t> frames;
    std::vector<uint8_t> states;  // android.control.aeState as it moves
    const kvhost::TagInfo* ae = kvhost::findTag("android.control.aeState");
    ASSERT_NE(ae, nullptr);
    for (size_t i = 0; i < s.frameCount(); ++i) {
        frames.push_back(s.info(i).number);
        const LoadResult f = s.frame(i);
        ASSERT_TRUE(f) << f.error;
        const camera_metadata_ro_entry_t e = f.capture->frame->find(ae->id);
        ASSERT_EQ(e.count, 1u) << "frame " << frames.back();
        if (states.empty() || states.back() != e.data.u8[0]) states.push_back(e.data.u8[0]);
    }
    EXPECT_EQ(frames,
              (std::vector<int64_t>{200, 203, 205, 212, 213, 215, 217, 220, 221, 222, 223, 224}));
    // SEARCHING, CONVERGED, PRECAPTURE, FLASH_REQUIRED.
    EXPECT_EQ(states, (std::vector<uint8_t>{1, 2, 5, 4}));
    clearStaticMetadata();
}

}  // namespace
}  // namespace loader
}  // namespace kvhost
