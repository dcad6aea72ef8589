// SPDX-License-Identifier: Apache-2.0
// What a head unit saw, for people and for programs.
#ifndef SIM_HOST_REPORT_TEXT_H
#define SIM_HOST_REPORT_TEXT_H

#include <string>

#include "sim/HeadUnit.h"

namespace sim {

// Lines of text, each closed by a newline.
std::string ReportText(const Report& report);

// A JSON object, closed by a newline, with the command's exit status beside what the head unit saw.
std::string ReportJson(const Report& report, int command_status);

}  // namespace sim

#endif
