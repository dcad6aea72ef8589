// SPDX-License-Identifier: Apache-2.0
// Any bytes as the updater's output: the reader stays sound, gives the same answer however they
// are cut, and calls success only what ends in its two last lines.
#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "tools/stream/bbpflash_stream.h"

namespace {

struct Answer {
    std::vector<unsigned> events;
    bbpflash_verdict verdict;
    unsigned problems;

    bool operator==(const Answer& other) const {
        return events == other.events && verdict == other.verdict && problems == other.problems;
    }
};

void Note(const bbpflash_event* event, void* context) {
    if (event->size > BBPFLASH_LONGEST_LINE || event->pass > 4 || event->percent > 100) {
        std::abort();
    }
    static_cast<std::vector<unsigned>*>(context)->push_back(
        static_cast<unsigned>(event->line) << 16 | event->problems);
}

// The stream in pieces of `piece` bytes.
Answer Read(const std::string& bytes, bbpflash_mode mode, int status, std::size_t piece) {
    Answer answer;
    bbpflash_stream* const stream = bbpflash_stream_create(mode, Note, &answer.events);
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        bbpflash_stream_feed(stream, bytes.data() + at, std::min(piece, bytes.size() - at));
    }
    answer.verdict = bbpflash_stream_finish(stream, status);
    answer.problems = bbpflash_stream_problems(stream);
    bbpflash_stream_destroy(stream);
    return answer;
}

bool EndsInSuccess(const std::string& bytes) {
    const std::string end = "100\nDONE\n";
    return bytes.size() >= end.size() &&
           bytes.compare(bytes.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const bbpflash_mode mode = static_cast<bbpflash_mode>(data[0] % 3);
    const int status = data[0] % 8 == 7 ? BBPFLASH_STATUS_UNKNOWN : data[0] % 8 / 3;
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    const Answer answer = Read(bytes, mode, status, bytes.size() + 1);
    if (!(answer == Read(bytes, mode, status, 1)) || !(answer == Read(bytes, mode, status, 7))) {
        std::abort();
    }
    const bool is_success = answer.verdict == BBPFLASH_VERDICT_SUCCESS;
    const bool needs_end = mode == BBPFLASH_MODE_STATUS || status == BBPFLASH_STATUS_UNKNOWN;
    if (is_success &&
        (answer.problems != 0 || status > 0 || (needs_end && !EndsInSuccess(bytes)))) {
        std::abort();
    }
    return 0;
}
