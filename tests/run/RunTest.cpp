// SPDX-License-Identifier: Apache-2.0
#include "tests/run/RunTest.h"

#include <cstdio>
#include <regex>
#include <sstream>

#include "sim/SampleImage.h"

namespace run {

namespace {

std::string WithoutLineNumber(const std::string& line) {
    static const std::regex POSITION("( @[A-Za-z0-9_]+)\\.cpp:[0-9]+$");
    return std::regex_replace(line, POSITION, "$1");
}

std::string Request(std::string_view bytes) {
    char text[16];
    std::snprintf(text, sizeof text, "write %02X %02X", static_cast<unsigned char>(bytes[6]),
                  static_cast<unsigned char>(bytes[12]));
    return text;
}

std::string Traced(const virt::CallLog& log, const virt::Call& call) {
    const std::string argument = std::to_string(call.argument);
    const std::string data(log.Data(call));
    switch (call.kind) {
        case CallKind::Open:
            return "open " + data;
        case CallKind::SetSpeed:
            return "speed " + argument;
        case CallKind::WriteReset:
            return "line " + data;
        case CallKind::Send:
            return Request(data);
        case CallKind::Receive:
            return "read";
        case CallKind::Delay:
            return "delay " + argument;
        case CallKind::Usleep:
            return "usleep " + argument;
        case CallKind::Lock:
            return "lock";
        case CallKind::Unlock:
            return "unlock";
        case CallKind::Memalign:
        case CallKind::NewObject:
        case CallKind::NewStorage:
        case CallKind::Fopen:
        case CallKind::Fseek:
        case CallKind::Ftell:
        case CallKind::Fread:
        case CallKind::Output:
        case CallKind::Log:
            break;
    }
    return "";
}

}  // namespace

Strike Error(int error) {
    Strike strike;
    strike.how = Strike::How::Fail;
    strike.error = error;
    return strike;
}

Strike Value(long value) {
    Strike strike;
    strike.how = Strike::How::Value;
    strike.value = value;
    return strike;
}

Strike Strikes::OnCall(const virt::Call& call, int /*index*/, int nth) {
    const auto one = strikes_.find({call.kind, nth});
    if (one != strikes_.end()) {
        return one->second;
    }
    const auto all = from_.find(call.kind);
    return all != from_.end() && nth >= all->second.first ? all->second.second : Strike();
}

RunTest::RunTest() {
    chip.burn.erase = std::chrono::milliseconds(600);
    chip.burn.program = std::chrono::milliseconds(600);
    chip.burn.verify = std::chrono::milliseconds(600);
}

virt::VirtualHeadUnit& RunTest::Unit() {
    if (!unit_) {
        unit_ = std::make_unique<virt::VirtualHeadUnit>(chip, faults);
        unit_->files.Put("image.bin", {SampleImage()});
        unit_->SetHook(&strikes);
    }
    return *unit_;
}

const virt::RunResult& RunTest::Run(const std::string& arguments) {
    Strings words = {"bbpflash"};
    std::istringstream stream(arguments);
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    result_ = Unit().Run(words);
    return result_;
}

std::string RunTest::Ending() const {
    const std::string name = NameOf(result_.outcome);
    return result_.outcome == Outcome::Exit ? name + " " + std::to_string(result_.status) : name;
}

Strings RunTest::Output() const {
    Strings lines;
    std::istringstream stream(result_.out);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(WithoutLineNumber(line));
    }
    return lines;
}

Strings RunTest::Log() const {
    Strings lines;
    for (const virt::Call& call : unit_->Log().Calls()) {
        if (call.kind == CallKind::Log) {
            lines.push_back(WithoutLineNumber(std::string(unit_->Log().Data(call))));
        }
    }
    return lines;
}

Strings RunTest::Trace() const {
    Strings trace;
    for (const virt::Call& call : unit_->Log().Calls()) {
        const std::string traced = Traced(unit_->Log(), call);
        if (!traced.empty()) {
            trace.push_back(traced);
        }
    }
    return trace;
}

bool RunTest::HoldsImage() const {
    return unit_->Unit().Chip().Flash() == *SampleImage().bytes;
}

const virt::FileContent& SampleImage() {
    static const virt::FileContent IMAGE = virt::FileContent::Of(sim::MakeSampleImage("2.0.0"));
    return IMAGE;
}

Strings ResetAndEqualVersions() {
    return {"bbpflash INF: Doing hardware reset of HD module @bbpflash",
            "bbpflash INF: Waiting for firmware reset to complete @bbpflash",
            "bbpflash INF: Hardware reset of HD module complete @bbpflash",
            "bbpflash INF: Installed firmware version is \"2.0.0\" [5] @bbpflash",
            "bbpflash INF: Checking HD update versions @bbpflash",
            "bbpflash INF: BIN file firmware version is \"2.0.0\" [5] @bbpflash",
            "bbpflash MSG: Installed version matches BIN file label @bbpflash"};
}

Strings operator+(Strings left, const Strings& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Strings Repeat(const Strings& strings, int times) {
    Strings repeated;
    for (int i = 0; i < times; ++i) {
        repeated.insert(repeated.end(), strings.begin(), strings.end());
    }
    return repeated;
}

Strings Numbers(int first, int last) {
    Strings numbers;
    for (int i = first; i <= last; ++i) {
        numbers.push_back(std::to_string(i));
    }
    return numbers;
}

}  // namespace run
