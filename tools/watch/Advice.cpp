// SPDX-License-Identifier: Apache-2.0
#include "tools/watch/Advice.h"

#include <algorithm>
#include <stdexcept>

#include "common/Text.h"

namespace tools {

namespace {

Advice Make(const std::string& code, const std::vector<std::string>& messages,
            const std::string& meaning, const std::string& next) {
    Advice advice;
    advice.code = code;
    advice.messages = messages;
    advice.meaning = meaning;
    advice.next = next;
    return advice;
}

ContentAdvice MakeContent(Content content, const std::string& code, const std::string& meaning,
                          const std::string& next) {
    ContentAdvice advice;
    advice.content = content;
    advice.code = code;
    advice.meaning = meaning;
    advice.next = next;
    return advice;
}

// Failures that the updater tells by its first error: on its way to the chip.
std::vector<Advice> ToldOfTheWay() {
    return {
        Make("no-image", {"Please try \"use bbpflash\""},
             "The updater was started without an image.", "Name the image: bbpwatch image.bin."),
        Make("bus",
             {"opening /dev/i2c1 with result", "opening connection to chip",
              "Opening special device"},
             "There is no bus device, or this user may not open it.",
             "Run bbpwatch --check, and do what it says about the bus."),
        Make("bus-speed", {"Setting speed to"}, "The bus refuses 400 kHz.",
             "Check the bus driver of the head unit."),
        Make("reset-line", {"Opening /dev/gpio/HD_DAB2Reset", "Lowering reset line"},
             "The reset line is not there, or this user may not write it.",
             "Run bbpwatch --check, and do what it says about the reset line."),
        Make("reset-held", {"Raising reset line"}, "The chip may still be held in reset.",
             "Write 1 to /dev/gpio/HD_DAB2Reset. Then run the update again."),
        Make("delay", {"Delaying"}, "A signal cut a wait short; the chip may be held in reset.",
             "Run the update again."),
        Make("transfer", {"DCMD_I2C_"},
             "A transfer on the bus failed; the end of the message says how.",
             "Check the cable and the power of the unit. Then run the update again."),
        Make("reply",
             {"receiving data", "retrieved message checksum error", "Write header",
              "validating received buffer"},
             "The answer of the chip was damaged, or it belongs to another request.",
             "Make sure that no other program uses the bus. Then run the update again."),
        Make("request",
             {"Read header reception status error", "LM header missing",
              "LM checksum does not match", "LM overflow", "LM unknown opcode"},
             "The chip did not take a request.",
             "Make sure that no other program uses the bus. Then run the update again."),
        Make("version", {"Unable to get installed version"}, "The chip did not tell its version.",
             "Run bbpwatch --force image.bin: it programs without the version."),
    };
}

// Likewise, with the image.
std::vector<Advice> ToldOfTheImage() {
    return {
        Make("image-read",
             {"opening bin file", "seeking bin file label", "reading bin file label",
              "opening binary file", "seeking end of file", "getting file size",
              "seeking beginning of file", "reading from file"},
             "The image is missing, cannot be read, or is too short for a label.",
             "Look at it with bbpimage info image.bin."),
        Make("unprotect", {"unprotecting NVM (flash)"}, "The chip refused to open its flash.",
             "Run the update again."),
        Make("too-large", {"would exceed maximum of 2^16"},
             "The image is larger than a download can be.",
             "This is no image for this chip. Get the right one."),
        Make("filling", {"filling"},
             "The image could not be read to its end, or its last segment is exactly full.",
             "Look at it with bbpimage info image.bin: it says how to pad the image."),
        Make("download", {"sending", "confirming BIN write"}, "The download broke off.",
             "Run the update again."),
        Make("tries", {"maximum number of programming tries exceeded"},
             "The image was programmed three times, but the chip then reports another version than "
             "the label.",
             "The unit works with the new firmware. Correct the label: bbpimage label image.bin "
             "TEXT, with the version that bbpflash -i shows."),
        Make("refused-crc", {"image verification failed, CRC error"},
             "The chip refuses the image, or could not write it: its checksum is wrong.",
             "Get the image again, or another one, and update with that."),
        Make("refused-security", {"flash image and NVM security status mismatch"},
             "The chip refuses the image: it is of the other security kind.",
             "Get the image of the right security kind, and update with that."),
        Make("refused-tuner",
             {"using single tuner image on dual tuner flash",
              "using dual tuner image on single tuner flash"},
             "The chip refuses the image: it is for another number of tuners.",
             "Get the image for this hardware, and update with that."),
    };
}

// Failures that the updater does not tell.
std::vector<Advice> Untold() {
    return {
        Make("aborted", {},
             "The updater ended abnormally. The label of the image is all blanks, or the version "
             "of the chip is empty.",
             "Look at the image with bbpimage info image.bin. If its label is a text, this updater "
             "cannot program that chip."),
        Make("signal", {}, "A signal ended the updater.", "Run the update again."),
        Make("request-to-end", {}, "Somebody asked for the end of the update.",
             "Run the update again."),
        Make("silent", {}, "Nothing went on for a long time, and somebody ended the update.",
             "Run the update again."),
        Make("contradiction", {}, "What the updater wrote contradicts itself or its exit status.",
             "Believe neither. Wait 2 minutes, then ask the chip with bbpflash -i."),
        Make("nothing-said", {}, "The command wrote nothing that an updater writes.",
             "Check the command. It must run bbpflash and pass on what that writes."),
        Make("unknown", {}, "The updater failed for a reason that is not listed here.",
             "Read the log. Then run the update again."),
    };
}

std::vector<Advice> Together() {
    std::vector<Advice> all;
    for (const std::vector<Advice>& some : {ToldOfTheWay(), ToldOfTheImage(), Untold()}) {
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

}  // namespace

const std::vector<ContentAdvice>& AllContents() {
    static const std::vector<ContentAdvice> ALL = {
        MakeContent(Content::Old, "old", "the old firmware, untouched", ""),
        MakeContent(Content::New, "new", "the new firmware", ""),
        MakeContent(Content::Neither, "neither",
                    "neither the old firmware nor the new one: leave the power on",
                    "Leave the power on and wait 2 minutes. Then ask with bbpflash -i; if it does "
                    "not show the new version, run bbpwatch --force image.bin."),
        MakeContent(Content::Unknown, "unknown",
                    "unknown; the chip may still be writing: leave the power on",
                    "Leave the power on and wait 2 minutes. Then ask with bbpflash -i; if it does "
                    "not show the new version, run the update again."),
    };
    return ALL;
}

const ContentAdvice& AdviceFor(Content content) {
    for (const ContentAdvice& advice : AllContents()) {
        if (advice.content == content) {
            return advice;
        }
    }
    throw std::logic_error("a content without advice");
}

const std::vector<Advice>& AllAdvice() {
    static const std::vector<Advice> ALL = Together();
    return ALL;
}

const Advice& AdviceFor(std::string_view code) {
    for (const Advice& advice : AllAdvice()) {
        if (advice.code == code) {
            return advice;
        }
    }
    throw std::logic_error("a reason without advice");
}

const Advice& AdviceForMessage(std::string_view message) {
    for (const Advice& advice : AllAdvice()) {
        const bool is_told =
            std::any_of(advice.messages.begin(), advice.messages.end(), [&](const auto& beginning) {
                // Only this one begins with a number.
                return common::StartsWith(message, beginning) ||
                       (advice.code == "too-large" &&
                        message.find(beginning) != std::string_view::npos);
            });
        if (is_told) {
            return advice;
        }
    }
    return AdviceFor("unknown");
}

}  // namespace tools
