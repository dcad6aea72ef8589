// SPDX-License-Identifier: Apache-2.0
// A whole run takes what the bus and the waits that the chip needs take, and not a nanosecond more.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>

#include "sim/SampleImage.h"
#include "sim/WireTime.h"
#include "tests/support/VirtualHeadUnit.h"

namespace {

using sim::Duration;
using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr std::size_t PAYLOAD = 2035;  // bytes of an image in a segment
constexpr std::size_t FRAME = 13;      // bytes round a payload
constexpr std::size_t READ = 65;       // bytes of every read

const milliseconds RESET(200 + 3000);

// A request of `bytes` bytes, the wait until its reply is ready, and the reply.
Duration Exchange(std::size_t bytes, Duration wait) {
    return sim::WireTime(bytes, sim::BUS_HZ) + wait + sim::WireTime(READ, sim::BUS_HZ);
}

Duration Query(Duration wait) {
    return Exchange(1 + FRAME, wait);
}

// The image behind its function byte, in segments.
Duration Download(std::size_t image) {
    Duration total{};
    for (std::size_t left = 1 + image; left > 0;) {
        const std::size_t payload = std::min(left, PAYLOAD);
        total += Exchange(payload + FRAME, microseconds(750));
        left -= payload;
    }
    return total;
}

TEST(VirtualTime, OfADownloadOf1MibIs24914Milliseconds) {
    EXPECT_EQ(std::chrono::round<milliseconds>(Download(sim::SAMPLE_IMAGE_SIZE)).count(), 24914);
}

class VirtualTimeOfARun : public testing::TestWithParam<std::size_t> {};

TEST_P(VirtualTimeOfARun, IsThatOfTheBusAndTheWaits) {
    virt::VirtualHeadUnit head_unit;
    head_unit.files.Put("new.bin",
                        {virt::FileContent::Of(sim::MakeSampleImage("2.0.0", GetParam()))});
    const Duration start = head_unit.Unit().Now();

    const virt::RunResult result = head_unit.Run({"bbpflash", "-s", "new.bin"});

    ASSERT_EQ(result.status, 0) << result.out;
    const unsigned polls = head_unit.Unit().GetReport().polls;
    const Duration limit = 2 * (RESET + Query(milliseconds(5))) + Query(milliseconds(5)) +
                           Download(GetParam()) +
                           polls * (milliseconds(350) + Query(milliseconds(1)));
    EXPECT_EQ((head_unit.Unit().Now() - start).count(), limit.count());
}

INSTANTIATE_TEST_SUITE_P(OfImages, VirtualTimeOfARun,
                         testing::Values(1000000, sim::SAMPLE_IMAGE_SIZE, 3000000));

}  // namespace
