// SPDX-License-Identifier: Apache-2.0
#include "tests/support/CallLog.h"

#include <cstdio>

namespace virt {

namespace {

constexpr std::array<std::string_view, CALL_KINDS> NAMES = {
    "open",        "set_speed", "lock",   "unlock",   "send",   "receive",
    "write_reset", "delay",     "usleep", "memalign", "new",    "new_storage",
    "fopen",       "fseek",     "ftell",  "fread",    "output", "log"};

bool IsText(CallKind kind) {
    return kind != CallKind::Send && kind != CallKind::Receive;
}

std::string Shown(CallKind kind, std::string_view data) {
    constexpr std::size_t MOST_TEXT = 120;
    constexpr std::size_t MOST_BYTES = 24;
    std::string shown;
    if (IsText(kind)) {
        for (char c : data.substr(0, MOST_TEXT)) {
            shown += c == '\n' ? std::string("\\n") : std::string(1, c);
        }
        return " \"" + shown + "\"";
    }
    for (char c : data.substr(0, MOST_BYTES)) {
        char hex[4];
        std::snprintf(hex, sizeof hex, " %02X", static_cast<unsigned>(c) & 0xFFU);
        shown += hex;
    }
    return shown + (data.size() > MOST_BYTES ? " ..." : "");
}

}  // namespace

std::string_view NameOf(CallKind kind) {
    return NAMES[static_cast<std::size_t>(kind)];
}

void CallLog::Clear() {
    total_ = 0;
    counts_.fill(0);
    calls_.clear();
    storage_.clear();
}

Call& CallLog::Add(CallKind kind, Duration at) {
    ++total_;
    ++counts_[static_cast<std::size_t>(kind)];
    if (!keep_) {
        calls_.clear();
        storage_.clear();
    }
    calls_.emplace_back();
    calls_.back().kind = kind;
    calls_.back().at = at;
    return calls_.back();
}

void CallLog::Attach(const void* bytes, std::size_t size) {
    Call& call = calls_.back();
    call.data = storage_.size();
    call.size = size;
    const char* const first = static_cast<const char*>(bytes);
    storage_.insert(storage_.end(), first, first + size);
}

std::string_view CallLog::Data(const Call& call) const {
    return std::string_view(storage_.data() + call.data, call.size);
}

std::string Describe(const CallLog& log, const Call& call) {
    char head[120];
    std::snprintf(head, sizeof head, "%14.6f ms  %-11s %lld %lld -> %lld%s",
                  static_cast<double>(call.at.count()) / 1e6,
                  std::string(NameOf(call.kind)).c_str(), static_cast<long long>(call.argument),
                  static_cast<long long>(call.detail), static_cast<long long>(call.result),
                  call.struck ? "  <- fault" : "");
    return head + (call.size > 0 ? Shown(call.kind, log.Data(call)) : std::string());
}

}  // namespace virt
