// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/JsonReporter.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "common/Text.h"

namespace tools {

namespace {

double Seconds(Milliseconds time) {
    return static_cast<double>(time.count()) / 1000;
}

const char* NameOf(WatchEvent::Kind kind) {
    switch (kind) {
        case WatchEvent::Kind::Start:
            return "start";
        case WatchEvent::Kind::Phase:
            return "phase";
        case WatchEvent::Kind::Progress:
            return "progress";
        case WatchEvent::Kind::Message:
            return "message";
        case WatchEvent::Kind::Note:
            return "note";
        case WatchEvent::Kind::Problem:
            return "problem";
        case WatchEvent::Kind::Stall:
            return "stall";
        case WatchEvent::Kind::Check:
            return "check";
        case WatchEvent::Kind::End:
            break;
    }
    return "end";
}

const char* NameOf(bbpflash_level level) {
    switch (level) {
        case BBPFLASH_LEVEL_PLAIN:
            return "plain";
        case BBPFLASH_LEVEL_CRITICAL:
            return "critical";
        case BBPFLASH_LEVEL_ERROR:
            return "error";
        case BBPFLASH_LEVEL_WARNING:
            return "warning";
        case BBPFLASH_LEVEL_INFO:
            return "info";
        case BBPFLASH_LEVEL_NONE:
            break;
    }
    return "none";
}

void AddText(nlohmann::json& json, const char* name, const std::string& text) {
    if (!text.empty()) {
        json[name] = common::Escape(text);
    }
}

void AddProgress(nlohmann::json& json, const Progress& progress) {
    json["elapsed"] = Seconds(progress.elapsed);
    json["phase"] = bbpflash_phase_name(progress.phase);
    json["pass"] = progress.pass;
    json["percent"] = progress.percent;
    json["done"] = std::round(progress.done * 1000) / 1000;
    json["writes_flash"] = progress.writes_flash;
    if (progress.remaining) {
        json["remaining"] = Seconds(*progress.remaining);
    }
    if (progress.no_answer) {
        json["no_answer"] = Seconds(*progress.no_answer);
    }
}

void AddEnding(nlohmann::json& json, const Ending& ending) {
    json["verdict"] = NameOf(ending.verdict);
    json["status"] = ending.status;
    json["chip"] = AdviceFor(ending.content).code;
    json["text"] = Headline(ending);
    AddText(json, "reason", ending.reason);
    AddText(json, "from", ending.from);
    AddText(json, "to", ending.to);
    AddText(json, "log", ending.log);
    if (!IsGood(ending.verdict)) {
        AddText(json, "what", ending.what);
        AddText(json, "next", ending.next);
        if (ending.where.segment) {
            json["segment"] = *ending.where.segment;
        }
        if (ending.segments > 0) {
            json["segments"] = ending.segments;
        }
    }
}

}  // namespace

void JsonReporter::Report(const WatchEvent& event) {
    nlohmann::json json = {{"event", NameOf(event.kind)}};
    AddProgress(json, event.progress);
    AddText(json, "text", event.text);
    switch (event.kind) {
        case WatchEvent::Kind::Start:
            json["command"] = nlohmann::json::array();
            for (const std::string& word : event.words) {
                json["command"].push_back(common::Escape(word));
            }
            break;
        case WatchEvent::Kind::Message:
            json["level"] = NameOf(event.level);
            break;
        case WatchEvent::Kind::Check:
            json["name"] = event.name;
            json["ok"] = nullptr;
            if (event.is_well) {
                json["ok"] = *event.is_well;
            }
            break;
        case WatchEvent::Kind::End:
            AddEnding(json, event.ending);
            break;
        case WatchEvent::Kind::Phase:
        case WatchEvent::Kind::Progress:
        case WatchEvent::Kind::Note:
        case WatchEvent::Kind::Problem:
        case WatchEvent::Kind::Stall:
            break;
    }
    sink_(json.dump() + "\n");
}

}  // namespace tools
