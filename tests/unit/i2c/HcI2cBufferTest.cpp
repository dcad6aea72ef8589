// SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <cstring>
#include <optional>
#include <type_traits>

#include "tests/support/Layout.h"
#include "tests/unit/i2c/HcI2cBufferFixture.h"

namespace {

using fake::Bytes;

// What the next posix_memalign fails with, and errno besides.
std::optional<int> g_memalign_result;
int g_memalign_errno = 0;
std::size_t g_memalign_alignment = 0;
std::size_t g_memalign_size = 0;
const void* g_watched = nullptr;  // a block; null once it was given back

using HcI2cBufferObject = HcI2cBufferTest;
using HcI2cBufferFill = HcI2cBufferTest;
using HcI2cBufferDeathTest = HcI2cBufferTest;

TEST_F(HcI2cBufferObject, TransmitChunkHas2048BytesBehindItsHeader) {
    HcI2cBuffer chunk(&bus_, 0x2E, 't');

    EXPECT_EQ(chunk.data, chunk.buffer + 16);
    EXPECT_EQ(g_memalign_size, 2064u);
    EXPECT_EQ(chunk.GetSpace(), 2048);
    EXPECT_EQ(chunk.rxLength, 0);
    EXPECT_EQ(chunk.address, 0x2E);
    EXPECT_EQ(chunk.bus, &bus_);
}

TEST_F(HcI2cBufferObject, ReceiveChunkHasACountByteBeforeItsData) {
    HcI2cBuffer chunk(&bus_, 0x2E, 'r');

    EXPECT_EQ(chunk.data, chunk.buffer + 17);
    EXPECT_EQ(chunk.rxLength, 0);
    EXPECT_EQ(chunk.GetSpace(), 2048);
}

TEST_F(HcI2cBufferObject, ReceiveChunkOwnsZeroedRoomForAllThatItsCountByteCanPromise) {
    HcI2cBuffer chunk(&bus_, 0x2E, 'r');

    ASSERT_EQ(g_memalign_size, 17u + 255u);
    EXPECT_EQ(Bytes(chunk.buffer + 16, chunk.buffer + 17 + 255), Bytes(256, 0));
}

TEST_F(HcI2cBufferObject, GivesItsRoomBackWithTheChunk) {
    for (const char type : {'t', 'r'}) {
        {
            const HcI2cBuffer chunk(&bus_, 0x2E, type);
            g_watched = chunk.buffer;
        }
        EXPECT_EQ(g_watched, nullptr);
    }
}

TEST_F(HcI2cBufferObject, IsAlignedTo16Bytes) {
    for (const char type : {'t', 'r'}) {
        HcI2cBuffer chunk(&bus_, 0x2E, type);
        EXPECT_EQ(g_memalign_alignment, 16u);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(chunk.buffer) % 16, 0u);
    }
}

TEST_F(HcI2cBufferObject, HeaderCarriesTheSevenBitAddressAndItsFormat) {
    for (const char type : {'t', 'r'}) {
        HcI2cBuffer chunk(&bus_, 0xC8, type);
        EXPECT_EQ(Header(chunk), (Bytes{0x64, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
        EXPECT_EQ(chunk.address, 0xC8);
    }
}

TEST_F(HcI2cBufferObject, HeaderCarriesALengthOf32Bits) {
    HcI2cBuffer chunk(&bus_, 0x2E, 't');

    chunk.SetLength(0x12345678);

    EXPECT_EQ(Header(chunk),
              (Bytes{0x17, 0, 0, 0, 2, 0, 0, 0, 0x78, 0x56, 0x34, 0x12, 0, 0, 0, 0}));
    EXPECT_EQ(chunk.GetLength(), 0x12345678);
}

TEST_F(HcI2cBufferObject, HoldsItsFieldsInThisOrderAndNothingElse) {
    const HcI2cBuffer chunk(&bus_, 0x2E, 't');

    static_assert(std::is_same<decltype(chunk.data), unsigned char*>::value);
    static_assert(std::is_same<decltype(chunk.rxLength), int>::value);
    static_assert(std::is_same<decltype(chunk.address), unsigned char>::value);
    static_assert(std::is_same<decltype(chunk.buffer), unsigned char*>::value);
    static_assert(std::is_same<decltype(chunk.bus), I2cBus*>::value);
    static_assert(std::has_virtual_destructor<HcI2cBuffer>::value);
    EXPECT_LT(OffsetIn(chunk, chunk.data), OffsetIn(chunk, chunk.rxLength));
    EXPECT_LT(OffsetIn(chunk, chunk.rxLength), OffsetIn(chunk, chunk.address));
    EXPECT_LT(OffsetIn(chunk, chunk.address), OffsetIn(chunk, chunk.buffer));
    EXPECT_LT(OffsetIn(chunk, chunk.buffer), OffsetIn(chunk, chunk.bus));
    EXPECT_EQ(sizeof chunk, 4 * sizeof(void*) + 8);
}

TEST_F(HcI2cBufferDeathTest, EndsWithStatus1BeforeAnythingIsAllocatedForAnUnknownType) {
    for (const char type : {'x', 'T', 'R', '\0', 's'}) {
        EXPECT_EXIT(
            {
                fake::JoinOutputs();
                g_memalign_result = ENOMEM;  // would be reported instead
                HcI2cBuffer chunk(&bus_, 0x2E, type);
            },
            testing::ExitedWithCode(1),
            fake::Prints("bbpflash CRITICAL: invalid i2c buffer type\nERROR\n"));
    }
}

TEST_F(HcI2cBufferDeathTest, EndsWithStatus1AndErrnoForEitherTypeWhenThereIsNoMemory) {
    for (const char type : {'t', 'r'}) {
        EXPECT_EXIT(
            {
                fake::JoinOutputs();
                g_memalign_result = ENOMEM;
                g_memalign_errno = EAGAIN;
                HcI2cBuffer chunk(&bus_, 0x2E, type);
            },
            testing::ExitedWithCode(1),
            fake::Prints("bbpflash CRITICAL: could not allocate memory for i2c tx buffer with "
                         "result \"Resource temporarily unavailable\" (11)\nERROR\n"));
    }
}

TEST_F(HcI2cBufferFill, ByteGoesToTheEndOfThePayload) {
    HcI2cBuffer chunk(&bus_, 0x2E, 't');

    EXPECT_EQ(chunk.FillBuffer(0xA5), 1);
    EXPECT_EQ(chunk.FillBuffer(0x5A), 1);

    EXPECT_EQ(chunk.GetLength(), 2);
    EXPECT_EQ(chunk.GetSpace(), 2046);
    EXPECT_EQ(Bytes(chunk.data, chunk.data + 3), (Bytes{0xA5, 0x5A, 0}));
    EXPECT_EQ(chunk.GetCurrentPosition(), chunk.data + 2);
}

TEST_F(HcI2cBufferFill, LengthIsALittleEndianWordAtOffset8) {
    HcI2cBuffer chunk(&bus_, 0x2E, 't');

    FillUp(chunk, 0x0123);

    EXPECT_EQ(Header(chunk), (Bytes{0x17, 0, 0, 0, 2, 0, 0, 0, 0x23, 0x01, 0, 0, 0, 0, 0, 0}));
}

TEST_F(HcI2cBufferFill, ByteNumber2049IsRefusedAndChangesNothing) {
    HcI2cBuffer chunk(&bus_, 0x2E, 't');
    FillUp(chunk, 2048);
    const Bytes before(chunk.buffer, chunk.buffer + 2064);

    EXPECT_EQ(chunk.GetSpace(), 0);
    EXPECT_EQ(chunk.FillBuffer(0xEE), 0);

    EXPECT_EQ(chunk.GetLength(), 2048);
    EXPECT_EQ(Bytes(chunk.buffer, chunk.buffer + 2064), before);
}

TEST_F(HcI2cBufferFill, ArrayReplacesWhatWasThere) {
    HcI2cBuffer chunk(&bus_, 0x2E, 't');
    FillUp(chunk, 5);
    Bytes source{9, 8, 7};
    int length = 3;

    EXPECT_EQ(chunk.FillBuffer(source.data(), &length), 1);

    EXPECT_EQ(length, 3);
    EXPECT_EQ(chunk.GetLength(), 3);
    EXPECT_EQ(Bytes(chunk.data, chunk.data + 3), source);
}

TEST_F(HcI2cBufferFill, ArrayIsCutAt2048Bytes) {
    HcI2cBuffer chunk(&bus_, 0x2E, 't');
    const Bytes whole = Counting(2049);
    Bytes source = whole;
    int length = 2049;

    EXPECT_EQ(chunk.FillBuffer(source.data(), &length), 1);

    EXPECT_EQ(length, 2048);
    EXPECT_EQ(chunk.GetLength(), 2048);
    EXPECT_EQ(Bytes(chunk.data, chunk.data + 2048), Bytes(whole.begin(), whole.begin() + 2048));
}

TEST_F(HcI2cBufferFill, ArrayOf1ByteIsTaken) {
    HcI2cBuffer chunk(&bus_, 0x2E, 't');
    unsigned char source = 0x42;
    int length = 1;

    EXPECT_EQ(chunk.FillBuffer(&source, &length), 1);

    EXPECT_EQ(length, 1);
    EXPECT_EQ(chunk.data[0], 0x42);
}

TEST_F(HcI2cBufferFill, ArrayOf0OrFewerBytesEmptiesTheChunk) {
    for (const int count : {0, -1, -2048}) {
        HcI2cBuffer chunk(&bus_, 0x2E, 't');
        FillUp(chunk, 5);
        unsigned char source = 0x42;
        int length = count;

        EXPECT_EQ(chunk.FillBuffer(&source, &length), 1);

        EXPECT_EQ(length, 0);
        EXPECT_EQ(chunk.GetLength(), 0);
        EXPECT_EQ(chunk.data[0], 1) << "the byte that was there";
    }
}

TEST_F(HcI2cBufferFill, NullArrayEmptiesTheChunkAndFails) {
    HcI2cBuffer chunk(&bus_, 0x2E, 't');
    FillUp(chunk, 5);
    int length = 3;

    EXPECT_EQ(chunk.FillBuffer(nullptr, &length), 0);

    EXPECT_EQ(length, 0);
    EXPECT_EQ(chunk.GetLength(), 0);
}

TEST_F(HcI2cBufferFill, NullLengthEmptiesTheChunkAndFails) {
    HcI2cBuffer chunk(&bus_, 0x2E, 't');
    FillUp(chunk, 5);
    unsigned char source = 0x42;

    EXPECT_EQ(chunk.FillBuffer(&source, nullptr), 0);
    EXPECT_EQ(chunk.GetLength(), 0);

    FillUp(chunk, 5);
    EXPECT_EQ(chunk.FillBuffer(nullptr, nullptr), 0);
    EXPECT_EQ(chunk.GetLength(), 0);
}

}  // namespace

extern "C" {

int __real_posix_memalign(void** memory, size_t alignment, size_t size);
int __wrap_posix_memalign(void** memory, size_t alignment, size_t size);

int __wrap_posix_memalign(void** memory, size_t alignment, size_t size) {
    g_memalign_alignment = alignment;
    g_memalign_size = size;
    if (g_memalign_result) {
        errno = g_memalign_errno;
        return *g_memalign_result;
    }
    const int result = __real_posix_memalign(memory, alignment, size);
    if (result == 0) {
        memset(*memory, 0xEE, size);  // as memory that was in use before
    }
    return result;
}

void __real_free(void* memory);
void __wrap_free(void* memory);

void __wrap_free(void* memory) {
    if (memory == g_watched) {
        g_watched = nullptr;
    }
    __real_free(memory);
}
}
