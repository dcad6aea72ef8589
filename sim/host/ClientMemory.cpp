// SPDX-License-Identifier: Apache-2.0
#include "sim/host/ClientMemory.h"

#include <sys/uio.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace sim {

namespace {

// 0 or an errno value.
int Read(pid_t process, const std::vector<MemoryPiece>& pieces) {
    std::vector<iovec> here(pieces.size());
    std::vector<iovec> there(pieces.size());
    std::size_t size = 0;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        here[i].iov_base = pieces[i].here;
        // No pointer for this process.
        static_assert(sizeof there[i].iov_base == sizeof pieces[i].address);
        std::memcpy(&there[i].iov_base, &pieces[i].address, sizeof pieces[i].address);
        here[i].iov_len = there[i].iov_len = pieces[i].size;
        size += pieces[i].size;
    }
    const ssize_t read =
        process_vm_readv(process, here.data(), here.size(), there.data(), there.size(), 0);
    if (read < 0) {
        return errno;
    }
    return static_cast<std::size_t>(read) == size ? 0 : EFAULT;
}

bool ReadsTheSame(pid_t process, const std::vector<MemoryPiece>& sent) {
    for (MemoryPiece piece : sent) {
        std::vector<std::uint8_t> bytes(piece.size);
        const void* const known = piece.here;
        piece.here = bytes.data();
        if (Read(process, {piece}) != 0 || std::memcmp(known, bytes.data(), piece.size) != 0) {
            return false;
        }
    }
    return true;
}

}  // namespace

ClientMemory::Copied ClientMemory::Copy(pid_t process,
                                        const std::vector<MemoryPiece>& pieces) const {
    if (process == 0 || process != readable_) {
        return Copied::NotPossible;
    }
    const int error = Read(process, pieces);
    if (error == EFAULT) {
        return Copied::BadAddress;
    }
    return error == 0 ? Copied::All : Copied::NotPossible;
}

void ClientMemory::Learn(pid_t process, const std::vector<MemoryPiece>& sent) {
    if (process == 0 || process == readable_ || process == unreadable_) {
        return;
    }
    (ReadsTheSame(process, sent) ? readable_ : unreadable_) = process;
}

}  // namespace sim
