// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/Standstill.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "common/Failure.h"
#include "common/Pipe.h"
#include "common/Spawn.h"

namespace tools {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds PAUSE(2);
constexpr std::chrono::seconds LIMIT(2);

// A process in the middle of a system call that nothing interrupts, such as a transfer, stops at
// the call's end; it is waited for so long.
constexpr std::chrono::milliseconds LONG_CALL(500);

struct Member {
    pid_t id = -1;
    pid_t parent = -1;
    pid_t group = -1;
    char state = 'X';  // as in proc(5)
};

// What the folder of a process in /proc tells; nothing of one that is gone.
Member Look(const std::filesystem::path& folder) {
    Member member;
    std::ifstream file(folder / "stat");
    std::ostringstream text;
    text << file.rdbuf();
    // The program's name stands in parentheses and may have any character.
    const std::string line = text.str();
    const std::size_t name_end = line.rfind(')');
    if (name_end != std::string::npos) {
        std::istringstream fields(line.substr(name_end + 1));
        member.id = static_cast<pid_t>(std::strtol(line.c_str(), nullptr, 10));
        fields >> member.state >> member.parent >> member.group;
    }
    return member;
}

std::vector<Member> MembersOf(pid_t group) {
    std::vector<Member> members;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") == std::string::npos) {
            const Member member = Look(entry.path());
            if (member.group == group) {
                members.push_back(member);
            }
        }
    }
    return members;
}

bool HasStopped(const Member& member) {
    return std::string("TtZX").find(member.state) != std::string::npos;
}

// Whether no process of the group can do anything more. Inside vfork a parent waits, deaf to
// everything, for a child that has stopped.
bool IsStill(pid_t group, bool after_long_call) {
    const std::vector<Member> members = MembersOf(group);
    return std::all_of(members.begin(), members.end(), [&](const Member& member) {
        const bool waits_for_child =
            std::any_of(members.begin(), members.end(), [&member](const Member& other) {
                return other.parent == member.id && HasStopped(other);
            });
        return HasStopped(member) || (member.state == 'D' && (after_long_call || waits_for_child));
    });
}

// False when the group is not still after a long time, or nobody can tell.
bool Await(pid_t group) {
    const Clock::time_point start = Clock::now();
    try {
        while (!IsStill(group, Clock::now() - start > LONG_CALL)) {
            if (Clock::now() - start > LIMIT) {
                return false;
            }
            std::this_thread::sleep_for(PAUSE);
        }
    } catch (const std::filesystem::filesystem_error&) {
        return false;
    }
    return true;
}

}  // namespace

Standstill::Standstill(pid_t group) {
    common::Pipe guard = common::MakePipe();
    const int read_end = guard.read_end.Get();
    guardian_ = common::Fork([group, read_end, &guard] {
        // A signal to all of this process's group must not reach it.
        setsid();
        guard.write_end.Reset();
        char byte = 0;
        while (read(read_end, &byte, 1) == -1 && errno == EINTR) {
        }
        kill(-group, SIGCONT);
        return EXIT_SUCCESS;
    });
    guard_ = std::move(guard.write_end);
    if (kill(-group, SIGSTOP) != 0) {
        const int error = errno;
        Release();
        throw common::ErrnoFailure("holding the updater still", error);
    }
    if (!Await(group)) {
        Release();
        throw common::Failure("holding the updater still: it does not stop");
    }
}

Standstill::~Standstill() {
    Release();
}

void Standstill::Release() {
    guard_.Reset();
    while (waitpid(guardian_, nullptr, 0) == -1 && errno == EINTR) {
    }
}

}  // namespace tools
