// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_SUPPORT_STREAMCHECKER_H
#define BBPFLASH_TESTS_SUPPORT_STREAMCHECKER_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/stream/bbpflash_stream.h"

// The mode that the updater takes from its arguments: the program's name, options and image.
bbpflash_mode ModeOf(const std::vector<std::string>& arguments);

// Whether everything that the updater wrote to standard output, and the exit status it ended with
// (128 plus the number of a signal), is what the contract on its output allows. What contradicts it
// is told line by line.
testing::AssertionResult ConformsToContract(const std::string& output, bbpflash_mode mode,
                                            int exit_status);

#endif
