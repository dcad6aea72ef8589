// SPDX-License-Identifier: Apache-2.0
#include "tests/fault/Injection.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "sim/FaultText.h"

namespace fault {

namespace {

constexpr std::array<std::string_view, KINDS> KIND_NAMES = {"bus",    "reply",  "chip", "file",
                                                            "memory", "output", "line", "pair"};

constexpr std::array<std::string_view, 6> HOWS = {"none",  "fail",  "after",
                                                  "value", "limit", "block"};
constexpr std::array<std::string_view, 3> FILE_ACTIONS = {"none", "resize", "unreadable"};

constexpr char BETWEEN[] = " + ";  // two faults of one injection
constexpr char COMMENT = '#';

template <typename Names>
std::size_t IndexOf(const Names& names, const std::string& name) {
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) {
        throw std::invalid_argument("no fault: " + name);
    }
    return static_cast<std::size_t>(found - names.begin());
}

template <typename Enumeration, typename Names>
Enumeration ValueOf(const Names& names, const std::string& name) {
    return static_cast<Enumeration>(IndexOf(names, name));
}

template <typename Enumeration, typename Names>
std::string_view Named(const Names& names, Enumeration value) {
    return names[static_cast<std::size_t>(value)];
}

std::vector<std::string> Split(const std::string& text, const std::string& separator) {
    std::vector<std::string> parts;
    std::size_t begin = 0;
    for (std::size_t end = 0; end != std::string::npos; begin = end + separator.size()) {
        end = text.find(separator, begin);
        parts.push_back(text.substr(begin, end - begin));
    }
    return parts;
}

virt::CallKind CallKindOf(const std::string& name) {
    for (std::size_t i = 0; i < virt::CALL_KINDS; ++i) {
        if (virt::NameOf(static_cast<virt::CallKind>(i)) == name) {
            return static_cast<virt::CallKind>(i);
        }
    }
    throw std::invalid_argument("no call: " + name);
}

std::string NameOfCall(const CallFault& fault) {
    std::ostringstream name;
    name << virt::NameOf(fault.kind) << '@' << fault.index << ':';
    if (fault.action != FileAction::None) {
        name << Named(FILE_ACTIONS, fault.action) << ':' << fault.size;
    } else {
        name << Named(HOWS, fault.strike.how) << ':' << fault.strike.error << ':'
             << fault.strike.value << ':' << fault.times;
    }
    return name.str();
}

CallFault CallOf(const std::string& kind, const std::vector<std::string>& parts) {
    CallFault fault{CallKindOf(kind), std::stoi(parts.at(0)), {}, 1, FileAction::None, 0};
    if (parts.size() == 3) {
        fault.action = ValueOf<FileAction>(FILE_ACTIONS, parts[1]);
        fault.size = std::stol(parts[2]);
        return fault;
    }
    fault.strike.how = ValueOf<virt::Strike::How>(HOWS, parts.at(1));
    fault.strike.error = std::stoi(parts.at(2));
    fault.strike.value = std::stol(parts.at(3));
    fault.times = std::stoi(parts.at(4));
    return fault;
}

sim::Fault UnitOf(const std::string& text) {
    sim::Fault fault;
    sim::FaultMistake mistake;
    if (!sim::ParseFault(text, &fault, &mistake)) {
        throw std::invalid_argument(sim::ShowMistake(text, mistake));
    }
    return fault;
}

Fault FaultOf(const std::string& name) {
    const std::size_t mark = name.find('@');
    if (mark == std::string::npos) {
        return Fault{false, CallFault{}, UnitOf(name)};
    }
    return Fault{true, CallOf(name.substr(0, mark), Split(name.substr(mark + 1), ":")), {}};
}

}  // namespace

const char* NameOf(Kind kind) {
    return Named(KIND_NAMES, kind).data();
}

Injection Injection::Of(Kind kind, const CallFault& call) {
    return Injection{kind, 1, {Fault{true, call, {}}, Fault{}}};
}

Injection Injection::Of(Kind kind, const sim::Fault& unit) {
    return Injection{kind, 1, {Fault{false, {}, unit}, Fault{}}};
}

Injection Injection::Pair(const Injection& first, const Injection& second) {
    return Injection{Kind::Pair, 2, {first.faults[0], second.faults[0]}};
}

std::string Injection::Name() const {
    std::string name;
    for (int i = 0; i < count; ++i) {
        const Fault& fault = faults[static_cast<std::size_t>(i)];
        name += i > 0 ? BETWEEN : "";
        name += fault.is_call ? NameOfCall(fault.call) : sim::FaultText(fault.unit);
    }
    return name;
}

Injection Injection::Of(const std::string& name) {
    Injection injection{Kind::Pair, 0, {}};
    // A comment may have any of the characters that mean something in a fault.
    const std::string faults = name.substr(0, name.find(COMMENT));
    for (const std::string& part : Split(faults, BETWEEN)) {
        injection.faults.at(static_cast<std::size_t>(injection.count++)) = FaultOf(part);
    }
    if (injection.count == 0) {
        throw std::invalid_argument("no fault: " + name);
    }
    return injection;
}

std::vector<sim::Fault> Injection::UnitFaults() const {
    std::vector<sim::Fault> unit;
    for (int i = 0; i < count; ++i) {
        const Fault& fault = faults[static_cast<std::size_t>(i)];
        if (!fault.is_call) {
            unit.push_back(fault.unit);
        }
    }
    return unit;
}

InjectionHook::InjectionHook(const Injection& injection, virt::VirtualFiles& files)
    : files_(files) {
    for (int i = 0; i < injection.count; ++i) {
        const Fault& fault = injection.faults[static_cast<std::size_t>(i)];
        if (fault.is_call) {
            armed_.push_back({fault.call, fault.call.times});
        }
    }
}

virt::Strike InjectionHook::OnCall(const virt::Call& call, int index, int /*nth*/) {
    for (Armed& armed : armed_) {
        const CallFault& fault = armed.fault;
        if (call.kind != fault.kind || index < fault.index || armed.left == 0) {
            continue;
        }
        ++hits_;
        armed.left -= armed.left > 0 ? 1 : 0;
        if (fault.action == FileAction::None) {
            return fault.strike;
        }
        if (fault.action == FileAction::Resize) {
            files_.Resize(static_cast<std::size_t>(fault.size));
        } else {
            files_.MakeUnreadableFrom(fault.size);
        }
    }
    return {};
}

}  // namespace fault
