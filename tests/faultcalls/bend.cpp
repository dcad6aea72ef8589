// SPDX-License-Identifier: Apache-2.0
// bend HOW CALL NTH COMMAND...: runs the command, and bends its NTH call of a name (counted in each
// thread). HOW is "half": a read or a write asks for half of its bytes only, as if the kernel had
// carried out no more; or an errno's number: a close is carried out and says that it failed. Prints
// "bent" on descriptor 9 when it has done so.
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

namespace {

constexpr int REPORT = 9;
constexpr long OPTIONS = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL;
constexpr int AT_SYSTEM_CALL = SIGTRAP | 0x80;

struct Wanted {
    long call;
    long nth;
    int error;  // 0: half of it
};

struct Thread {
    bool is_inside = false;  // a system call has begun
    bool is_bent = false;    // and its result is to be replaced
    long calls = 0;
};

long NumberOf(const char* name) {
    const std::map<std::string, long> numbers = {{"close", SYS_close},
                                                 {"read", SYS_read},
                                                 {"write", SYS_write},
                                                 {"pread64", SYS_pread64},
                                                 {"pwrite64", SYS_pwrite64}};
    const auto found = numbers.find(name);
    return found == numbers.end() ? -1 : found->second;
}

void Tell() {
    const char said[] = "bent\n";
    (void)!write(REPORT, said, sizeof said - 1);
}

// Looks at a call that begins, and bends it if it is the wanted one.
void Begin(pid_t id, const Wanted& wanted, Thread* thread) {
    user_regs_struct registers;
    if (ptrace(PTRACE_GETREGS, id, nullptr, &registers) != 0 ||
        static_cast<long>(registers.orig_rax) != wanted.call || ++thread->calls != wanted.nth) {
        return;
    }
    thread->is_bent = wanted.error != 0;
    if (wanted.error == 0 && registers.rdx > 1) {
        registers.rdx /= 2;
        ptrace(PTRACE_SETREGS, id, nullptr, &registers);
        Tell();
    }
}

void End(pid_t id, const Wanted& wanted, Thread* thread) {
    user_regs_struct registers;
    if (thread->is_bent && ptrace(PTRACE_GETREGS, id, nullptr, &registers) == 0) {
        registers.rax = static_cast<unsigned long long>(-wanted.error);
        ptrace(PTRACE_SETREGS, id, nullptr, &registers);
        Tell();
    }
    thread->is_bent = false;
}

// Goes on after a stop. A signal that is the program's own is handed on to it.
void GoOn(pid_t id, int state, const Wanted& wanted, std::map<pid_t, Thread>* threads) {
    const int why = WSTOPSIG(state);
    Thread& thread = (*threads)[id];
    long signal = 0;
    if (why == AT_SYSTEM_CALL) {
        thread.is_inside = !thread.is_inside;
        if (thread.is_inside) {
            Begin(id, wanted, &thread);
        } else {
            End(id, wanted, &thread);
        }
    } else if (why != SIGTRAP && !(why == SIGSTOP && thread.calls == 0 && !thread.is_inside)) {
        signal = why;
    }
    ptrace(PTRACE_SYSCALL, id, nullptr, signal);
}

// Returns how the command ended.
int Follow(pid_t command, const Wanted& wanted) {
    std::map<pid_t, Thread> threads;
    for (;;) {
        int state = 0;
        const pid_t id = waitpid(-1, &state, __WALL);
        if (id == -1) {
            return EXIT_FAILURE;
        }
        if (WIFSTOPPED(state)) {
            GoOn(id, state, wanted, &threads);
        } else if (id == command) {
            return state;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    const bool is_half = argc > 4 && std::strcmp(argv[1], "half") == 0;
    Wanted wanted;
    wanted.error = argc > 4 && !is_half ? std::atoi(argv[1]) : 0;
    wanted.call = argc > 4 ? NumberOf(argv[2]) : -1;
    wanted.nth = argc > 4 ? std::atol(argv[3]) : 0;
    if (wanted.call == -1 || (wanted.error == 0 && !is_half)) {
        std::fprintf(stderr, "usage: bend half|ERRNO CALL NTH COMMAND...\n");
        return 64;
    }
    const pid_t command = fork();
    if (command == 0) {
        close(REPORT);
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        execvp(argv[4], argv + 4);
        std::perror(argv[4]);
        _exit(127);
    }
    waitpid(command, nullptr, 0);  // it stops at its start
    ptrace(PTRACE_SETOPTIONS, command, nullptr, OPTIONS);
    ptrace(PTRACE_SYSCALL, command, nullptr, 0);
    const int end = Follow(command, wanted);
    if (WIFSIGNALED(end)) {
        std::signal(WTERMSIG(end), SIG_DFL);
        std::raise(WTERMSIG(end));
    }
    return WEXITSTATUS(end);
}
