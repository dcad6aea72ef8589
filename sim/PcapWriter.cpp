// SPDX-License-Identifier: Apache-2.0
#include "sim/PcapWriter.h"

#include <pcap/pcap.h>

#include "common/Failure.h"

namespace sim {

namespace {

// LINKTYPE_I2C_LINUX; libpcap names it after its first user.
constexpr int LINK_TYPE = DLT_IPMB_LINUX;
constexpr int SNAP_LENGTH = 65535;
constexpr std::uint8_t BUS_NUMBER = 1;
constexpr std::uint8_t READ = 1;  // in the frame's flags and in the address byte

}  // namespace

void PcapWriter::CloseCapture::operator()(pcap* capture) const {
    pcap_close(capture);
}

PcapWriter::PcapWriter(const std::string& path, Duration epoch)
    : epoch_(epoch),
      file_(path, "the capture"),
      capture_(
          pcap_open_dead_with_tstamp_precision(LINK_TYPE, SNAP_LENGTH, PCAP_TSTAMP_PRECISION_NANO)),
      dumper_(pcap_dump_fopen(capture_.get(), file_.Handle())) {
    if (dumper_ == nullptr) {
        throw common::Failure("the capture " + path + ": " + pcap_geterr(capture_.get()));
    }
    file_.NoteError();
}

void PcapWriter::OnTransfer(const Transfer& transfer) {
    const std::uint8_t flag = transfer.direction == Direction::Read ? READ : 0;
    frame_.assign(
        {BUS_NUMBER, 0, 0, 0, flag, static_cast<std::uint8_t>(transfer.address << 1 | flag)});
    frame_.insert(frame_.end(), transfer.bytes, transfer.bytes + transfer.moved);

    const Duration time = epoch_ + transfer.start;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    pcap_pkthdr header{};
    header.ts.tv_sec = seconds.count();
    // With nanosecond precision, that is what the field holds.
    header.ts.tv_usec = (time - seconds).count();
    header.caplen = static_cast<bpf_u_int32>(frame_.size());
    header.len = header.caplen;
    pcap_dump(reinterpret_cast<u_char*>(dumper_), &header, frame_.data());
    file_.NoteError();
}

void PcapWriter::Close() {
    file_.Close();
}

}  // namespace sim
