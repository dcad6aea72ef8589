// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_JUDGEMENT_H
#define BBPFLASH_TOOLS_WATCH_JUDGEMENT_H

#include "tools/watch/Ending.h"
#include "tools/watch/UpdateRecord.h"

namespace tools {

// What is known when an updater has ended.
struct Evidence {
    int status = 0;              // as for bbpflash_stream_finish
    bool was_requested = false;  // a person ended it
    bool is_only_heard = false;  // bbpwatch has not started it
    bool is_over = false;        // it was ended because the chip refuses the image
    bool is_slow = false;        // it was ended after a long time without progress
    bbpflash_verdict stream = BBPFLASH_VERDICT_DOUBTFUL;
};

// What that means: verdict, status, what failed, what the chip holds and what to do. Neither times
// nor versions.
Ending Judge(const UpdateRecord& record, const Evidence& evidence);

}  // namespace tools

#endif
