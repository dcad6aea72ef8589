// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_FAULT_REFERENCE_H
#define BBPFLASH_TESTS_FAULT_REFERENCE_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tests/fault/Transcript.h"

// What an update must do, told by the answers that its surroundings give: a second, short telling
// of the protocol that shares nothing with the program. It follows a transcript call by call.
namespace fault {

using Bytes = std::vector<std::uint8_t>;

// What a reader of the transcript knows at its end.
struct Facts {
    bool info_only = false;
    bool status_mode = false;
    bool version_known = false;  // the last query of the version was answered soundly
    bool label_known = false;
    std::string version;
    std::string label;
    int passes = 0;           // programming passes that the chip has completed
    int whole_downloads = 0;  // downloads of which every segment was acknowledged
    Bytes image;              // the bytes of the last download, as the file gave them
};

// The messages between program and chip, and the transfers that carry them.
class ReferenceLink {
  public:
    explicit ReferenceLink(Transcript& transcript) : t_(transcript) {}

    void SetDevice(const std::string& device) { device_ = device; }
    // The count starts again with the chip.
    void ChipRestarted() { count_ = 0; }

    // A command of one function byte. The reply's payload in 100 bytes, zeros behind it, and its
    // size; false after the words of the step that failed.
    bool Ask(std::uint8_t opcode, std::uint8_t function, int wait, const char* refusal);
    const std::array<std::uint8_t, 100>& Reply() const { return reply_; }
    int ReplySize() const { return reply_size_; }

    // A message by pieces.
    void Start(std::uint8_t opcode, int size, int segments, int segment);
    void Add(std::string_view bytes);
    int Room() const { return 2047 - size_; }
    // Checksum, transfer, wait, reply; `refusal` is said when the reply is missing or unsound.
    bool Exchange(int wait, const char* refusal);

    // The process ends for lack of something: the protocol's last line.
    [[noreturn]] void Die();

  private:
    bool Send();
    bool Receive();
    bool Lock();
    bool Unlock();
    void ReportTransfer(const char* what, std::int64_t error);
    void ShowChunk(bool stop, std::string_view bytes);
    void ShowRequest();
    bool Accepts(std::string_view read);
    bool AcceptsStatus(std::uint8_t status);

    Transcript& t_;
    std::string device_;
    std::uint8_t count_ = 0;
    std::array<std::uint8_t, 2048> message_{};
    int size_ = 0;
    std::array<std::uint8_t, 100> reply_{};
    int reply_size_ = 0;
};

class ReferenceUpdate {
  public:
    ReferenceUpdate(Transcript& transcript, std::vector<std::string> arguments);

    // Follows the transcript to the run's end. Throws RunEnds or a Difference.
    [[noreturn]] void Run();
    const Facts& Known() const { return facts_; }

  private:
    // The next thing to do, as the program counts it.
    enum class Step { Init, Reset, Check, Program, Done, Failed };

    void ReadOptions();
    void ShowOptions(const std::string& log_file, const std::string& trace_file);
    void OpenMessages();
    Step Init();
    Step Reset();
    Step Check();
    Step Program();
    bool MakeChip();
    bool OpenBus();
    bool ReadVersion();
    bool ReadLabel();
    bool ProgramImage();
    bool OpenImage();
    bool Download();
    bool SendSegment(bool* at_end);
    void ShowPercentage(std::int64_t sent);
    void WaitForChip();
    int Poll();
    void TellStatus(int status);
    std::string FileError(const char* what) const;

    Transcript& t_;
    std::vector<std::string> arguments_;
    ReferenceLink link_;
    Facts facts_;
    bool force_ = false;
    std::string file_;

    std::int64_t file_size_ = 0;
    std::int64_t file_left_ = 0;
    int segment_ = 0;
    int last_percentage_ = 0;
};

}  // namespace fault

#endif
