// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_STREAM_STREAMPARSER_H
#define BBPFLASH_TOOLS_STREAM_STREAMPARSER_H

#include <cstddef>
#include <functional>
#include <string>

#include "tools/stream/LineParser.h"
#include "tools/stream/bbpflash_stream.h"

namespace tools {

// The reader behind bbpflash_stream.h, whose terms are its terms.
class StreamParser {
  public:
    using Handler = std::function<void(const bbpflash_event&)>;

    StreamParser(bbpflash_mode mode, Handler handler);

    void Feed(const char* bytes, std::size_t size);

    bbpflash_verdict Finish(int exit_status);

    unsigned Problems() const { return problems_; }

  private:
    void EndLine();
    void TakeLine(const Line& line);
    void TakePercent(int value);
    void TakeDownloadPercent(int value);
    void TakeMessage(const Line& line);
    bool MayBeginPass() const;
    void BeginPass();
    void Complain(bbpflash_problem problem);
    void CheckEnd(int exit_status);

    const bbpflash_mode mode_;
    const Handler handler_;
    LineParser lines_;
    std::string text_;  // of the line that is not at its end yet
    bool is_pending_ = false;
    bbpflash_phase phase_ = BBPFLASH_PHASE_RESET;
    bbpflash_line last_ = BBPFLASH_LINE_UNKNOWN;
    int pass_ = 0;
    int percent_ = 0;
    bool is_counting_ = false;  // percentages of this pass have begun
    bool is_refused_ = false;
    bool is_hint_ = false;  // the usage hint was read
    unsigned line_problems_ = 0;
    unsigned problems_ = 0;
};

}  // namespace tools

#endif
