// Gyroscope samples from the platform: the holder protocol, the limit of 200,
// the tick conversion and the ordering.
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "PlatformSupport.h"

namespace kvtest {
namespace {

using kvhost::AdapterOp;
using Element = AIspGyroData::GyroElement;

adapter::GyroSample Sample(uint64_t ticks, float x = 0.0f) {
    return adapter::GyroSample{x, -x, x * 2.0f, 0xDEADBEEF, ticks};
}

class Gyro : public PlatformTest {
protected:
    void Samples(std::vector<adapter::GyroSample> samples) {
        Script([&](kvhost::AdapterScript& s) { s.gyroSamples = std::move(samples); });
    }
    // Fills the outputs with 0xA5 first.
    int Get(std::shared_ptr<KvMetadata> metadata = nullptr) {
        std::memset(&data, 0xA5, sizeof data);
        std::memset(elements, 0xA5, sizeof elements);
        return utils.GetGyroData(std::move(metadata), data, elements, 7, "gyro-key");
    }
    bool Untouched() const {
        std::vector<uint8_t> raw(sizeof data + sizeof elements);
        std::memcpy(raw.data(), &data, sizeof data);
        std::memcpy(raw.data() + sizeof data, elements, sizeof elements);
        return raw == std::vector<uint8_t>(raw.size(), 0xA5);
    }
    AIspGyroData data;
    Element elements[200];
};

TEST_F(Gyro, TicksToMicroseconds) {
    const struct {
        uint64_t ticks;
        uint64_t us;
    } cases[] = {
        {19200000, 1000000},  // one second
        {1919, 99},           // 99,947.9 ns -> 99,947 ns -> 99 us
        {19, 0},              // 989.6 ns
        // Exactly 8,385,417,555,000 ns, but ticks * 1e9 rounds (to even) to a
        // double 16384 below, so the quotient truncates to ...554,999 ns.
        // Multiplying by one factor 1e9 / 1.92e7 would give ...555 us.
        {161000017056ULL, 8385417554ULL},
        // Beyond 2^64 ns the conversion saturates.
        {std::numeric_limits<uint64_t>::max(), std::numeric_limits<uint64_t>::max() / 1000},
    };
    for (const auto& c : cases) {
        Samples({Sample(c.ticks)});
        ASSERT_EQ(Get(), 0);
        EXPECT_EQ(elements[0].timestamp, c.us) << c.ticks;
        EXPECT_EQ(data.startTimestamp, c.us);
        EXPECT_EQ(data.endTimestamp, c.us);
    }
}

TEST_F(Gyro, HolderProtocolLogAndBitExactCopy) {
    adapter::GyroSample s = Sample(19200000);
    const uint32_t nanBits = 0x7FA00001;  // a signalling NaN with a payload
    std::memcpy(&s.x, &nanBits, sizeof nanBits);
    s.y = -0.0f;
    s.z = 1.5e-42f;  // subnormal
    Samples({s, Sample(2000)});
    EXPECT_EQ(Get(md), 0);
    EXPECT_EQ(data.count, 2);
    EXPECT_EQ(std::memcmp(&elements[1], &s, 12), 0);
    // Padding of the record and of the element stays as it was.
    EXPECT_EQ(reinterpret_cast<const unsigned char*>(&data)[4], 0xA5);
    EXPECT_EQ(reinterpret_cast<const unsigned char*>(&elements[0])[12], 0xA5);
    EXPECT_EQ(reinterpret_cast<const unsigned char*>(&elements[2])[0], 0xA5);

    std::vector<std::string> holderCalls;
    for (const auto& c : adapterCalls.calls()) {
        if (c.op == AdapterOp::GetHolder) continue;
        holderCalls.push_back(std::string(kvhost::adapterOpName(c.op)) + " " + c.key + " " +
                              std::to_string(c.arg1) + " " + std::to_string(c.arg2));
    }
    EXPECT_EQ(holderCalls,
              (std::vector<std::string>{"EnableGyro gyro-key 1 3", "GetGyroData gyro-key 7 0",
                                        "DisableGyro gyro-key 1 0"}));
    EXPECT_TRUE(Lines().empty());
    const auto debug = DebugLines();
    ASSERT_EQ(debug.size(), 1u);
    EXPECT_EQ(debug[0].file, kMtk);
    EXPECT_EQ(debug[0].func, "GetGyroData");
    EXPECT_EQ(debug[0].format, "get Gyro from holder, gyros size: %d");
    EXPECT_EQ(debug[0].text, "get Gyro from holder, gyros size: 2");
}

TEST_F(Gyro, FirstTwoHundredKeptAndSorted) {
    // 250 samples, descending: 250 s, 249 s, ..., 1 s.
    std::vector<adapter::GyroSample> raw;
    for (int i = 0; i < 250; ++i) raw.push_back(Sample(19200000ULL * (250 - i), float(i)));
    Samples(raw);
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(data.count, 200);
    // Start and end in the holder's order: the latest and the earliest kept.
    EXPECT_EQ(data.startTimestamp, 250000000u);
    EXPECT_EQ(data.endTimestamp, 51000000u);
    for (int i = 0; i < 200; ++i) ASSERT_EQ(elements[i].timestamp, uint64_t(51 + i) * 1000000);
    EXPECT_EQ(elements[0].x, 199.0f);  // the rates travel with their timestamps
    EXPECT_EQ(elements[0].y, -199.0f);
    EXPECT_EQ(elements[199].z, 0.0f);
    EXPECT_EQ(DebugLines().at(0).text, "get Gyro from holder, gyros size: 250");
}

TEST_F(Gyro, RefusedOrEmpty) {
    // Refused: nothing asked, logged, written or disabled.
    Script([](kvhost::AdapterScript& s) {
        s.gyroEnableResult = 0;
        s.gyroSamples = {Sample(1)};
    });
    EXPECT_EQ(Get(), -1);
    EXPECT_TRUE(Untouched());
    EXPECT_TRUE(DebugLines().empty());
    EXPECT_TRUE(adapterCalls.calls(AdapterOp::GetGyroData).empty());
    EXPECT_TRUE(adapterCalls.calls(AdapterOp::DisableGyro).empty());

    // No samples: logged, disabled, nothing written.
    kvhost::resetAdapter();
    EXPECT_EQ(Get(), -1);
    EXPECT_TRUE(Untouched());
    ASSERT_EQ(DebugLines().size(), 1u);
    EXPECT_EQ(DebugLines()[0].text, "get Gyro from holder, gyros size: 0");
    EXPECT_EQ(adapterCalls.calls(AdapterOp::DisableGyro).size(), 1u);
}

}  // namespace
}  // namespace kvtest
