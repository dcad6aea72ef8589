// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/chip/HdChipFixture.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <new>

bool g_options[OPTION_COUNT];

namespace {

HdChipTest* g_test = nullptr;
int g_memory_countdown = -1;
int g_object_countdown = -1;
const void* g_last_block = nullptr;  // null once it was given back
std::size_t g_last_block_size = 0;

std::string Hex(unsigned char byte) {
    char text[3];
    snprintf(text, sizeof text, "%02X", static_cast<unsigned>(byte));
    return text;
}

// Calls the engine unless the test has a result for this step.
template <class Real>
int Through(const std::string& name, const std::string& arguments, Real real) {
    int result = 0;
    if (g_test != nullptr && g_test->Step(name, arguments, &result)) {
        return result;
    }
    return real();
}

// Whether the call that this counts is the one to fail.
bool IsDue(int* countdown) {
    if (*countdown < 0) {
        return false;
    }
    return (*countdown)-- == 0;
}

}  // namespace

HdChipTest::HdChipTest() : chip_(BUSTYPE_I2C) {
    chip_.bus->fd = 11;
    chip_.bus->devName = "/dev/i2c1";
    for (bool& option : g_options) {
        option = false;
    }
    g_test = this;
}

HdChipTest::~HdChipTest() {
    g_test = nullptr;
    g_memory_countdown = -1;
    g_object_countdown = -1;
    delete chip_.lm;
}

void HdChipTest::Script(const std::string& step, int result, int index) {
    scripted_[{step, index}] = result;
}

void HdChipTest::ForgetScript() {
    scripted_.clear();
    counts_.clear();
}

void HdChipTest::RemoveEngine() {
    delete chip_.lm;
    chip_.lm = nullptr;
}

void HdChipTest::FailMemory(int index) {
    g_memory_countdown = index;
}

void HdChipTest::FailObject(int index) {
    g_object_countdown = index;
}

std::size_t HdChipTest::LastBlockSize() {
    return g_last_block_size;
}

bool HdChipTest::LastBlockIsFree() {
    return g_last_block == nullptr;
}

bool HdChipTest::Step(const std::string& name, const std::string& arguments, int* result) {
    const std::string step = arguments.empty() ? name : name + " " + arguments;
    steps_.insert(step);
    platform.Note(step);
    const auto found = scripted_.find({name, counts_[name]++});
    if (found == scripted_.end()) {
        return false;
    }
    *result = found->second;
    return true;
}

std::vector<std::string> HdChipTest::BusTrace() const {
    std::vector<std::string> events;
    std::copy_if(platform.trace.begin(), platform.trace.end(), std::back_inserter(events),
                 [this](const std::string& event) { return steps_.count(event) == 0; });
    return events;
}

// What the core allocates its objects with.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return IsDue(&g_object_countdown) ? nullptr : ::operator new(size);
}

// The engine's functions as the linker names them; the first argument is the object.
extern "C" {

#define BBP_WRAPPED(symbol, ...)      \
    int __real_##symbol(__VA_ARGS__); \
    int __wrap_##symbol(__VA_ARGS__);

BBP_WRAPPED(_ZN9HcLogical10SetNumSegsEi, HcLogical*, int)
BBP_WRAPPED(_ZN9HcLogical5BeginEhi, HcLogical*, unsigned char, int)
BBP_WRAPPED(_ZN9HcLogical4FillEh, HcLogical*, unsigned char)
BBP_WRAPPED(_ZN9HcLogical4FillEP8_IO_FILE, HcLogical*, FILE*)
BBP_WRAPPED(_ZN9HcLogical9TerminateEv, HcLogical*)
BBP_WRAPPED(_ZN9HcLogical4SendEv, HcLogical*)
BBP_WRAPPED(_ZN9HcLogical13RetrieveShortEPh, HcLogical*, unsigned char*)
BBP_WRAPPED(_ZN9HcLogical12RetrieveLongEPh, HcLogical*, unsigned char*)
BBP_WRAPPED(posix_memalign, void**, size_t, size_t)

void __real__ZN9HcLogical5ResetEb(HcLogical*, bool);
void __wrap__ZN9HcLogical5ResetEb(HcLogical*, bool);

void __wrap__ZN9HcLogical5ResetEb(HcLogical* lm, bool reset_count) {
    Through("Reset", reset_count ? "1" : "0", [=] {
        __real__ZN9HcLogical5ResetEb(lm, reset_count);
        return 0;
    });
}

int __wrap__ZN9HcLogical10SetNumSegsEi(HcLogical* lm, int total) {
    return Through("SetNumSegs", std::to_string(total),
                   [=] { return __real__ZN9HcLogical10SetNumSegsEi(lm, total); });
}

int __wrap__ZN9HcLogical5BeginEhi(HcLogical* lm, unsigned char opcode, int size) {
    return Through("Begin", Hex(opcode) + " " + std::to_string(size),
                   [=] { return __real__ZN9HcLogical5BeginEhi(lm, opcode, size); });
}

int __wrap__ZN9HcLogical4FillEh(HcLogical* lm, unsigned char byte) {
    return Through("Fill", Hex(byte), [=] { return __real__ZN9HcLogical4FillEh(lm, byte); });
}

int __wrap__ZN9HcLogical4FillEP8_IO_FILE(HcLogical* lm, FILE* file) {
    return Through("Fill file", "", [=] { return __real__ZN9HcLogical4FillEP8_IO_FILE(lm, file); });
}

int __wrap__ZN9HcLogical9TerminateEv(HcLogical* lm) {
    return Through("Terminate", "", [=] { return __real__ZN9HcLogical9TerminateEv(lm); });
}

int __wrap__ZN9HcLogical4SendEv(HcLogical* lm) {
    return Through("Send", "", [=] { return __real__ZN9HcLogical4SendEv(lm); });
}

int __wrap__ZN9HcLogical13RetrieveShortEPh(HcLogical* lm, unsigned char* payload) {
    return Through("RetrieveShort", payload == nullptr ? "null" : "",
                   [=] { return __real__ZN9HcLogical13RetrieveShortEPh(lm, payload); });
}

int __wrap__ZN9HcLogical12RetrieveLongEPh(HcLogical* lm, unsigned char* destination) {
    return Through("RetrieveLong", "",
                   [=] { return __real__ZN9HcLogical12RetrieveLongEPh(lm, destination); });
}

int __wrap_posix_memalign(void** memory, size_t alignment, size_t size) {
    if (IsDue(&g_memory_countdown)) {
        return ENOMEM;
    }
    const int result = __real_posix_memalign(memory, alignment, size);
    if (result == 0) {
        memset(*memory, 0xEE, size);  // as memory that was in use before
        g_last_block = *memory;
        g_last_block_size = size;
    }
    return result;
}

void __real_free(void* memory);
void __wrap_free(void* memory);

void __wrap_free(void* memory) {
    if (memory == g_last_block) {
        g_last_block = nullptr;
    }
    __real_free(memory);
}
}
