// SPDX-License-Identifier: Apache-2.0
// The owner of a file descriptor.
#ifndef COMMON_UNIQUE_FD_H
#define COMMON_UNIQUE_FD_H

namespace common {

// Closes its descriptor when it goes, unless it has none (-1).
class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int descriptor) : descriptor_(descriptor) {}
    ~UniqueFd() { Reset(); }
    UniqueFd(UniqueFd&& other) noexcept : descriptor_(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept;
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    // -1 if there is none.
    int Get() const { return descriptor_; }
    explicit operator bool() const { return descriptor_ >= 0; }

    // Gives the descriptor to the caller, who closes it from now on.
    int Release();

    // Closes the descriptor and takes this one. errno stays as it is.
    void Reset(int descriptor = -1);

    // Closes the descriptor. False, with errno, if what was written could not be kept.
    bool Close();

  private:
    int descriptor_ = -1;
};

}  // namespace common

#endif
