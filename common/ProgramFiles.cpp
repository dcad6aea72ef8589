// SPDX-License-Identifier: Apache-2.0
#include "common/ProgramFiles.h"

#include <unistd.h>

#include <algorithm>

#include "common/Text.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): POSIX asks for it

namespace common {

namespace {

std::string SearchPath(const std::vector<std::string>& environment) {
    const std::string beginning = "PATH=";
    for (const std::string& entry : environment) {
        if (StartsWith(entry, beginning)) {
            return entry.substr(beginning.size());
        }
    }
    return "/bin:/usr/bin";
}

}  // namespace

std::vector<std::string> Environment(const std::vector<Variable>& variables) {
    std::vector<std::string> all;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        bool replaced = false;
        for (const Variable& variable : variables) {
            replaced = replaced || StartsWith(*entry, variable.name + "=");
        }
        if (!replaced) {
            all.emplace_back(*entry);
        }
    }
    for (const Variable& variable : variables) {
        all.push_back(variable.name + "=" + variable.value);
    }
    return all;
}

std::vector<std::string> ProgramFiles(const std::string& name,
                                      const std::vector<std::string>& environment) {
    if (name.empty() || name.find('/') != std::string::npos) {
        return {name};
    }
    const std::string search_path = SearchPath(environment);
    std::vector<std::string> files;
    std::size_t begin = 0;
    while (begin <= search_path.size()) {
        const std::size_t end = std::min(search_path.find(':', begin), search_path.size());
        const std::string folder = search_path.substr(begin, end - begin);
        files.push_back((folder.empty() ? "." : folder) + "/" + name);
        begin = end + 1;
    }
    return files;
}

}  // namespace common
