// Reading camera metadata dumps: every way a copy of Android's dump text
// comes to us gives the entries the device printed, an entry that does not
// read whole is left out with a warning naming its line and tag, and a whole
// dumpsys becomes the frame and static metadata the defaults and options say.
#include <gtest/gtest.h>
#if defined(KVTEST_ZIP)
#include <archive.h>
#include <archive_entry.h>
#endif

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "DumpCapture.h"
#include "InputText.h"
#include "KvMetadata.h"
#include "Load.h"
#include "LoaderTestSupport.h"
#include "MetaUtils.h"
#include "kvhost/Adapter.h"
#include "kvhost/Capture.h"

namespace kvhost {
namespace loader {
namespace {

const std::vector<uint8_t> kCrop = bytesOf<int32_t>({400, 300, 3200, 2400});
const std::vector<uint8_t> kAfState = bytesOf<uint8_t>({2});

// A block holding the crop region and the AF state, as Android prints them.
constexpr const char* kBlock =
    R"(Dumping camera metadata array: 2 / 2 entries, 0 / 0 bytes of extra data.
  Version: 1, Flags: 00000000
  android.scaler.cropRegion (d0000): int32[4]
    [400 300 3200 2400 ]
  android.control.afState (10020): byte[1]
    [PASSIVE_FOCUSED ]
)";

struct FormatCase {
    const char* name;
    std::string text;
    std::map<std::string, std::vector<uint8_t>> entries;  // of block 1, by name
    std::string warning;                                  // in a warning; "" for none
};

class DumpFormat : public ::testing::TestWithParam<FormatCase> {};

TEST_P(DumpFormat, ReadsWhatTheDevicePrinted) {
    const Dump dump = readDump(GetParam().text, "dump.txt");
    ASSERT_FALSE(dump.blocks.empty());
    std::map<std::string, std::vector<uint8_t>> entries;
    for (const DumpEntry& e : dump.blocks[0].entries) entries[e.name] = e.bytes;
    EXPECT_EQ(entries, GetParam().entries);
    std::string warnings;
    for (const std::string& w : dump.warnings) warnings += w + "\n";
    if (GetParam().warning.empty()) {
        EXPECT_EQ(warnings, "");
    } else {
        EXPECT_NE(warnings.find(GetParam().warning), std::string::npos) << warnings;
    }
}

const std::map<std::string, std::vector<uint8_t>> kBoth = {{"android.scaler.cropRegion", kCrop},
                                                           {"android.control.afState", kAfState}};
const std::map<std::string, std::vector<uint8_t>> kAfOnly = {{"android.control.afState", kAfState}};

// Entry `header` followed by the afState entry, in a block.
std::string withEntry(const std::string& entry) {
    return "Dumping camera metadata array: 2 / 2 entries, 0 / 0 bytes of extra data.\n" + entry +
           "\nandroid.control.afState (10020): byte[1]\n[PASSIVE_FOCUSED ]\n";
}

// `entry`, which does not read whole, before the afState entry: left out with `warning`.
FormatCase bad(const char* name, const std::string& entry, const std::string& warning) {
    return FormatCase{name, withEntry(entry), kAfOnly, warning};
}

// The afState entry and `entry` pasted without their block's line.
std::string fragment(const std::string& entry) {
    return "android.control.afState (10020): byte[1]\n[PASSIVE_FOCUSED ]\n" + entry;
}

// The camera service's list of its cameras.
std::string cameraList(std::initializer_list<const char*> ids) {
    std::string list = "Number of camera devices: " + std::to_string(ids.size()) + "\n";
    int n = 0;
    for (const char* id : ids) {
        list += "    Device " + std::to_string(n++) + " maps to \"" + std::string(id) + "\"\n";
    }
    return list;
}

const char* const kPhysicalIds = "android.logicalMultiCamera.physicalIds (1a0000): ";

// What of a line is read: logcat's prefixes, fences, comments and blanks go.
TEST(DumpLine, KeepsWhatTheDevicePrinted) {
    const struct {
        const char* line;
        const char* kept;
    } rows[] = {
        {"  [1 ]\r", "[1 ]"},
        {"11-22 10:15:30.123  1234  5678 I CameraService: [1 ]", "[1 ]"},
        {"2026-11-22 10:15:30.123  1047  1234  5678 F Camera3-Device: [1 ]", "[1 ]"},
        {"I/CameraService( 1234): [1 ]", "[1 ]"},
        {"S/CameraService( 1234): [1 ]", "[1 ]"},
        // A threadtime prefix holds a pid and a tid: this line has none.
        {"11-22 10:15:30.123  1234 I Tag: [1 ]", "11-22 10:15:30.123  1234 I Tag: [1 ]"},
        {"[1 ]  // noted", "[1 ]"},
        {"```text", ""},
        {"~~~", ""},
    };
    for (const auto& r : rows) EXPECT_EQ(cleanDumpLine(r.line), r.kept) << r.line;
}

// A log line's time, in ns from the start of its year (months of 31 days);
// digit runs longer than a device prints read without overflow.
TEST(DumpLine, TimeOfALogLine) {
    const int64_t want =
        ((3 * 31 + 14) * 86400 + 9 * 3600 + 41 * 60 + 2) * 1000000000LL + 500000000;
    EXPECT_EQ(logLineTime("03-14 09:41:02.500  5120  5133 D CamHal: x"), want);
    EXPECT_EQ(logLineTime("2026-03-14 09:41:02.5  1047  5120  5133 D CamHal: x"), want);
    EXPECT_EQ(logLineTime("f5:1000ns:  REQ:android.control.afMode: [AUTO]"), std::nullopt);
    const std::optional<int64_t> garbled =
        logLineTime("356009244062-99 99:99:99999999999.123456789123 x");
    ASSERT_TRUE(garbled.has_value());
    EXPECT_GT(*garbled, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Variations, DumpFormat,
    ::testing::Values(
        FormatCase{"AsPrinted", kBlock, kBoth, ""},
        FormatCase{"NewerBlockLine",
                   "Dumping camera metadata array: 2 / 2 entries\n" +
                       std::string(kBlock).substr(std::string(kBlock).find('\n') + 1),
                   kBoth, ""},
        FormatCase{"RowJoinedToHeader",
                   withEntry("android.scaler.cropRegion (d0000): int32[4] [400 300 3200 2400 ]"),
                   kBoth, ""},
        FormatCase{"RowsOfAllTypes",
                   "Dumping camera metadata array: 5 / 5 entries\n"
                   "android.control.zoomRatio (1002f): float[2]\n[1.25000000 -0.50000000 ]\n"
                   "android.sensor.timestamp (e0010): int64[2]\n[86400123456789 -1 ]\n"
                   "android.control.aeCompensationStep (10016): rational[2]\n[(1 / 6) (-2 / 3) ]\n"
                   "android.lens.focusDistance (80003): float[1]\n[nan ]\n"
                   "android.control.afState (10020): byte[1]\n[7 ]\n",
                   {{"android.control.zoomRatio", bytesOf<float>({1.25f, -0.5f})},
                    {"android.sensor.timestamp", bytesOf<int64_t>({86400123456789, -1})},
                    {"android.control.aeCompensationStep", bytesOf<int32_t>({1, 6, -2, 3})},
                    {"android.lens.focusDistance", bytesOf<float>({NAN})},
                    {"android.control.afState", bytesOf<uint8_t>({7})}},
                   ""},
        // Enum names of any position of a tag's values; labels of tag lists.
        FormatCase{"EnumNamesAndLabels",
                   "Dumping camera metadata array: 2 / 2 entries\n"
                   "android.scaler.availableStreamConfigurations (d000a): int32[8]\n"
                   "[33 320 240 OUTPUT ]\n[34 640 480 INPUT ]\n"
                   "android.request.availableRequestKeys (c000d): int32[2]\n"
                   "[65543 (android.control.afMode) 851968 (android.scaler.cropRegion) ]\n",
                   {{"android.scaler.availableStreamConfigurations",
                     bytesOf<int32_t>({33, 320, 240, 0, 34, 640, 480, 1})},
                    {"android.request.availableRequestKeys", bytesOf<int32_t>({0x10007, 0xD0000})}},
                   ""},
        FormatCase{"EmptyEntry",
                   withEntry("android.scaler.cropRegion (d0000): int32[0]"),
                   {{"android.scaler.cropRegion", {}}, {"android.control.afState", kAfState}},
                   ""},
        // Rows after an elision have lost their entry: skipped, the entries around kept.
        FormatCase{"ElidedEntries",
                   withEntry("...\n[1 2 ]\nandroid.scaler.cropRegion (d0000): int32[4]\n"
                             "[400 300 3200 2400 ]\n...\n[5 6 ]"),
                   kBoth, ""},
        // What cannot be read whole is left out, with a warning naming line and tag.
        bad("ElidedRows", "android.scaler.cropRegion (d0000): int32[12]\n[1 2 3 4 ]\n...\n[9 ]",
            "dump.txt:2: android.scaler.cropRegion: shows 4 of its 12 values, the others elided"),
        bad("FewerValuesThanCount", "android.scaler.cropRegion (d0000): int32[40]\n[1 2 3 4 ]",
            "dump.txt:2: android.scaler.cropRegion: shows 4 of its 40 values"),
        bad("MoreValuesThanCount", "android.scaler.cropRegion (d0000): int32[2]\n[1 2 3 4 ]",
            "shows 4 of its 2 values"),
        bad("HeaderWithoutValues", "android.scaler.cropRegion (d0000): int32[4]",
            "shows 0 of its 4 values"),
        bad("UnknownEnumName", "android.control.afMode (10007): byte[1]\n[SOMETIMES ]",
            "dump.txt:3: android.control.afMode: \"SOMETIMES\" is neither a number nor a value"),
        bad("ByteOutOfRange", "android.control.afMode (10007): byte[1]\n[256 ]",
            "256 is out of a byte's range"),
        bad("Int32OutOfRange", "android.scaler.cropRegion (d0000): int32[1]\n[-2147483649 ]",
            "-2147483649 is out of int32's range"),
        bad("UnknownType", "android.control.afMode (10007): int128[1]\n[1 ]",
            "unknown type \"int128\""),
        bad("UnclosedRow", "android.control.afMode (10007): byte[1]\n[1", "closing"),
        bad("TextAfterRow", "android.control.afMode (10007): byte[1]\n[1 ] x",
            "text after the value row"),
        bad("BadRational", "android.control.aeCompensationStep (10016): rational[1]\n[(1 / x) ]",
            "not a rational"),
        // A pasted fragment is one block, whatever text lies between its entries;
        // an entry cut off at its end is left out.
        FormatCase{"Fragment",
                   "Latest received frame:\n" +
                       fragment("In-flight requests:\n  android.scaler.cropRegion (d0000): "
                                "int32[4]\n    [400 300 3200 2400 ]\n"),
                   kBoth,
                   "dump.txt:2: the text has no \"Dumping camera metadata array\" line: its "
                   "entries are read as one block of unknown kind (a pasted fragment)"},
        FormatCase{"FragmentCutInARow", fragment("android.scaler.cropRegion (d0000): int32[4]\n[1"),
                   kAfOnly, "dump.txt:4: android.scaler.cropRegion: value row without its closing"},
        FormatCase{"FragmentCutAfterARow",
                   fragment("android.scaler.cropRegion (d0000): int32[4]\n[1 2 ]"), kAfOnly,
                   "dump.txt:3: android.scaler.cropRegion: shows 2 of its 4 values"},
        // Where the dump has blocks, an entry outside them is not a fragment.
        FormatCase{"EntryOutsideBlocks",
                   "android.control.afMode (10007): byte[1]\n[1 ]\n" + std::string(kBlock), kBoth,
                   "dump.txt:1: android.control.afMode: entry outside a metadata block is skipped"},
        // A physical id list printed as its characters, without the NUL after
        // each id, is read back when one cut into the cameras named gives its count.
        FormatCase{"PhysicalIdsAsCharacters",
                   withEntry(kPhysicalIds + std::string("byte[12]\n[5 8 5 6 ]\n[5 2 5 4 ]\n")) +
                       cameraList({"0", "5", "2", "58", "56", "52", "54"}),
                   {{"android.logicalMultiCamera.physicalIds",
                     {'5', '8', 0, '5', '6', 0, '5', '2', 0, '5', '4', 0}},
                    {"android.control.afState", kAfState}},
                   ""},
        FormatCase{"PhysicalIdsCutTwoWays",
                   cameraList({"2", "21", "15", "5"}) +
                       withEntry(kPhysicalIds + std::string("byte[5]\n[2 1 5 ]")),
                   kAfOnly,
                   "dump.txt:7: android.logicalMultiCamera.physicalIds: 2 or more splits of the "
                   "characters 2 1 5 into camera ids of the dump give 5 bytes (2, 15 and 21, 5): "
                   "ambiguous"},
        bad("PhysicalIdsOfNoCamera", kPhysicalIds + std::string("byte[4]\n[5 8 ]"),
            "dump.txt:2: android.logicalMultiCamera.physicalIds: no split of the characters 5 8 "
            "into camera ids of the dump gives 4 bytes"),
        bad("PhysicalIdsShortAsNumbers", kPhysicalIds + std::string("byte[6]\n[53 56 0 ]"),
            "shows 3 of its 6 values"),
        FormatCase{"OrphanRows",
                   "Dumping camera metadata array: 2 / 3 entries\n[5 6 7 ]\n" +
                       std::string(kBlock).substr(std::string(kBlock).find("  android")),
                   kBoth, "dump.txt:2: value rows without an entry header"}),
    [](const auto& info) { return std::string(info.param.name); });

const TagPayload* find(const std::vector<TagPayload>& tags, const char* name) {
    for (const TagPayload& p : tags) {
        if (p.info->name == name) return &p;
    }
    return nullptr;
}

// ---- Dumps of a few blocks ------------------------------------------------

// The capture of a dump text, with an input size: a few blocks hold no
// active array to take it from.
Capture captureOf(const std::string& text) {
    DumpOptions options;
    options.input.emplace(640, 480);
    return captureFromDump(readDump(text, "d"), options);
}

TEST(DumpCapture, LastBlockOfNoCameraIsTheFrameAndItsFwkIdTheCamera) {
    const Capture c = captureOf(std::string(kBlock) +
                                "Dumping camera metadata array: 1 / 1 entries\n"
                                "kovani.snapshot.fwkCameraId (80020003): int32[1]\n[3 ]\n");
    EXPECT_EQ(c.cameraId, 3);
    EXPECT_EQ(c.frame.size(), 1u);
}

// The frame is the camera's last result of the current session, the static
// metadata of a physical camera its first characteristics.
TEST(DumpCapture, BlocksTheCaptureTakes) {
    const std::string result =
        "Latest received frame\nDumping camera metadata array: 1 / 1 entries\n";
    const std::string af = "android.control.afState (10020): byte[1]\n";
    const std::string text =
        "== Camera HAL device device@3.7/internal/0 (v3.7) static information: ==\n"
        "Dumping camera metadata array: 1 / 1 entries\n"
        "android.sensor.info.activeArraySize (f0000): int32[4]\n[0 0 0 3000 ]\n"
        "Physical camera 2 characteristics:\nDumping camera metadata array: 1 / 1 entries\n"
        "android.sensor.info.activeArraySize (f0000): int32[4]\n[0 0 2000 1500 ]\n"
        "Physical camera 2 characteristics:\nDumping camera metadata array: 1 / 1 entries\n" +
        af + "[9 ]\n== Camera device 0 dynamic info: ==\n" + result + af + "[1 ]\n" + result +
        "kovani.snapshot.fwkCameraId (80100003): int32[0]\n" + af + "[2 ]\n" + af +
        "[5 ]\nDumpsys from previous open session:\n" + result + af + "[3 ]\n";
    const Capture c = captureOf(text);
    EXPECT_EQ(find(c.frame, "android.control.afState")->bytes, bytesOf<uint8_t>({2}));
    ASSERT_EQ(c.warnings.size(), 1u);
    EXPECT_NE(c.warnings[0].find("d:23: android.control.afState: given twice in its block"),
              std::string::npos);
    // An empty framework camera id names no camera: the chosen one is added.
    EXPECT_EQ(c.frame.back().info->name, "kovani.snapshot.fwkCameraId");
    EXPECT_EQ(c.frame.back().bytes, bytesOf<int32_t>({0}));
    EXPECT_NE(find(c.statics.at(2), "android.sensor.info.activeArraySize"), nullptr);
    // An active array of no width gives no input size.
    EXPECT_THROW(captureFromDump(readDump(text, "d"), {}), InputError);
}

// Physical ids printed as characters, read back through the cameras of the
// dump's blocks: the library finds the roles of the physical cameras.
TEST(DumpCapture, RebuiltPhysicalIdsGiveTheRoles) {
    std::string text =
        "== Camera HAL device device@3.7/internal/0 (v3.7) static information: ==\n"
        "Dumping camera metadata array: 1 / 1 entries\n" +
        std::string(kPhysicalIds) + "byte[8]\n[2 5 6 7 ]\n";
    for (const char* id : {"2", "5", "6", "7"}) {
        text += "Physical camera " + std::string(id) +
                " characteristics:\nDumping camera metadata array: 1 / 1 entries\n"
                "com.kovani.cameraid.role.cameraId (80080000): int32[1]\n[" +
                id + "0 ]\n";
    }
    Capture c = captureOf(text);
    EXPECT_EQ(c.notes.back(),
              "android.logicalMultiCamera.physicalIds of block 1 (line 3): rebuilt from the "
              "printed characters as the ids 2, 5, 6, 7");
    install(std::move(c));
    std::vector<int> roles;
    EXPECT_EQ(kvalgo2::MetaUtils().GetMultiCameraPhyCameraRoleIds(0, roles), 0);
    EXPECT_EQ(roles, (std::vector<int>{20, 50, 60, 70}));
    clearStaticMetadata();
}

TEST(DumpCapture, UnnamedVendorTagIsNamedByTheVendorList) {
    const Capture c = captureOf(
        "== Vendor tags: ==\n"
        "0x80020000 (faceInfo) with type 1 (int32) defined in section kovani.bokeh\n"
        "Dumping camera metadata array: 2 / 2 entries\n"
        "unknownSection.unknownTag (80020000): int32[9]\n[1 2 3 4 ]\n[5 6 7 8 ]\n[9 ]\n"
        "unknownSection.unknownTag (80020001): int32[1]\n[1 ]\n");
    EXPECT_NE(find(c.frame, "kovani.bokeh.faceInfo"), nullptr);
    ASSERT_EQ(c.warnings.size(), 1u);
    EXPECT_NE(c.warnings[0].find("d:8: unknownSection.unknownTag: a vendor tag the device did "
                                 "not name"),
              std::string::npos);
}

TEST(DumpCapture, TagsThatDoNotFitAreLeftOutWithAWarning) {
    const std::string text =
        ("Dumping camera metadata array: 6 / 6 entries\n"
         // Printed as int32, but Android's AF mode holds bytes.
         "android.control.afMode (10007): int32[1]\n[1 ]\n"
         // Shorter than the 448-byte record the library copies.
         "kovani.ai.asd.SmartAE (80020000): byte[2]\n[1 2 ]\n"
         // A device tag on an id the table gives another tag: a fresh id.
         "org.example.dump.ownTag (80100003): float[1]\n[1.50000000 ]\n"
         "android.scaler.cropRegion (d0000): int32[4]\n[1 2 3 4 ]\n"
         // Newer than the tag table: read as printed, said once; an id
         // without an Android name stays out.
         "android.future.level (1fff0): int32[2]\n[7 8 ]\n"
         "other.future.level (1fff1): int32[1]\n[7 ]\n");
    const Capture c = captureOf(text);
    ASSERT_EQ(c.warnings.size(), 3u);
    // The block list counts them, registering nothing.
    std::vector<std::string> listed;
    EXPECT_NE(listBlocks(readDump(text, "d"), &listed).find(" 6 of 6       3\n"),
              std::string::npos);
    EXPECT_EQ(listed, c.warnings);
    EXPECT_NE(c.warnings[2].find("d:12: other.future.level: an Android tag id the table does not"),
              std::string::npos);
    const TagPayload* newer = find(c.frame, "android.future.level");
    ASSERT_NE(newer, nullptr);
    EXPECT_EQ(newer->info->id, 0x1fff0u);
    EXPECT_EQ(newer->count, 2u);
    EXPECT_TRUE(std::any_of(c.notes.begin(), c.notes.end(), [](const std::string& n) {
        return n.find("d:10: android.future.level: an Android tag newer than the tag table") !=
               std::string::npos;
    }));
    EXPECT_NE(c.warnings[0].find("d:2: android.control.afMode: printed as int32"),
              std::string::npos);
    EXPECT_NE(c.warnings[1].find("d:4: kovani.ai.asd.SmartAE: 2 byte values, but the library "
                                 "reads 448"),
              std::string::npos);
    const TagPayload* own = find(c.frame, "org.example.dump.ownTag");
    ASSERT_NE(own, nullptr);
    EXPECT_NE(own->info->id, 0x80100003u);
    EXPECT_NE(find(c.frame, "android.scaler.cropRegion"), nullptr);
}

// A vendor entry's printed name must read back from a saved capture: one
// that is no name (a number, bytes a damaged log mixed in, a blank) stays out
// with a warning; a name of letters, digits, '.' and '_' is kept.
TEST(DumpCapture, AVendorEntryThatIsNoNameStaysOut) {
    const struct {
        std::string name;
        bool kept;
    } cases[] = {
        {"org.example.cam_2.level", true},     {"Vendor.Level2", true},
        {"0x80020000.level", false},           {"org.example.cropR\x90\x90g", false},
        {"org.example.crop\x01Region", false}, {"org.example.crop-region", false},
        {"_org.example.level", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Capture capture = captureOf("Dumping camera metadata array: 1 / 1 entries\n" +
                                          c.name + " (80020000): float[1]\n[0.50000000 ]\n");
        EXPECT_EQ(find(capture.frame, c.name.c_str()) != nullptr, c.kept);
        EXPECT_EQ(capture.warnings.size(), c.kept ? 0u : 1u);
        if (!c.kept && !capture.warnings.empty()) {
            EXPECT_NE(capture.warnings[0].find("not a tag name"), std::string::npos)
                << capture.warnings[0];
        }
    }
}

TEST(DumpCapture, ImpossibleChoicesAreOneError) {
    const Dump dump = readDump(kBlock, "d");
    const auto message = [&](const DumpOptions& o) {
        try {
            captureFromDump(dump, o);
        } catch (const InputError& e) {
            return std::string(e.what());
        }
        return std::string("no error");
    };
    DumpOptions frame, stat;
    frame.frame = 2;
    EXPECT_EQ(message(frame), "d: --frame: no block 2 (the dump has 1)");
    stat.statics[0] = 5;
    stat.input.emplace(1, 1);
    EXPECT_EQ(message(stat), "d: --static: no block 5 (the dump has 1)");
    EXPECT_EQ(message({}),
              "d: no input image size: camera 0 has no active array size in the dump; give one "
              "with --input WxH");
    // A camera no block names.
    const std::string sample = std::string(KVTEST_SOURCE_DIR) + "/samples/dumpsys-camera.txt";
    DumpOptions camera;
    camera.camera = 99;
    EXPECT_EQ(loadCapture(sample, camera).error,
              sample +
                  ": --camera 99: no camera 99 in the dump (its blocks are of cameras 0, 1, "
                  "2, 3)");
}

// ---- Files of either kind ---------------------------------------------------

struct BadFileCase {
    const char* name;
    std::string file;     // a scratch file's name; "/" for the root directory
    std::string content;  // written to the scratch file
    std::string error;
};

class BadFile : public ::testing::TestWithParam<BadFileCase> {};

TEST_P(BadFile, IsOneErrorNamingTheFile) {
    const BadFileCase& bad = GetParam();
    std::optional<ScratchFile> scratch;
    if (bad.file != "/") scratch.emplace(bad.file, bad.content);
    const std::string path = scratch ? scratch->path : bad.file;
    const LoadResult loaded = loadCapture(path);
    EXPECT_FALSE(loaded);
    EXPECT_EQ(loaded.error, path + ": " + bad.error);
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, BadFile,
    ::testing::Values(
        BadFileCase{"Directory", "/", "", "cannot open: Is a directory"},
        BadFileCase{"Empty", "empty.txt", "", "empty file"},
        BadFileCase{"Blank", "blank.txt", " \r\n\n", "empty file"},
        BadFileCase{"Binary", "binary.bin",
                    std::string("\x7f"
                                "ELF\x02\x01\x01\0\0",
                                9),
                    "binary data, neither a capture description nor a camera metadata dump"},
        BadFileCase{"DeepJson", "deep.json",
                    "{\"a\": " + std::string(100000, '[') + std::string(100000, ']') + "}",
                    "malformed JSON: nested more than 64 levels deep at line 1"}),
    [](const auto& info) { return std::string(info.param.name); });

#if defined(KVTEST_ZIP)
// A zip of `entries` (name, text), as `adb bugreport` writes one.
std::string zipOf(const std::vector<std::pair<std::string, std::string>>& entries) {
    std::string out(1 << 20, '\0');
    size_t used = 0;
    archive* a = archive_write_new();
    archive_write_set_format_zip(a);
    archive_write_open_memory(a, out.data(), out.size(), &used);
    for (const auto& [name, text] : entries) {
        archive_entry* e = archive_entry_new();
        archive_entry_set_pathname(e, name.c_str());
        archive_entry_set_size(e, static_cast<la_int64_t>(text.size()));
        archive_entry_set_filetype(e, AE_IFREG);
        archive_entry_set_perm(e, 0644);
        archive_write_header(a, e);
        archive_write_data(a, text.data(), text.size());
        archive_entry_free(e);
    }
    archive_write_close(a);
    archive_write_free(a);
    out.resize(used);
    return out;
}
#endif

// What is kept of an input: a plain text as it is; of a bug report its camera
// service dump and camera metadata lines, every other line left empty so that
// line numbers hold; zips; and the bounds no real input reaches.
TEST(ReadInput, KeepsTheCameraTextOfWhatTheUserHands) {
    const std::string rule(56, '=');
    const std::string bugreport =
        rule +
        "\n== dumpstate: 2026-11-20 10:00:00\n"
        "------ SYSTEM LOG (logcat -v threadtime) ------\n"
        "11-20 09:59:58.100  1000  1200 I ActivityManager: Start proc\n"
        "11-20 09:59:58.200  5120  5133 D CamHal: Dumping camera metadata array: 1 / 1 "
        "entries\n"
        "11-20 09:59:58.200  5120  5133 D CamHal: android.control.afMode (10007): byte[1]\n"
        "11-20 09:59:58.200  5120  5133 D CamHal: [AUTO ]\n"
        "11-20 09:59:58.300  1000  1200 I wm: [1,2] moved\n"
        "-------------------------------------------------------------------------------\n"
        "DUMP OF SERVICE media.camera:\n"
        "== Camera device 0 dynamic info: ==\n"
        "  Device 0 is open\n"
        "--------- 0.05s was the duration of dumpsys media.camera, ending at: x\n"
        "DUMP OF SERVICE media.camera.proxy:\n"
        "  nothing\n";
    const std::vector<int> kept = {1, 2, 5, 6, 7, 10, 11, 12, 13};  // line numbers
    std::string want;
    int number = 0;
    for (size_t at = 0; at < bugreport.size(); at = bugreport.find('\n', at) + 1) {
        const std::string line = bugreport.substr(at, bugreport.find('\n', at) - at);
        const bool keep = std::find(kept.begin(), kept.end(), ++number) != kept.end();
        want += (keep ? line : "") + "\n";
    }
    InputLimits small;
    small.lineBytes = 100;
    small.lines = 20;
    small.entryBytes = 1000;
    struct Row {
        const char* name;
        std::string bytes;
        std::string text;   // kept, when read
        std::string error;  // after the file's name, when refused
        std::string note;
    };
    std::vector<Row> rows = {
        {"PlainTextAsItIs", "a\r\n\nb", "a\r\n\nb", "", ""},
        {"BugReport", bugreport, want, "",
         "a bug report: its camera service dump and camera metadata lines read"},
        {"BugReportWithoutCameraText",
         rule + "\n== dumpstate: x\nDUMP OF SERVICE wifi:\n  mode: [1] on\n", "",
         "a bug report without camera text (no media.camera service dump, no camera metadata "
         "lines)",
         ""},
        {"LongLine", "a\n" + std::string(101, 'x'), "",
         "line 2 is longer than 0 MiB: neither a capture description nor a camera metadata dump",
         ""},
        {"ManyLines", std::string(21, '\n'), "", "more than 20 lines", ""},
        // Past the second line a text that is no bug report is kept whole:
        // its lines are still counted and measured, the last one without an end too.
        {"LongLineKeptWhole", "a\nb\nc\n" + std::string(101, 'x') + "\n", "",
         "line 4 is longer than 0 MiB: neither a capture description nor a camera metadata dump",
         ""},
        {"ManyLinesLastWithoutEnd", std::string(20, '\n') + "x", "", "more than 20 lines", ""},
        {"Binary", std::string("ab\0", 3), "",
         "binary data, neither a capture description nor a camera metadata dump", ""},
        {"Empty", " \n\t", "", "empty file", ""},
#if defined(KVTEST_ZIP)
        {"Zip",
         zipOf({{"version.txt", "2.0"},
                {"main_entry.txt", "bugreport-x.txt"},
                {"bugreport-y.txt", "not this one"},
                {"bugreport-x.txt", bugreport}}),
         want, "", "read bugreport-x.txt of the zip (the bug report)"},
        {"ZipWithoutMainEntry", zipOf({{"FS/bugreport-z.txt", "no"}, {"bugreport-z.txt", "a\n"}}),
         "a\n", "", "read bugreport-z.txt of the zip (the bug report)"},
        {"ZipWithoutBugReport", zipOf({{"version.txt", "2.0"}}), "",
         "a zip without a bug report (no bugreport-*.txt entry)", ""},
        {"ZipBomb", zipOf({{"bugreport-b.txt", std::string(1001, '\n')}}), "",
         "bugreport-b.txt expands past 0 GiB, more than any bug report", ""},
        {"TruncatedZip", zipOf({{"bugreport-t.txt", std::string(300, 'a')}}).substr(0, 60), "",
         "cannot read the zip:", ""},
#endif
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        try {
            const InputText in = readInputBytes(r.bytes, "in", small);
            EXPECT_TRUE(r.error.empty()) << "read, not refused";
            EXPECT_EQ(in.text.view(), r.text);
            EXPECT_EQ(in.note, r.note);
        } catch (const InputError& e) {
            EXPECT_EQ(std::string(e.what()).rfind("in: " + r.error, 0), 0u) << e.what();
            EXPECT_FALSE(r.error.empty());
        }
    }
    // From a file, read in pieces: a text longer than a piece, its lines
    // across the pieces' edges, kept byte for byte.
    std::string whole;
    for (int i = 0; whole.size() < 300000; ++i) whole += std::string(i % 97, 'v') + "\r\n";
    whole += "last";
    const ScratchFile file("pieces.txt", whole);
    EXPECT_EQ(readInput(file.path).text.view(), whole);
#if defined(KVTEST_ZIP)
    // From a file, through the loader: the capture says what it read.
    const ScratchFile zip("bugreport.zip", zipOf({{"bugreport-x.txt", bugreport}}));
    DumpOptions o;
    o.input.emplace(640, 480);
    const LoadResult loaded = loadCapture(zip.path, o);
    ASSERT_TRUE(loaded) << loaded.error;
    EXPECT_EQ(loaded.capture->notes.front(), "read bugreport-x.txt of the zip (the bug report)");
#endif
}

// One frame of a dump that also logged a session: the report points at --frames.
TEST(LoadCapture, ADumpWithATagMonitorLogSaysSo) {
    const LoadResult r =
        loadCapture(std::string(KVTEST_SOURCE_DIR) + "/samples/session-android13.txt");
    ASSERT_TRUE(r) << r.error;
    EXPECT_EQ(r.capture->notes.back(),
              "the file also holds a tag monitor log of 81 events: --frames shows the session "
              "frame by frame");
}

TEST(LoadCapture, DumpOptionsOnACaptureDescriptionAreAnError) {
    const ScratchFile description("with-options.json", "\xEF\xBB\xBF{}");  // a byte order mark
    DumpOptions o;
    o.frame = 1;
    EXPECT_EQ(loadCapture(description.path, o).error,
              description.path +
                  ": a capture description; --camera, --frame, --static and --input apply to "
                  "dumps");
}

// A load that fails leaves the stand-ins as they were: no vendor tag of the
// file registered, the static metadata and the adapter's script untouched.
TEST(LoadCapture, FailureChangesNothing) {
    auto stat = Metadata::create();
    setStaticMetadata(5, stat);
    AdapterScript script;
    script.shiftX = 17;
    setAdapterScript(script);
    const ScratchFile dump("failing-dump.txt",
                           "Dumping camera metadata array: 1 / 1 entries\n"
                           "org.example.failing.tag (80440000): int32[1]\n[1 ]\n");
    const ScratchFile description("failing-capture.json",
                                  R"({"camera": {"cameraId": 0}, "input": {"width": 2, "height": 2},
            "frame": {"tags": [{"tag": "org.example.failing.other", "type": "byte",
                                "values": [1]}]}, "static": "none"})");
    // No input size; a bad section.
    for (const ScratchFile* f : {&dump, &description})
        EXPECT_FALSE(loadCapture(f->path)) << f->path;
    EXPECT_EQ(findTag("org.example.failing.tag"), nullptr);
    EXPECT_EQ(findTag("org.example.failing.other"), nullptr);
    EXPECT_EQ(StaticMetadataWraper::getInstance()->getStaticMetadata(5), stat);
    EXPECT_EQ(adapterScript().shiftX, 17);
    setAdapterScript(AdapterScript{});
    clearStaticMetadata();
}

}  // namespace
}  // namespace loader
}  // namespace kvhost
