// SPDX-License-Identifier: Apache-2.0
#include <utility>

#include "tests/fault/Format.h"
#include "tests/fault/Reference.h"

namespace fault {

namespace {

constexpr const char* DRIVER = "bbpflash";
constexpr const char* CHIP = "HdChip";
constexpr const char* BUS = "I2cBus";
constexpr const char* BUS_DEVICE = "/dev/i2c1";
constexpr const char* LINE = "/dev/gpio/HD_DAB2Reset";

constexpr std::int64_t LABEL_OFFSET = 925630;
constexpr std::size_t LABEL_SIZE = 37;
constexpr int MOST_PASSES = 3;

// The text between the blanks around it, without its last two characters.
std::string Trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) {
        throw RunEnds{Outcome::OutOfRange};
    }
    const std::size_t last = text.find_last_not_of(' ');
    // One character alone has none to lose: the length wraps, and everything remains.
    return last == first ? text.substr(first) : text.substr(first, last - first - 1);
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
        t_.Say(Level::Error, DRIVER, "Please try \"use bbpflash\" to get usage details\n");
        t_.Exit(1);
    }
    file_ = arguments_.back();
    if (!facts_.status_mode) {
        t_.Say(Level::Plain, DRIVER, "HD tuner firmware updater");
    }
    int passes = 0;
    for (Step step = Step::Init; step != Step::Done;) {
        if (step == Step::Failed) {
            t_.Say(Level::Critical, DRIVER, "Programming terminated");
            link_.Die();
        }
        if (step == Step::Program && ++passes > MOST_PASSES) {
            t_.Say(Level::Critical, DRIVER, "maximum number of programming tries exceeded");
            link_.Die();
        }
        step = step == Step::Init    ? Init()
               : step == Step::Reset ? Reset()
               : step == Step::Check ? Check()
                                     : Program();
    }
    t_.Print(facts_.status_mode ? "100\nDONE\n" : "");
    t_.Exit(0);
}

ReferenceUpdate::Step ReferenceUpdate::Init() {
    t_.Say(Level::Info, DRIVER, "Initializing update system and i2c bus");
    if (!MakeChip()) {
        t_.Say(Level::Error, DRIVER, "Instantiating bus and chip");
        return Step::Failed;
    }
    if (!OpenBus()) {
        t_.Say(Level::Error, CHIP,
               Format("opening connection to chip on %s at 400000", BUS_DEVICE));
        t_.Say(Level::Error, DRIVER, Format("Opening special device %s", BUS_DEVICE));
        return Step::Failed;
    }
    t_.Say(Level::Info, CHIP, "Cayman chip ready");
    t_.Say(Level::Info, DRIVER, "Update system initialization complete");
    return Step::Reset;
}

bool ReferenceUpdate::MakeChip() {
    if (t_.Next(CallKind::NewObject).result != 0) {
        return false;
    }
    const std::pair<const char*, const char*> parts[] = {
        {CHIP, "instantiating an I2C bus object"},
        {CHIP, "instantiating an LM"},
        {"HcLogical", "creating new LM tx buffer"}};
    for (const auto& [file, text] : parts) {
        if (t_.Next(CallKind::NewObject).result != 0) {
            t_.Say(Level::Critical, file, text);
            link_.Die();
        }
    }
    if (t_.Next(CallKind::Memalign).result != 0) {
        const int error = t_.Errno();
        t_.Say(Level::Critical, "HcI2cBuffer",
               "could not allocate memory for i2c tx buffer with result " + Quoted(error));
        link_.Die();
    }
    return true;
}

bool ReferenceUpdate::OpenBus() {
    const Call& opened = t_.Next(CallKind::Open);
    const int descriptor = static_cast<int>(opened.result);
    if (t_.Data(opened) != BUS_DEVICE) {
        throw Difference{"the first device opened must be the bus"};
    }
    if (descriptor <= 0) {
        t_.Say(Level::Critical, BUS,
               Format("opening %s with result %s", BUS_DEVICE, Quoted(descriptor).c_str()));
        // Descriptor 0 is said to be a failure, and used all the same.
        return descriptor == 0;
    }
    link_.SetDevice(BUS_DEVICE);
    t_.Say(Level::Info, BUS, Format("Opened %s (%d)", BUS_DEVICE, descriptor));
    const auto error = static_cast<int>(t_.Next(CallKind::SetSpeed, 400000).result);
    if (error != 0) {
        t_.Say(Level::Error, BUS,
               Format("Setting speed to 400000 on %s with result %s", BUS_DEVICE,
                      Quoted(error).c_str()));
        return false;
    }
    t_.Say(Level::Info, BUS, Format("Set speed on %s (%d) to 400000", BUS_DEVICE, descriptor));
    return true;
}

ReferenceUpdate::Step ReferenceUpdate::Reset() {
    t_.Say(Level::Info, DRIVER, "Doing hardware reset of HD module");
    const Call& opened = t_.Next(CallKind::Open);
    const std::int64_t line = opened.result;
    if (t_.Data(opened) != LINE) {
        throw Difference{"the device opened must be the reset line"};
    }
    if (line == -1) {
        t_.Say(Level::Error, DRIVER, Format("Opening %s", LINE));
        return Step::Failed;
    }
    for (const bool high : {false, true}) {
        const Call& written = t_.Next(CallKind::WriteReset, line);
        if (t_.Data(written) != (high ? "1" : "0")) {
            throw Difference{"the reset line must get the other level"};
        }
        if (written.result != 1) {
            t_.Say(Level::Error, DRIVER,
                   Format("%s reset line, %s", high ? "Raising" : "Lowering", LINE));
            return Step::Failed;
        }
        if (high) {
            t_.Say(Level::Info, DRIVER, "Waiting for firmware reset to complete");
        }
        if (t_.Next(CallKind::Delay, high ? 3000 : 200).result != 0) {
            t_.Say(Level::Error, DRIVER, "Delaying");
            return Step::Failed;
        }
    }
    link_.ChipRestarted();
    t_.Say(Level::Info, DRIVER, "Hardware reset of HD module complete");
    return Step::Check;
}

ReferenceUpdate::Step ReferenceUpdate::Check() {
    facts_.version_known = ReadVersion();
    facts_.label_known = false;
    Step next = Step::Failed;
    if (!facts_.version_known) {
        t_.Say(Level::Error, DRIVER, "Unable to get installed version");
    } else {
        const std::string shown = "Installed firmware version is \"" + Shown(facts_.version) + "\"";
        t_.Say(Level::Info, DRIVER, shown + Format(" [%zu]", facts_.version.size()));
        if (facts_.info_only) {
            t_.Say(Level::Plain, DRIVER, shown + "\n");
            next = Step::Done;
        } else {
            t_.Say(Level::Info, DRIVER, "Checking HD update versions");
            facts_.label_known = ReadLabel();
            if (!facts_.label_known) {
                t_.Say(Level::Error, DRIVER, "Unable to get bin file version");
            } else {
                t_.Say(Level::Info, DRIVER,
                       "BIN file firmware version is \"" + Shown(facts_.label) +
                           Format("\" [%zu]", facts_.label.size()));
                const bool equal = facts_.label == facts_.version;
                if (equal && !facts_.status_mode) {
                    t_.Say(Level::Plain, DRIVER, "Installed version matches BIN file label");
                }
                next = equal ? Step::Done : Step::Program;
            }
        }
    }
    // Force is good for one pass, whatever was found.
    if (force_) {
        force_ = false;
        next = Step::Program;
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
    if (t_.Next(CallKind::Fopen).result != 0) {
        t_.Say(Level::Error, DRIVER, "opening bin file " + file_);
        return false;
    }
    if (t_.Next(CallKind::Fseek, LABEL_OFFSET).result != 0) {
        t_.Say(Level::Error, DRIVER, FileError("seeking bin file label"));
        return false;
    }
    const Call& read = t_.Next(CallKind::Fread, LABEL_SIZE);
    if (read.result == 0) {
        t_.Say(Level::Error, DRIVER, FileError("reading bin file label"));
        return false;
    }
    std::string field(t_.Data(read));
    field.resize(LABEL_SIZE, '\0');
    facts_.label = Trimmed(field);
    return true;
}

}  // namespace fault
