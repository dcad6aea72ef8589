// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_UNIT_LM_HCLOGICALTRANSMITFIXTURE_H
#define BBPFLASH_TESTS_UNIT_LM_HCLOGICALTRANSMITFIXTURE_H

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>

#include "tests/unit/lm/HcLogicalFixture.h"

// Replacements of the stream calls; without one the system's own is called.
extern std::function<std::size_t()> g_fread;
extern std::function<int()> g_feof;
extern bool g_no_memory;

using Stream = std::unique_ptr<FILE, int (*)(FILE*)>;

// A chunk that tells when it is destroyed.
class WatchedChunk : public HcI2cBuffer {
  public:
    WatchedChunk(I2cBus* the_bus, bool* destroyed)
        : HcI2cBuffer(the_bus, 0x2E, 't'), destroyed_(destroyed) {}
    ~WatchedChunk() override { *destroyed_ = true; }

  private:
    bool* destroyed_;
};

class HcLogicalTransmit : public HcLogicalTest {
  protected:
    ~HcLogicalTransmit() override {
        g_fread = nullptr;
        g_feof = nullptr;
        g_no_memory = false;
    }

    // A file of `size` bytes 1, 2, 3... that is read from its beginning.
    static Stream File(std::size_t size) {
        Stream file(tmpfile(), fclose);
        for (std::size_t i = 0; i < size; ++i) {
            fputc(static_cast<int>((i + 1) % 251), file.get());
        }
        rewind(file.get());
        return file;
    }

    void FillUpTo(int length) {
        while (lm_.txLength < length) {
            ASSERT_EQ(lm_.Fill(static_cast<unsigned char>(lm_.txLength)), 1);
        }
    }

    std::uint8_t StopFlag() const { return lm_.txBuffer->buffer[12]; }
};

#endif
