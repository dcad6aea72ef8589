// SPDX-License-Identifier: Apache-2.0
// The driver's steps, called directly. The devices and the image are opened, written and read
// through replaced calls, which note what was asked and fail where a test says so.
#ifndef BBPFLASH_TESTS_UNIT_DRIVER_DRIVERFIXTURE_H
#define BBPFLASH_TESTS_UNIT_DRIVER_DRIVERFIXTURE_H

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "driver/bbpflash.h"
#include "tests/support/FakePlatform.h"

const int BUS_DESCRIPTOR = 711;
const int LINE_DESCRIPTOR = 712;
const long FIELD_OFFSET = 925630;
const std::size_t FIELD_SIZE = 37;

// What the replaced calls answer, and what they have seen.
struct Devices {
    std::map<std::string, int> descriptors = {{"/dev/i2c1", BUS_DESCRIPTOR},
                                              {"/dev/gpio/HD_DAB2Reset", LINE_DESCRIPTOR}};
    std::vector<ssize_t> write_results;   // one a write to the reset line, then 1
    std::vector<unsigned> delay_results;  // one a delay, then 0
    int fopen_error = 0;                  // 0: as the system does
    int fseek_error = 0;
    int fread_error = 0;
    int objects_left = 1000;  // that there is memory for

    std::vector<std::string> closed;   // descriptors and streams
    std::vector<std::string> streams;  // opened ones: mode and path
    std::vector<std::string> moves;    // fseek and fread with their arguments
    std::vector<FILE*> images;
};
extern Devices g_devices;

// An image file that holds nothing but its label field with a Z on either side. It is gone with
// the object.
class Image {
  public:
    explicit Image(const std::string& field) : Image(field, 1) {}

    // One that ends with the last byte of `field`.
    static Image EndingIn(const std::string& field) { return Image(field, 0); }

    ~Image() { std::remove(path_.c_str()); }
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    std::string& Path() { return path_; }

  private:
    Image(const std::string& field, std::size_t behind)
        : path_(testing::TempDir() + "bbpflash_image_" + std::to_string(getpid()) + ".bin") {
        std::ofstream file(path_, std::ios::binary);
        file.seekp(FIELD_OFFSET - 1);
        file << 'Z' << field << std::string(behind, 'Z');
    }

    std::string path_;
};

inline std::string Blanks(std::size_t count) {
    return std::string(count, ' ');
}

// `text` with blanks behind it up to the field's size.
inline std::string Padded(const std::string& text) {
    return text + Blanks(FIELD_SIZE - text.size());
}

// What the chip answers when it reports the version `text`: two more characters are dropped, the
// last of which the chip does not send.
inline fake::Reply Version(const std::string& text) {
    fake::Bytes payload = {0};
    payload.insert(payload.end(), text.begin(), text.end());
    payload.push_back(0);
    return fake::Reply(payload);
}

class Driver : public fake::PlatformTest {
  protected:
    Driver() {
        g_devices = Devices();
        installed_version = "";
        file_version = "";
        filename = "";
        std::fill(g_options, g_options + OPTION_COUNT, false);
    }

    ~Driver() override {
        g_devices = Devices();
        if (p_ischip != nullptr) {
            delete p_ischip->lm;
            delete p_ischip;
            p_ischip = nullptr;
        }
    }

    // What a step returns, with its output in `out_`.
    int Run(int (*step)()) {
        int next = -1;
        const fake::Output output = fake::Capture([&] { next = step(); });
        EXPECT_EQ(output.err, "");
        out_ = fake::WithoutPositions(output.out);
        return next;
    }

    void ShowInformation() { g_p_hutil_opt->verbosity = 6; }

    std::string out_;
};

// The steps behind the first one, with a chip on an open bus.
class DriverWithChip : public Driver {
  protected:
    DriverWithChip() {
        p_ischip = new HdChip(BUSTYPE_I2C);
        p_ischip->bus->fd = BUS_DESCRIPTOR;
        p_ischip->bus->devName = "/dev/i2c1";
    }
};

class DriverInit : public Driver {};
class DriverReset : public DriverWithChip {};
class DriverProgram : public DriverWithChip {};
class DriverCheckVersion : public DriverWithChip {};
class DriverLabel : public Driver {
  protected:
    // The label of the image `filename`, "" with a failed test when there is none.
    std::string Label() {
        std::string version = "old";
        EXPECT_TRUE(get_bin_file_version(version, filename));
        return version;
    }

    // Whether the label could be read, with what was printed in `out_` and the outcome in
    // `version_`.
    bool Read() {
        bool result = false;
        const fake::Output output =
            fake::Capture([&] { result = get_bin_file_version(version_, filename); });
        EXPECT_EQ(output.err, "");
        out_ = fake::WithoutPositions(output.out);
        return result;
    }

    std::string version_ = "old";
};
typedef DriverInit DriverInitDeathTest;

#endif
