// SPDX-License-Identifier: Apache-2.0
#include "sim/host/ReportText.h"

#include <nlohmann/json.hpp>
#include <sstream>

#include "common/Sha256.h"

namespace sim {

namespace {

std::string Fingerprint(const FlashBytes& flash) {
    return common::Sha256Of(flash.data(), flash.size());
}

}  // namespace

std::string ReportText(const Report& report) {
    std::ostringstream text;
    text << "resets     " << report.resets << '\n'
         << "messages   " << report.messages << '\n'
         << "segments   " << report.segments << '\n'
         << "polls      " << report.polls << '\n'
         << "burns      " << report.burns << '\n'
         << "image      " << report.image_size << " bytes\n";
    if (report.flash == nullptr) {
        text << "flash      never written\n";
    } else {
        text << "flash      " << report.flash->size() << " bytes, SHA-256 "
             << Fingerprint(*report.flash) << '\n';
    }
    text << "version    " << report.version << '\n' << "faults     " << report.faults << '\n';
    return text.str();
}

std::string ReportJson(const Report& report, int command_status) {
    nlohmann::ordered_json json;
    json["command_status"] = command_status;
    json["resets"] = report.resets;
    json["messages"] = report.messages;
    json["reads"] = report.reads;
    json["segments"] = report.segments;
    json["polls"] = report.polls;
    json["burns"] = report.burns;
    json["faults"] = report.faults;
    json["image_size"] = report.image_size;
    json["version"] = report.version;
    json["flash"] = nullptr;
    if (report.flash != nullptr) {
        json["flash"] = {{"size", report.flash->size()}, {"sha256", Fingerprint(*report.flash)}};
    }
    // A version may be any bytes; those that are no text become replacement characters.
    return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace sim
