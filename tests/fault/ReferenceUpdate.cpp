// SPDX-License-Identifier: Apache-2.0
#include <utility>

#include "tests/fault/Format.h"
#include "tests/fault/Reference.h"

namespace fault {

namespace {

constexpr const char* kDriver = "bbpflash";
constexpr const char* kChip = "HdChip";
constexpr const char* kBus = "I2cBus";
constexpr const char* kBusDevice = "/dev/i2c1";
constexpr const char* kLine = "/dev/gpio/HD_DAB2Reset";

constexpr std::int64_t kLabelOffset = 925630;
constexpr std::size_t kLabelSize = 37;
constexpr int kMostPasses = 3;

// One scan of the arguments: letters, a colon behind those that take an argument. Calls
// `take(letter, argument)`.
template <typename Take>
void Scan(const std::vector<std::string>& arguments, const std::string& letters, Take take) {
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        if (word.size() < 2 || word[0] != '-' || word == "--") {
            return;
        }
        for (std::size_t at = 1; at < word.size(); ++at) {
            const std::size_t letter = letters.find(word[at]);
            if (letter == std::string::npos || word[at] == ':') {
                continue;
            }
            if (letter + 1 == letters.size() || letters[letter + 1] != ':') {
                take(word[at], "");
                continue;
            }
            if (at + 1 < word.size()) {
                take(word[at], word.substr(at + 1));
            } else if (i + 1 < arguments.size()) {
                take(word[at], arguments[++i]);
            }
            break;
        }
    }
}

// The text between the blanks around it, without its last two characters.
std::string Trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) {
        throw RunEnds{Outcome::kOutOfRange};
    }
    const std::size_t last = text.find_last_not_of(' ');
    // One character alone has none to lose: the length wraps, and everything remains.
    return last == first ? text.substr(first) : text.substr(first, last - first - 1);
}

const char* YesNo(bool value) {
    return value ? "true" : "false";
}

// How a version reads in a message: up to its first NUL.
std::string Shown(const std::string& version) {
    return version.substr(0, version.find('\0'));
}

}  // namespace

ReferenceUpdate::ReferenceUpdate(Transcript& transcript, std::vector<std::string> arguments)
    : t_(transcript), arguments_(std::move(arguments)), link_(transcript) {
    t_.program = arguments_[0];
}

void ReferenceUpdate::Run() {
    OpenMessages();
    ReadOptions();
    if (arguments_.size() < 2) {
        t_.Say(kError, kDriver, "Please try \"use bbpflash\" to get usage details\n");
        t_.Exit(1);
    }
    file_ = arguments_.back();
    if (!facts_.status_mode) {
        t_.Say(kPlain, kDriver, "HD tuner firmware updater");
    }
    int passes = 0;
    for (Step step = kInit; step != kDone;) {
        if (step == kFailed) {
            t_.Say(kCritical, kDriver, "Programming terminated");
            link_.Die();
        }
        if (step == kProgram && ++passes > kMostPasses) {
            t_.Say(kCritical, kDriver, "maximum number of programming tries exceeded");
            link_.Die();
        }
        step = step == kInit    ? Init()
               : step == kReset ? Reset()
               : step == kCheck ? Check()
                                : Program();
    }
    t_.Print(facts_.status_mode ? "100\nDONE\n" : "");
    t_.Exit(0);
}

void ReferenceUpdate::OpenMessages() {
    if (t_.Next(CallKind::kNewObject).result != 0) {
        t_.Exit(255);
    }
    std::string log_file;
    std::string trace_file;
    Scan(arguments_, "l:t:v", [&](char letter, const std::string& argument) {
        if (letter == 'v') {
            ++t_.verbosity;
        } else {
            (letter == 'l' ? log_file : trace_file) = argument;
        }
    });
    if (t_.verbosity > 5) {
        ShowOptions(log_file, trace_file);
    }
    if (t_.Next(CallKind::kNewObject).result != 0) {
        t_.Exit(255);
    }
}

void ReferenceUpdate::ShowOptions(const std::string& log_file, const std::string& trace_file) {
    t_.Print(t_.program + " INF: == options start ===========\n (l = " + log_file +
             ")\n (t = " + trace_file + ")\n (v = " + std::to_string(t_.verbosity) + ")\n" +
             t_.program + " INF: == options end =============\n");
}

void ReferenceUpdate::ReadOptions() {
    Scan(arguments_, "fis", [&](char letter, const std::string&) {
        force_ = force_ || letter == 'f';
        facts_.info_only = facts_.info_only || letter == 'i';
        facts_.status_mode = facts_.status_mode || letter == 's';
    });
    t_.Say(kInfo, kDriver, Format("additional option (i = %s)", YesNo(facts_.info_only)));
    t_.Say(kInfo, kDriver, Format("additional option (f = %s)", YesNo(force_)));
}

ReferenceUpdate::Step ReferenceUpdate::Init() {
    t_.Say(kInfo, kDriver, "Initializing update system and i2c bus");
    if (!MakeChip()) {
        t_.Say(kError, kDriver, "Instantiating bus and chip");
        return kFailed;
    }
    if (!OpenBus()) {
        t_.Say(kError, kChip, Format("opening connection to chip on %s at 400000", kBusDevice));
        t_.Say(kError, kDriver, Format("Opening special device %s", kBusDevice));
        return kFailed;
    }
    t_.Say(kInfo, kChip, "Cayman chip ready");
    t_.Say(kInfo, kDriver, "Update system initialization complete");
    return kReset;
}

bool ReferenceUpdate::MakeChip() {
    if (t_.Next(CallKind::kNewObject).result != 0) {
        return false;
    }
    const std::pair<const char*, const char*> parts[] = {
        {kChip, "instantiating an I2C bus object"},
        {kChip, "instantiating an LM"},
        {"HcLogical", "creating new LM tx buffer"}};
    for (const auto& [file, text] : parts) {
        if (t_.Next(CallKind::kNewObject).result != 0) {
            t_.Say(kCritical, file, text);
            link_.Die();
        }
    }
    if (t_.Next(CallKind::kMemalign).result != 0) {
        const int error = t_.Errno();
        t_.Say(kCritical, "HcI2cBuffer",
               "could not allocate memory for i2c tx buffer with result " + Quoted(error));
        link_.Die();
    }
    return true;
}

bool ReferenceUpdate::OpenBus() {
    const Call& opened = t_.Next(CallKind::kOpen);
    const int descriptor = static_cast<int>(opened.result);
    if (t_.Data(opened) != kBusDevice) {
        throw Difference{"the first device opened must be the bus"};
    }
    if (descriptor <= 0) {
        t_.Say(kCritical, kBus,
               Format("opening %s with result %s", kBusDevice, Quoted(descriptor).c_str()));
        // Descriptor 0 is said to be a failure, and used all the same.
        return descriptor == 0;
    }
    link_.SetDevice(kBusDevice);
    t_.Say(kInfo, kBus, Format("Opened %s (%d)", kBusDevice, descriptor));
    const auto error = static_cast<int>(t_.Next(CallKind::kSetSpeed, 400000).result);
    if (error != 0) {
        t_.Say(kError, kBus,
               Format("Setting speed to 400000 on %s with result %s", kBusDevice,
                      Quoted(error).c_str()));
        return false;
    }
    t_.Say(kInfo, kBus, Format("Set speed on %s (%d) to 400000", kBusDevice, descriptor));
    return true;
}

ReferenceUpdate::Step ReferenceUpdate::Reset() {
    t_.Say(kInfo, kDriver, "Doing hardware reset of HD module");
    const Call& opened = t_.Next(CallKind::kOpen);
    const std::int64_t line = opened.result;
    if (t_.Data(opened) != kLine) {
        throw Difference{"the device opened must be the reset line"};
    }
    if (line == -1) {
        t_.Say(kError, kDriver, Format("Opening %s", kLine));
        return kFailed;
    }
    for (const bool high : {false, true}) {
        const Call& written = t_.Next(CallKind::kWriteReset, line);
        if (t_.Data(written) != (high ? "1" : "0")) {
            throw Difference{"the reset line must get the other level"};
        }
        if (written.result != 1) {
            t_.Say(kError, kDriver,
                   Format("%s reset line, %s", high ? "Raising" : "Lowering", kLine));
            return kFailed;
        }
        if (high) {
            t_.Say(kInfo, kDriver, "Waiting for firmware reset to complete");
        }
        if (t_.Next(CallKind::kDelay, high ? 3000 : 200).result != 0) {
            t_.Say(kError, kDriver, "Delaying");
            return kFailed;
        }
    }
    link_.ChipRestarted();
    t_.Say(kInfo, kDriver, "Hardware reset of HD module complete");
    return kCheck;
}

ReferenceUpdate::Step ReferenceUpdate::Check() {
    facts_.version_known = ReadVersion();
    facts_.label_known = false;
    Step next = kFailed;
    if (!facts_.version_known) {
        t_.Say(kError, kDriver, "Unable to get installed version");
    } else {
        const std::string shown = "Installed firmware version is \"" + Shown(facts_.version) + "\"";
        t_.Say(kInfo, kDriver, shown + Format(" [%zu]", facts_.version.size()));
        if (facts_.info_only) {
            t_.Say(kPlain, kDriver, shown + "\n");
            next = kDone;
        } else {
            t_.Say(kInfo, kDriver, "Checking HD update versions");
            facts_.label_known = ReadLabel();
            if (!facts_.label_known) {
                t_.Say(kError, kDriver, "Unable to get bin file version");
            } else {
                t_.Say(kInfo, kDriver,
                       "BIN file firmware version is \"" + Shown(facts_.label) +
                           Format("\" [%zu]", facts_.label.size()));
                const bool equal = facts_.label == facts_.version;
                if (equal && !facts_.status_mode) {
                    t_.Say(kPlain, kDriver, "Installed version matches BIN file label");
                }
                next = equal ? kDone : kProgram;
            }
        }
    }
    // Force is good for one pass, whatever was found.
    if (force_) {
        force_ = false;
        next = kProgram;
    }
    return next;
}

bool ReferenceUpdate::ReadVersion() {
    if (!link_.Ask(0x80, 0x01, 5000, "confirming")) {
        return false;
    }
    const auto& reply = link_.Reply();
    const auto size = static_cast<std::size_t>(link_.ReplySize());
    facts_.version = Trimmed(std::string(reply.begin() + 1, reply.begin() + 1 + size));
    return true;
}

std::string ReferenceUpdate::FileError(const char* what) const {
    return std::string(what) + " with result " + Quoted(t_.Errno());
}

bool ReferenceUpdate::ReadLabel() {
    if (t_.Next(CallKind::kFopen).result != 0) {
        t_.Say(kError, kDriver, "opening bin file " + file_);
        return false;
    }
    if (t_.Next(CallKind::kFseek, kLabelOffset).result != 0) {
        t_.Say(kError, kDriver, FileError("seeking bin file label"));
        return false;
    }
    const Call& read = t_.Next(CallKind::kFread, kLabelSize);
    if (read.result == 0) {
        t_.Say(kError, kDriver, FileError("reading bin file label"));
        return false;
    }
    std::string field(t_.Data(read));
    field.resize(kLabelSize, '\0');
    facts_.label = Trimmed(field);
    return true;
}

}  // namespace fault
