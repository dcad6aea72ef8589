// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_IMAGE_SHA256_H
#define BBPFLASH_TOOLS_IMAGE_SHA256_H

#include <cstddef>
#include <memory>
#include <string>

struct evp_md_ctx_st;

namespace tools {

// A SHA-256 digest over bytes that come in pieces. Throws std::runtime_error when the library
// refuses.
class Sha256 {
  public:
    Sha256();

    void Update(const char* bytes, std::size_t size);

    // The digest in lower-case hexadecimal digits; nothing can be added afterwards.
    std::string Finish();

  private:
    std::unique_ptr<evp_md_ctx_st, void (*)(evp_md_ctx_st*)> context_;
};

}  // namespace tools

#endif
