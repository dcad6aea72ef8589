// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_FUZZ_SURROUNDINGS_H
#define BBPFLASH_TESTS_FUZZ_SURROUNDINGS_H

#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <stdexcept>

// What surrounds the core while a fuzz target runs it many thousand times a second in one process:
// the platform's functions, the bus and reset devices and the image file are the target's, time
// passes without waiting, exit comes back, and what the program keeps until its end is given back.
namespace fuzz {

// What one run of the core meets. The target derives from it.
class Surroundings {
  public:
    Surroundings() = default;
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;
    virtual ~Surroundings() = default;

    // One devctl; 0 or an errno value.
    virtual int Devctl(int dcmd, std::uint8_t* block, std::size_t size) = 0;

    // Bytes of the image file as its end's position tells.
    virtual std::size_t ImageSize() const = 0;
    // Reads of the image from `offset` on, at most `size` bytes; returns how many it has there.
    virtual std::size_t ReadImage(std::size_t offset, char* to, std::size_t size) const = 0;
};

enum class End {
    Returned,  // the code came to its end
    Exited,    // it called exit
    NoText,    // a text without a non-blank ended in std::out_of_range
    CutOff     // it waited longer than any run may
};

struct Outcome {
    End end;
    int status;  // of exit
};

// The state of the run in progress; the wrapped functions leave through it.
struct Exit {
    std::jmp_buf jump;
    Outcome outcome;
};
extern Exit* g_exit;

// Before and after a run: the surroundings in place, what the run kept given back. The core's
// globals are then as at the start of a process.
void Enter(Surroundings& surroundings);
void Leave();

// Runs `code` in the surroundings.
template <class Code>
Outcome Run(Surroundings& surroundings, const Code& code) {
    Exit exit{};
    g_exit = &exit;
    Enter(surroundings);
    // The wrapped exit jumps: the C library declares exit as one that throws nothing.
    if (setjmp(exit.jump) == 0) {
        try {
            code();
            exit.outcome = {End::Returned, 0};
        } catch (const std::out_of_range&) {
            exit.outcome = {End::NoText, 0};
        }
    }
    Leave();
    g_exit = nullptr;
    return exit.outcome;
}

}  // namespace fuzz

#endif
