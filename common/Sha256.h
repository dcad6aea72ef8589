// SPDX-License-Identifier: Apache-2.0
// The fingerprint by which a person compares what a flash holds with a file.
#ifndef COMMON_SHA256_H
#define COMMON_SHA256_H

#include <cstddef>
#include <memory>
#include <string>

struct evp_md_ctx_st;

namespace common {

// A SHA-256 digest over bytes that come in pieces. Throws Failure when the library refuses.
class Sha256 {
  public:
    Sha256();

    void Update(const void* bytes, std::size_t size);

    // The digest in lower-case hexadecimal digits, as sha256sum prints it; nothing can be added
    // afterwards.
    std::string Finish();

  private:
    std::unique_ptr<evp_md_ctx_st, void (*)(evp_md_ctx_st*)> context_;
};

// The digest of `size` bytes, likewise.
std::string Sha256Of(const void* bytes, std::size_t size);

}  // namespace common

#endif
