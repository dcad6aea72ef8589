// SPDX-License-Identifier: Apache-2.0
// What a head unit saw, for people.
#ifndef SIM_HOST_REPORT_TEXT_H
#define SIM_HOST_REPORT_TEXT_H

#include <string>

#include "sim/HeadUnit.h"

namespace sim {

// Lines of text, each closed by a newline.
std::string ReportText(const Report& report);

}  // namespace sim

#endif
