// SPDX-License-Identifier: Apache-2.0
// guard SECONDS LINGER RESULT COMMAND...: runs the command for at most SECONDS, then waits LINGER
// seconds for everything that the command has left behind. RESULT tells how the command ended
// ("status 0", "signal 9") or that it was "late", then "left NAME" for each process that had to be
// killed. The guard's own status is 0 whenever it could run the command.
#include <dirent.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

struct Descendant {
    pid_t id = 0;
    std::string name;
};

// The parent and the name of a process, of which /proc tells "ID (NAME) STATE PARENT ...".
bool IsChildOf(pid_t parent, Descendant* process) {
    std::ifstream file("/proc/" + std::to_string(process->id) + "/stat");
    std::string line;
    std::getline(file, line);
    const std::size_t open = line.find('(');
    const std::size_t close = line.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close + 4 > line.size()) {
        return false;
    }
    process->name = line.substr(open + 1, close - open - 1);
    return std::atoi(line.c_str() + close + 4) == parent;
}

std::vector<Descendant> Children() {
    std::vector<Descendant> children;
    DIR* const processes = opendir("/proc");
    while (const dirent* const entry = readdir(processes)) {
        Descendant process;
        process.id = std::atoi(entry->d_name);
        if (process.id > 0 && IsChildOf(getpid(), &process)) {
            children.push_back(process);
        }
    }
    closedir(processes);
    return children;
}

// Waits for children until `until` or the end of the last one. Returns how `first` ended, if it
// has.
std::optional<int> WaitFor(pid_t first, Clock::time_point until, bool for_all) {
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    std::optional<int> end;
    while (Clock::now() < until) {
        int state = 0;
        const pid_t ended = waitpid(-1, &state, WNOHANG | __WALL);
        if (ended == first) {
            end = state;
        }
        if (ended == -1 || (end && !for_all)) {
            break;
        }
        if (ended == 0) {
            const timespec moment = {0, 50000000};
            sigtimedwait(&child, nullptr, &moment);
        }
    }
    return end;
}

// Ends everything that still runs below this process; what ends leaves its own children to it.
void EndAll(std::ofstream& result) {
    for (std::vector<Descendant> left = Children(); !left.empty(); left = Children()) {
        for (const Descendant& process : left) {
            result << "left " << process.name << "\n";
            kill(process.id, SIGKILL);
            waitpid(process.id, nullptr, __WALL);
        }
    }
}

pid_t Start(char** command) {
    const pid_t id = fork();
    if (id == 0) {
        setsid();
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        execvp(command[0], command);
        std::perror(command[0]);
        _exit(127);
    }
    return id;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        std::fprintf(stderr, "usage: guard SECONDS LINGER RESULT COMMAND...\n");
        return 64;
    }
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    sigprocmask(SIG_BLOCK, &child, nullptr);
    prctl(PR_SET_CHILD_SUBREAPER, 1);

    std::ofstream result(argv[3]);
    const pid_t id = Start(argv + 4);
    if (id == -1 || !result) {
        std::perror("guard");
        return 1;
    }
    const auto limit = [](const char* seconds) {
        return Clock::now() + std::chrono::seconds(std::atoi(seconds));
    };
    const std::optional<int> end = WaitFor(id, limit(argv[1]), false);
    if (!end) {
        result << "late\n";
    } else if (WIFSIGNALED(*end)) {
        result << "signal " << WTERMSIG(*end) << "\n";
    } else {
        result << "status " << WEXITSTATUS(*end) << "\n";
    }
    if (end) {
        WaitFor(id, limit(argv[2]), true);
    }
    EndAll(result);
    return 0;
}
