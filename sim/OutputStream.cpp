// SPDX-License-Identifier: Apache-2.0
#include "sim/OutputStream.h"

#include <cerrno>

#include "common/Failure.h"

namespace sim {

OutputStream::OutputStream(const std::string& path, const std::string& what)
    : name_(what + " " + path), file_(std::fopen(path.c_str(), "we")) {
    if (file_ == nullptr) {
        throw common::ErrnoFailure(name_, errno);
    }
}

void OutputStream::Write(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), file_.get()) != text.size() && error_ == 0) {
        error_ = errno;
    }
}

void OutputStream::NoteError() {
    if (std::ferror(file_.get()) != 0 && error_ == 0) {
        error_ = errno;
    }
}

void OutputStream::Flush() {
    if (std::fflush(file_.get()) != 0 && error_ == 0) {
        error_ = errno;
    }
}

void OutputStream::Close() {
    Flush();
    if (std::fclose(file_.release()) != 0 && error_ == 0) {
        error_ = errno;
    }
    if (error_ != 0) {
        throw common::ErrnoFailure("writing " + name_, error_);
    }
}

}  // namespace sim
