// SPDX-License-Identifier: Apache-2.0
#include "tools/image/Sha256.h"

#include <openssl/evp.h>

#include <stdexcept>

#include "tools/image/VisibleText.h"

namespace tools {

namespace {

void Require(int result) {
    if (result != 1) {
        throw std::runtime_error("SHA-256 is not available");
    }
}

}  // namespace

Sha256::Sha256() : context_(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
    Require(context_ != nullptr ? EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) : 0);
}

void Sha256::Update(const char* bytes, std::size_t size) {
    Require(EVP_DigestUpdate(context_.get(), bytes, size));
}

std::string Sha256::Finish() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    Require(EVP_DigestFinal_ex(context_.get(), digest, &size));
    return Hex(std::string(reinterpret_cast<const char*>(digest), size));
}

}  // namespace tools
