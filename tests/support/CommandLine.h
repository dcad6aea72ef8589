// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_SUPPORT_COMMANDLINE_H
#define BBPFLASH_TESTS_SUPPORT_COMMANDLINE_H

#include <unistd.h>

#include <initializer_list>
#include <string>
#include <vector>

// The arguments of a program that has just started: argv[0] first, getopt's state fresh.
class CommandLine {
  public:
    CommandLine(std::initializer_list<std::string> words) : words_(words) {
        for (std::string& word : words_) {
            pointers_.push_back(&word[0]);
        }
        pointers_.push_back(nullptr);
        // glibc forgets all about an earlier command line when it finds 0 here, and goes on at 1.
        optind = 0;
    }
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    int Count() const { return static_cast<int>(words_.size()); }
    char** Vector() { return pointers_.data(); }

  private:
    std::vector<std::string> words_;
    std::vector<char*> pointers_;
};

#endif
