/* SPDX-License-Identifier: Apache-2.0 */
/* A whole run is read through the C interface. Status 0 when everything was as it must be. */
#include <string.h>

#include "tools/stream/bbpflash_stream.h"

static void Count(const struct bbpflash_event* event, void* context) {
    int* const counts = context;
    counts[event->line] += 1;
}

int main(void) {
    static const char output[] = "40\n80\n99\n100\nDONE\n";
    int counts[BBPFLASH_LINE_UNKNOWN + 1] = {0};
    enum bbpflash_verdict verdict;
    unsigned problems;
    struct bbpflash_stream* const stream =
        bbpflash_stream_create(BBPFLASH_MODE_STATUS, Count, counts);
    if (stream == NULL) {
        return 1;
    }
    bbpflash_stream_feed(stream, output, strlen(output));
    verdict = bbpflash_stream_finish(stream, 0);
    problems = bbpflash_stream_problems(stream);
    bbpflash_stream_destroy(stream);
    return verdict == BBPFLASH_VERDICT_SUCCESS && problems == 0 &&
                   counts[BBPFLASH_LINE_PERCENT] == 4 && counts[BBPFLASH_LINE_DONE] == 1 &&
                   strcmp(bbpflash_phase_name(BBPFLASH_PHASE_ERASE), "erase") == 0 &&
                   strlen(bbpflash_problem_text(BBPFLASH_PROBLEM_FALLING)) > 0
               ? 0
               : 2;
}
