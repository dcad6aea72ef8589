// SPDX-License-Identifier: Apache-2.0
#ifndef SIM_OUTPUT_STREAM_H
#define SIM_OUTPUT_STREAM_H

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace sim {

// A file that is written as things happen. Programs that are started meanwhile do not inherit it.
class OutputStream {
  public:
    // Creates or replaces the file `path`; `what` it is, such as "the log", is for messages. Throws
    // common::Failure.
    OutputStream(const std::string& path, const std::string& what);

    // What cannot be written is told by Close().
    void Write(std::string_view text);
    void Flush();

    // The stream, for libraries; it stays this object's. After each call of one that does not tell
    // of errors, NoteError() is to be called while errno says which there was.
    std::FILE* Handle() { return file_.get(); }
    void NoteError();

    // Writes what is pending and closes the file. Throws common::Failure when not all of it could
    // be written. Nothing may follow.
    void Close();

  private:
    struct CloseFile {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    std::string name_;
    std::unique_ptr<std::FILE, CloseFile> file_;
    int error_ = 0;  // the first one, an errno value
};

}  // namespace sim

#endif
