// SPDX-License-Identifier: Apache-2.0
#include "common/Sha256.h"

#include <openssl/evp.h>

#include "common/Failure.h"
#include "common/Text.h"

namespace common {

namespace {

void Require(int result) {
    if (result != 1) {
        throw Failure("SHA-256 is not available");
    }
}

}  // namespace

Sha256::Sha256() : context_(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
    Require(context_ != nullptr ? EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) : 0);
}

void Sha256::Update(const void* bytes, std::size_t size) {
    Require(EVP_DigestUpdate(context_.get(), bytes, size));
}

std::string Sha256::Finish() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    Require(EVP_DigestFinal_ex(context_.get(), digest, &size));
    return Hex(std::string_view(reinterpret_cast<const char*>(digest), size));
}

std::string Sha256Of(const void* bytes, std::size_t size) {
    Sha256 digest;
    digest.Update(bytes, size);
    return digest.Finish();
}

}  // namespace common
