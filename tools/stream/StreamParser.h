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

    unsigned Problems() const { return problems; }

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

    const bbpflash_mode mode;
    const Handler handler;
    LineParser lines;
    std::string text;  // of the line that is not at its end yet
    bool is_pending = false;
    bbpflash_phase phase = BBPFLASH_PHASE_RESET;
    bbpflash_line last = BBPFLASH_LINE_UNKNOWN;
    int pass = 0;
    int percent = 0;
    bool is_counting = false;  // percentages of this pass have begun
    bool is_refused = false;
    bool is_hint = false;  // the usage hint was read
    unsigned line_problems = 0;
    unsigned problems = 0;
};

}  // namespace tools

#endif
