// SPDX-License-Identifier: Apache-2.0
// Records updates of the simulated head unit, in virtual time: the same captures in every run.
//
// usage: wire_capture FOLDER
//
//   update.pcap, update.vcd   a complete update; the waveform holds the first four transfers
//   segment.pcap, segment.vcd an update of a small image, whole in both
//   faults.pcap, faults.vcd   an update in which replies to status queries go wrong in turn; the
//                             waveform holds the status queries' end
//   *.txt                     each transfer as a line: W or R, what became of it, the bytes that
//                             went over the bus
#include <fstream>
#include <iomanip>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/PcapWriter.h"
#include "sim/SampleImage.h"
#include "sim/VcdWriter.h"
#include "tests/support/VirtualHeadUnit.h"

namespace {

using sim::Action;
using sim::Event;
using sim::Fault;

class TransferLister : public sim::Observer {
  public:
    explicit TransferLister(const std::string& path) : file_(path) {}

    void OnTransfer(const sim::Transfer& transfer) override {
        file_ << (transfer.direction == sim::Direction::Read ? 'R' : 'W') << ' '
              << (transfer.faulty ? "faulty" : "sound") << ' ' << std::hex << std::setfill('0');
        for (std::size_t i = 0; i < transfer.moved; ++i) {
            file_ << std::setw(2) << static_cast<unsigned>(transfer.bytes[i]);
        }
        file_ << std::dec << '\n';
    }

    void OnReset(bool, sim::Duration) override {}

    bool Close() {
        file_.close();
        return static_cast<bool>(file_);
    }

  private:
    std::ofstream file_;
};

struct Recording {
    std::string name;
    std::size_t image_size;
    sim::VcdWriter::Window window;
    sim::BurnTimes burn;
    std::vector<Fault> faults;
    int expected_status;
};

// One fault for each way in which a reply can be wrong. The updater goes on asking for the status
// whatever comes, so that one update shows them all.
std::vector<Fault> FaultyReplies() {
    std::vector<Fault> kinds = {
        {Event::Poll, 0, Action::WrongChecksum},    {Event::Poll, 0, Action::StatusByte, 0x0C},
        {Event::Poll, 0, Action::StatusByte, 0x03}, {Event::Poll, 0, Action::CountByte, 12},
        {Event::Poll, 0, Action::CountByte, 80},    {Event::Poll, 0, Action::SetByte, 0x5A, 1},
        {Event::Poll, 0, Action::SetByte, 0x77, 3}, {Event::Poll, 0, Action::OtherReply},
        {Event::Poll, 0, Action::SetByte, 9, 11},   {Event::Poll, 0, Action::ProgramStatus, 7},
    };
    // Each bit of the reception status that says what went wrong, and none.
    for (const unsigned status : {0x04U, 0x08U, 0x10U, 0x20U, 0x40U, 0x80U, 0x00U}) {
        kinds.push_back({Event::Poll, 0, Action::StatusByte, status});
    }
    std::vector<Fault> faults;
    unsigned poll = 2;
    for (Fault fault : kinds) {
        fault.nth = poll;
        faults.push_back(fault);
        poll += 2;
    }
    return faults;
}

void Record(const Recording& recording, const std::string& folder) {
    const std::string path = folder + "/" + recording.name;
    sim::ChipConfig chip;
    chip.burn = recording.burn;
    virt::VirtualHeadUnit unit(chip, recording.faults);
    sim::PcapWriter pcap(path + ".pcap");
    sim::VcdWriter vcd(path + ".vcd", sim::BUS_HZ, recording.window);
    TransferLister lister(path + ".txt");
    for (sim::Observer* observer : std::initializer_list<sim::Observer*>{&pcap, &vcd, &lister}) {
        unit.Unit().AddObserver(observer);
    }
    const std::vector<std::uint8_t> image = sim::MakeSampleImage("2.0.0", recording.image_size);
    unit.files.Put("image.bin", {virt::FileContent::Of(image)});

    const virt::RunResult result = unit.Run({"bbpflash", "-fs", "image.bin"});
    pcap.Close();
    vcd.Close();
    if (result.outcome != virt::Outcome::Exit || result.status != recording.expected_status ||
        !lister.Close()) {
        throw std::runtime_error(recording.name + " did not go as it should:\n" + result.out);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: wire_capture FOLDER\n";
        return 2;
    }
    // Long enough for two replies of each kind.
    const sim::BurnTimes short_burn = {std::chrono::seconds(5), std::chrono::seconds(5),
                                       std::chrono::seconds(5)};
    // An image too short for a label is downloaded with -f, and then found to have none.
    const std::vector<Recording> recordings = {
        {"update", sim::SAMPLE_IMAGE_SIZE, {1, 4}, {}, {}, 0},
        {"segment", 3000, {1, 20}, short_burn, {}, 1},
        {"faults", 3000, {9, 90}, short_burn, FaultyReplies(), 1},
    };
    try {
        for (const Recording& recording : recordings) {
            Record(recording, argv[1]);
        }
    } catch (const std::exception& error) {
        std::cerr << "wire_capture: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
