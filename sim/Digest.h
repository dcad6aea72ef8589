// SPDX-License-Identifier: Apache-2.0
// The fingerprint by which a person compares what a flash holds with a file.
#ifndef SIM_DIGEST_H
#define SIM_DIGEST_H

#include <cstdint>
#include <string>
#include <vector>

namespace sim {

// The SHA-256 of the bytes in lower-case hexadecimal, as sha256sum prints it.
std::string Sha256(const std::vector<std::uint8_t>& bytes);

}  // namespace sim

#endif
