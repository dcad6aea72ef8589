// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_STREAM_LINEPARSER_H
#define BBPFLASH_TOOLS_STREAM_LINEPARSER_H

#include <cstddef>
#include <string_view>

#include "tools/stream/bbpflash_stream.h"

namespace tools {

constexpr bool StartsWith(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

// A line taken for itself. The views look into the text that was parsed.
struct Line {
    bbpflash_line kind = BBPFLASH_LINE_UNKNOWN;
    bbpflash_level level = BBPFLASH_LEVEL_NONE;
    int number = 0;            // of a percentage, limited to what an int holds
    std::string_view message;  // behind the level, with its source position
};

// Sorts the lines of a stream by their kind: most by themselves, those of a text that was broken by
// the line before them.
class LineParser {
  public:
    // Takes the next line, without its end.
    Line Parse(std::string_view text);

  private:
    // What the next line may be a part of: the settings; a message that ends in its source
    // position; the installed version's message in its quotes and behind them; the message that
    // names the image.
    enum class Open { Nothing, Options, Position, Version, AfterVersion, Sending };

    // Whether the open message goes on with this line. Closes it where it ends.
    bool Continues(std::string_view text);

    // What is open after a whole line that is a message.
    Open OpenedBy(const Line& line) const;

    Open open_ = Open::Nothing;
    std::size_t open_size_ = 0;  // bytes of the open message so far, line breaks included
};

}  // namespace tools

#endif
