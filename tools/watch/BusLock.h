// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_BUSLOCK_H
#define BBPFLASH_TOOLS_WATCH_BUSLOCK_H

#include <stdexcept>
#include <string>

namespace tools {

// Another process holds the lock.
class BusIsTaken : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Keeps a second update off the bus, by a lock on a file of its own. The descriptor goes on to the
// updater, so the lock lasts as long as either of the two lives.
class BusLock {
  public:
    // Takes the lock on the file `path`, which is made if need be. Throws BusIsTaken, or
    // std::system_error when the file cannot be opened.
    explicit BusLock(const std::string& path);
    ~BusLock();

    // In the first folder for locks that this system has.
    static std::string DefaultPath();

    BusLock(const BusLock&) = delete;
    BusLock& operator=(const BusLock&) = delete;

  private:
    int descriptor_ = -1;
};

}  // namespace tools

#endif
