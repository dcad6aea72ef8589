// SPDX-License-Identifier: Apache-2.0
// The device nodes where a program that opens one cannot be let in.
#include <gtest/gtest.h>
#include <linux/i2c-dev.h>

#include <cerrno>
#include <mutex>

#include "common/Failure.h"
#include "tests/unit/sim/DeviceNodesFixture.h"

namespace {

using Clock = std::chrono::steady_clock;

// The errors of the next calls of accept4, one after the other, and when they were made.
struct Refusals {
    std::mutex mutex;
    std::vector<int> errors;
    std::vector<Clock::time_point> times;
};

Refusals& TheRefusals() {
    static Refusals refusals;
    return refusals;
}

}  // namespace

extern "C" {

int __real_accept4(int socket, sockaddr* address, socklen_t* size, int flags);

int __wrap_accept4(int socket, sockaddr* address, socklen_t* size, int flags) {
    Refusals& refusals = TheRefusals();
    const std::lock_guard<std::mutex> lock(refusals.mutex);
    if (refusals.times.size() < refusals.errors.size()) {
        errno = refusals.errors[refusals.times.size()];
        refusals.times.push_back(Clock::now());
        return -1;
    }
    return __real_accept4(socket, address, size, flags);
}
}

namespace sim {
namespace {

class SimNodesAccept : public SimNodes {
  protected:
    SimNodesAccept() {
        // From here on nobody waits to be let in.
        EXPECT_EQ(EFAULT, bus_.Ioctl(I2C_RDWR, 0).error);
        EXPECT_EQ(ENOTTY, reset_.Ioctl(I2C_RDWR, 0).error);
    }
    ~SimNodesAccept() override { Refuse({}); }

    static void Refuse(const std::vector<int>& errors) {
        const std::lock_guard<std::mutex> lock(TheRefusals().mutex);
        TheRefusals().errors = errors;
        TheRefusals().times.clear();
    }

    static std::vector<Clock::time_point> Times() {
        const std::lock_guard<std::mutex> lock(TheRefusals().mutex);
        return TheRefusals().times;
    }
};

TEST_F(SimNodesAccept, LetAProgramInAsSoonAsThereIsRoom) {
    Refuse({EMFILE, ENFILE, ENOMEM, ENOBUFS});
    EXPECT_EQ(EFAULT, Open("/ioctl/dev/i2c1").Ioctl(I2C_RDWR, 0).error);
    const std::vector<Clock::time_point> times = Times();
    ASSERT_EQ(4u, times.size());
    for (std::size_t i = 1; i < times.size(); ++i) {
        EXPECT_LE(std::chrono::milliseconds(20), times[i] - times[i - 1]) << "they do not rest";
    }
    nodes_.Shut();
}

TEST_F(SimNodesAccept, ServeTheOthersWhileThereIsNoRoom) {
    // For longer than anybody waits.
    Refuse(std::vector<int>(1000000, EMFILE));
    const NodeClient waiting = Open("/ioctl/dev/i2c1");
    EXPECT_EQ(EFAULT, bus_.Ioctl(I2C_RDWR, 0).error);
    EXPECT_EQ(EFAULT, bus_.Ioctl(I2C_RDWR, 0).error);
    EXPECT_LE(1u, Times().size());
    nodes_.Shut();
}

TEST_F(SimNodesAccept, MissNothingWhenAProgramGoesBeforeItIsLetIn) {
    Refuse({ECONNABORTED, EINTR, EAGAIN});
    EXPECT_EQ(EFAULT, Open("/ioctl/dev/i2c1").Ioctl(I2C_RDWR, 0).error);
    EXPECT_EQ(3u, Times().size());
    nodes_.Shut();
}

TEST_F(SimNodesAccept, FailWhereNobodyCanEverBeLetIn) {
    Refuse({EPERM});
    NodeClient refused = Open("/ioctl/dev/i2c1");
    ASSERT_TRUE(Happens(&failed_));
    EXPECT_TRUE(refused.SeesTheEnd());
    try {
        nodes_.Shut();
        FAIL() << "no failure";
    } catch (const common::Failure& failure) {
        EXPECT_STREQ("serving the simulated devices: Operation not permitted", failure.what());
    }
}

}  // namespace
}  // namespace sim
