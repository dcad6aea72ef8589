// SPDX-License-Identifier: Apache-2.0
#include "sim/Digest.h"

#include <openssl/sha.h>

namespace sim {

std::string Sha256(const std::vector<std::uint8_t>& bytes) {
    std::uint8_t digest[SHA256_DIGEST_LENGTH];
    SHA256(bytes.data(), bytes.size(), digest);
    const char digits[] = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : digest) {
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

}  // namespace sim
