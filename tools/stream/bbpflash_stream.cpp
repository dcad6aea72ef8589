// SPDX-License-Identifier: Apache-2.0
#include "tools/stream/bbpflash_stream.h"

#include <new>

#include "tools/stream/StreamParser.h"

struct bbpflash_stream {
    tools::StreamParser parser;
};

extern "C" {

bbpflash_stream* bbpflash_stream_create(bbpflash_mode mode, bbpflash_handler handler,
                                        void* context) {
    try {
        tools::StreamParser::Handler call;
        if (handler != nullptr) {
            call = [handler, context](const bbpflash_event& event) { handler(&event, context); };
        }
        return new bbpflash_stream{tools::StreamParser(mode, call)};
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void bbpflash_stream_destroy(bbpflash_stream* stream) {
    delete stream;
}

void bbpflash_stream_feed(bbpflash_stream* stream, const char* bytes, std::size_t size) {
    stream->parser.Feed(bytes, size);
}

bbpflash_verdict bbpflash_stream_finish(bbpflash_stream* stream, int exit_status) {
    return stream->parser.Finish(exit_status);
}

unsigned bbpflash_stream_problems(const bbpflash_stream* stream) {
    return stream->parser.Problems();
}

const char* bbpflash_problem_text(bbpflash_problem problem) {
    switch (problem) {
        case BBPFLASH_PROBLEM_FALLING:
            return "the percentage fell without a new pass";
        case BBPFLASH_PROBLEM_NUMBER:
            return "a number is no percentage of an update";
        case BBPFLASH_PROBLEM_ORDER:
            return "the stages are out of order";
        case BBPFLASH_PROBLEM_DONE_WITHOUT_100:
            return "DONE came without 100";
        case BBPFLASH_PROBLEM_AFTER_END:
            return "a line came after the last one";
        case BBPFLASH_PROBLEM_PASSES:
            return "more than three passes were begun";
        case BBPFLASH_PROBLEM_UNKNOWN_LINE:
            return "a line is none of the updater's";
        case BBPFLASH_PROBLEM_UNFINISHED_LINE:
            return "the output ends inside a line";
        case BBPFLASH_PROBLEM_NO_END:
            return "the output ends without DONE or ERROR";
        case BBPFLASH_PROBLEM_STATUS:
            return "the last line contradicts the exit status";
    }
    return "unknown problem";
}

const char* bbpflash_phase_name(bbpflash_phase phase) {
    switch (phase) {
        case BBPFLASH_PHASE_RESET:
            return "reset";
        case BBPFLASH_PHASE_CHECK:
            return "check";
        case BBPFLASH_PHASE_DOWNLOAD:
            return "download";
        case BBPFLASH_PHASE_BURN:
            return "burn";
        case BBPFLASH_PHASE_ERASE:
            return "erase";
        case BBPFLASH_PHASE_PROGRAM:
            return "program";
        case BBPFLASH_PHASE_VERIFY:
            return "verify";
        case BBPFLASH_PHASE_ENDED:
            return "ended";
    }
    return "unknown";
}
}
