// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cerrno>
#include <type_traits>

#include "tests/support/Layout.h"
#include "tests/unit/chip/HdChipFixture.h"

namespace {

using fake::Capture;
using fake::WithoutPositions;
using testing::ElementsAre;

using HdChipObject = HdChipTest;
using HdChipOpenChip = HdChipTest;
using HdChipDeathTest = HdChipTest;

// Objects that tell when they are destroyed.
class WatchedBus : public I2cBus {
  public:
    explicit WatchedBus(bool* destroyed) : I2cBus(0x2E), destroyed_(destroyed) {}
    ~WatchedBus() override { *destroyed_ = true; }

  private:
    bool* destroyed_;
};

class WatchedEngine : public HcLogical {
  public:
    WatchedEngine(I2cBus* the_bus, bool* destroyed)
        : HcLogical(the_bus, 0x2E), destroyed_(destroyed) {}
    ~WatchedEngine() override { *destroyed_ = true; }

  private:
    bool* destroyed_;
};

TEST_F(HdChipObject, IsCaymanAt2EAnd400kHz) {
    EXPECT_EQ(chip_.chipName, "Cayman");
    EXPECT_EQ(chip_.i2cAddress, 0x2E);
    EXPECT_EQ(chip_.busSpeed, 400000);
}

TEST_F(HdChipObject, HasABusOfItsOwnAndAnEngineOnIt) {
    const HdChip fresh(BUSTYPE_I2C);

    ASSERT_NE(fresh.bus, nullptr);
    ASSERT_NE(fresh.lm, nullptr);
    EXPECT_EQ(fresh.lm->bus, fresh.bus);
    EXPECT_EQ(fresh.lm->address, 0x2E);
    EXPECT_EQ(fresh.bus->fd, 0);
    EXPECT_EQ(fresh.bus->speed, 100000);
    EXPECT_THAT(platform.trace, ElementsAre());
}

TEST_F(HdChipObject, HoldsItsFieldsInThisOrderAndNothingElse) {
    static_assert(std::is_same<decltype(chip_.chipName), std::string>::value);
    static_assert(std::is_same<decltype(chip_.i2cAddress), int>::value);
    static_assert(std::is_same<decltype(chip_.busSpeed), int>::value);
    static_assert(std::is_same<decltype(chip_.lm), HcLogical*>::value);
    static_assert(std::is_same<decltype(chip_.bus), I2cBus*>::value);
    static_assert(std::has_virtual_destructor<HdChip>::value);
    const std::vector<std::size_t> offsets{
        OffsetIn(chip_, chip_.chipName), OffsetIn(chip_, chip_.i2cAddress),
        OffsetIn(chip_, chip_.busSpeed), OffsetIn(chip_, chip_.lm), OffsetIn(chip_, chip_.bus)};
    EXPECT_TRUE(std::is_sorted(offsets.begin(), offsets.end()));
    EXPECT_EQ(sizeof chip_, 3 * sizeof(void*) + sizeof(std::string) + 2 * sizeof(int));
}

TEST_F(HdChipObject, GivesItsBusOnEveryCall) {
    EXPECT_EQ(chip_.GetBus(), chip_.bus);
    EXPECT_EQ(chip_.GetBus(), chip_.bus);
}

TEST_F(HdChipObject, DeletesItsBusButNotItsEngine) {
    bool bus_destroyed = false;
    bool engine_destroyed = false;
    const auto engine = std::make_unique<WatchedEngine>(chip_.bus, &engine_destroyed);
    {
        HdChip fresh(BUSTYPE_I2C);
        delete fresh.lm;
        delete fresh.bus;
        fresh.bus = new WatchedBus(&bus_destroyed);
        fresh.lm = engine.get();
    }

    EXPECT_TRUE(bus_destroyed);
    EXPECT_FALSE(engine_destroyed);
}

TEST_F(HdChipObject, CanBeDestroyedWithoutABus) {
    HdChip fresh(BUSTYPE_I2C);
    delete fresh.lm;
    delete fresh.bus;
    fresh.bus = nullptr;
}

TEST_F(HdChipDeathTest, EndsWithStatus1BeforeAnyBusForEachTypeBut0) {
    for (const bustype_t type : {1, 2, -1}) {
        EXPECT_EXIT(
            {
                fake::JoinOutputs();
                FailObject(0);  // would be reported instead
                HdChip fresh(type);
            },
            testing::ExitedWithCode(1),
            fake::Prints("bbpflash CRITICAL: unhandled bus type (I2C only at this time)\n"
                         "ERROR\n"));
    }
}

TEST_F(HdChipDeathTest, EndsWithStatus1WithoutMemoryForItsBus) {
    EXPECT_EXIT(
        {
            fake::JoinOutputs();
            FailObject(0);
            HdChip fresh(BUSTYPE_I2C);
        },
        testing::ExitedWithCode(1),
        fake::Prints("bbpflash CRITICAL: instantiating an I2C bus object\nERROR\n"));
}

TEST_F(HdChipDeathTest, EndsWithStatus1WithoutMemoryForItsEngine) {
    EXPECT_EXIT(
        {
            fake::JoinOutputs();
            FailObject(1);
            HdChip fresh(BUSTYPE_I2C);
        },
        testing::ExitedWithCode(1),
        fake::Prints("bbpflash CRITICAL: instantiating an LM\nERROR\n"));
}

TEST_F(HdChipOpenChip, OpensTheBusAtTheSpeedThatItIsTold) {
    EXPECT_TRUE(chip_.OpenChip("/dev/null", 100001));

    EXPECT_EQ(chip_.bus->devName, "/dev/null");
    EXPECT_EQ(chip_.bus->speed, 100001);
    EXPECT_EQ(chip_.busSpeed, 400000);
    EXPECT_THAT(platform.trace, ElementsAre("SPEED 100001"));
    EXPECT_THAT(platform.Messages(), ElementsAre()) << "at normal verbosity";
    chip_.bus->i2cClose();
}

TEST_F(HdChipOpenChip, SaysByItsNameThatTheChipIsReady) {
    g_p_hutil_opt->verbosity = 6;

    Capture([&] { EXPECT_TRUE(chip_.OpenChip("/dev/null", 400000)); });

    EXPECT_EQ(platform.Messages().back(), "INF: Cayman chip ready");
    EXPECT_EQ(platform.Messages().size(), 3u);
    chip_.bus->i2cClose();
}

TEST_F(HdChipOpenChip, NamesTheDeviceAndTheSpeedWhenItCannotBeOpened) {
    bool ready = true;
    const std::string text =
        WithoutPositions(Capture([&] { ready = chip_.OpenChip("/nowhere/i2c1", 400000); }).out);

    EXPECT_FALSE(ready);
    EXPECT_EQ(text,
              "bbpflash CRITICAL: opening /nowhere/i2c1 with result \"Unknown error -1\" (-1)\n"
              "bbpflash ERROR: opening connection to chip on /nowhere/i2c1 at 400000\n");
}

TEST_F(HdChipOpenChip, FailsWhenTheSpeedCannotBeSet) {
    platform.Fail(DCMD_I2C_SET_BUS_SPEED, EINVAL);

    Capture([&] { EXPECT_FALSE(chip_.OpenChip("/dev/null", 400000)); });

    EXPECT_EQ(platform.Messages().back(),
              "ERROR: opening connection to chip on /dev/null at 400000");
    chip_.bus->i2cClose();
}

TEST_F(HdChipOpenChip, CanBeTriedAgain) {
    Capture([&] {
        EXPECT_FALSE(chip_.OpenChip("/nowhere/i2c1", 400000));
        EXPECT_TRUE(chip_.OpenChip("/dev/null", 400000));
    });
    chip_.bus->i2cClose();
}

}  // namespace
