// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_IMAGE_ATOMICFILE_H
#define BBPFLASH_TOOLS_IMAGE_ATOMICFILE_H

#include <string>

namespace tools {

// A file that is replaced as a whole or not at all: its new content goes to a temporary file in the
// same folder, which takes the name over when it is complete and on the disk. Every failure throws
// std::system_error and leaves the named file as it was; the temporary file goes in any case.
class AtomicFile {
  public:
    // Prepares to write `path`; a symbolic link is followed.
    explicit AtomicFile(const std::string& path);

    // Removes the temporary file unless it was committed.
    ~AtomicFile();

    // Appends `bytes`.
    void Write(const std::string& bytes);

    // Where the new content is until it is committed, for a last look at it.
    const std::string& TemporaryPath() const { return temporary; }

    // Gives the new content the file's name, mode and owner; a file that did not exist gets what
    // the process would give any new file.
    void Commit();

    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

  private:
    void KeepModeAndOwner();

    std::string target;
    std::string folder;
    std::string temporary;
    int descriptor = -1;
    bool committed = false;
};

}  // namespace tools

#endif
