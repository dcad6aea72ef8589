// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_FUZZ_REQUIRE_H
#define BBPFLASH_TESTS_FUZZ_REQUIRE_H

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// What every fuzz target needs.
namespace fuzz {

// Ends the process with `what` when it does not hold.
inline void Require(bool holds, const char* what) {
    if (!holds) {
        dprintf(STDERR_FILENO, "\nviolated: %s\n", what);
        std::abort();
    }
}

// The bytes of a fuzz input, taken from the front; zeros follow its end.
class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) : at_(data), left_(size) {}

    bool Empty() const { return left_ == 0; }

    std::uint8_t Byte() {
        if (left_ == 0) {
            return 0;
        }
        --left_;
        return *at_++;
    }

  private:
    const std::uint8_t* at_;
    std::size_t left_;
};

}  // namespace fuzz

#endif
