// SPDX-License-Identifier: Apache-2.0
#include "sim/host/ReportText.h"

#include <sstream>

#include "sim/Digest.h"

namespace sim {

std::string ReportText(const Report& report) {
    std::ostringstream text;
    text << "resets     " << report.resets << '\n'
         << "messages   " << report.messages << '\n'
         << "segments   " << report.segments << '\n'
         << "polls      " << report.polls << '\n'
         << "burns      " << report.burns << '\n'
         << "image      " << report.image_size << " bytes\n";
    if (report.flash->empty()) {
        text << "flash      never written\n";
    } else {
        text << "flash      " << report.flash->size() << " bytes, SHA-256 " << Sha256(*report.flash)
             << '\n';
    }
    text << "version    " << report.version << '\n' << "faults     " << report.faults << '\n';
    return text.str();
}

}  // namespace sim
