// SPDX-License-Identifier: Apache-2.0
// What ProgramBin keeps although none of its own steps brings it about: the steps that stand before
// it are replaced when this program is linked.
#include <cstdio>
#include <functional>
#include <string>

#include "chip/HdChip.h"
#include "hutil/run_flags.h"
#include "tests/support/FakePlatform.h"

bool g_options[OPTION_COUNT];

namespace {

std::function<bool()> g_unprotect;
std::function<int()> g_status;

class HdChipUnreachable : public fake::PlatformTest {
  protected:
    HdChipUnreachable() : chip_(BUSTYPE_I2C), engine_(chip_.lm) {
        platform.default_reply = fake::Reply({0, 1});
    }
    ~HdChipUnreachable() override {
        delete engine_;
        g_unprotect = nullptr;
        g_status = nullptr;
    }

    // Programs an image of a few bytes.
    bool Program() {
        FILE* const image = tmpfile();
        fputs("image", image);
        fflush(image);
        std::string path = "/proc/self/fd/" + std::to_string(fileno(image));
        bool result = true;
        output_ = fake::Capture([&] { result = chip_.ProgramBin(path); });
        fclose(image);
        return result;
    }

    HdChip chip_;
    HcLogical* engine_;
    fake::Output output_;
};

}  // namespace

bool HdChip::UnprotectNvm() {
    return g_unprotect();
}

int HdChip::ProgramWriteStatus() {
    return g_status();
}

TEST_F(HdChipUnreachable, EngineThatIsGoneAfterTheUnprotectionEndsItWithoutAMessage) {
    g_unprotect = [this] {
        chip_.lm = nullptr;
        return true;
    };

    EXPECT_FALSE(Program());

    EXPECT_THAT(platform.Messages(), testing::ElementsAre(testing::StartsWith("MSG: Sending \"")));
    EXPECT_TRUE(platform.devctls.empty());
}

TEST_F(HdChipUnreachable, Status255EndsThePollingAtOnceWithAnError) {
    int polls = 0;
    g_unprotect = [] { return true; };
    g_status = [&polls] {
        polls += 1;
        return polls == 1 ? 255 : static_cast<int>(PGM_COMPLETE);
    };

    EXPECT_FALSE(Program());

    EXPECT_EQ(polls, 1);
    EXPECT_EQ(platform.Messages().back(), "ERROR: Unable to get system status");
}
