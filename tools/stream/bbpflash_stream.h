/* SPDX-License-Identifier: Apache-2.0 */
/* Reads what bbpflash writes to its standard output: which line says what, where the update is, and
 * at the end whether stream and exit status together mean success. docs/output.md is the contract.
 *
 * Nothing here blocks, keeps time or does input or output. A stream belongs to one thread at a
 * time. Any bytes may be fed, in pieces of any size. */
#ifndef BBPFLASH_STREAM_H
#define BBPFLASH_STREAM_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* How the updater was started. */
enum bbpflash_mode {
    BBPFLASH_MODE_UNKNOWN = 0,
    BBPFLASH_MODE_NARRATING = 1, /* without -s: it tells the stages, no protocol line but ERROR */
    BBPFLASH_MODE_STATUS = 2     /* with -s */
};

enum bbpflash_line {
    BBPFLASH_LINE_PERCENT = 0,
    BBPFLASH_LINE_DONE = 1,
    BBPFLASH_LINE_ERROR = 2,
    BBPFLASH_LINE_MESSAGE = 3,      /* with a level and a text */
    BBPFLASH_LINE_CONTINUATION = 4, /* of a message whose text has a line break */
    BBPFLASH_LINE_OPTIONS = 5,      /* of the settings that -vvvvvv shows first */
    BBPFLASH_LINE_DUMP = 6,         /* of the exchange that failed; an empty line, too */
    BBPFLASH_LINE_UNKNOWN = 7       /* none that bbpflash writes */
};

enum bbpflash_level {
    BBPFLASH_LEVEL_NONE = -1, /* no message */
    BBPFLASH_LEVEL_PLAIN = 0,
    BBPFLASH_LEVEL_CRITICAL = 1,
    BBPFLASH_LEVEL_ERROR = 2,
    BBPFLASH_LEVEL_WARNING = 3,
    BBPFLASH_LEVEL_INFO = 5
};

enum bbpflash_phase {
    BBPFLASH_PHASE_RESET = 0,    /* also before anything was read */
    BBPFLASH_PHASE_CHECK = 1,    /* reset and version check; also those after a pass */
    BBPFLASH_PHASE_DOWNLOAD = 2, /* the image goes to the chip's memory */
    BBPFLASH_PHASE_BURN = 3,     /* the chip has the image and works on its own */
    BBPFLASH_PHASE_ERASE = 4,
    BBPFLASH_PHASE_PROGRAM = 5,
    BBPFLASH_PHASE_VERIFY = 6,
    BBPFLASH_PHASE_ENDED = 7 /* DONE or ERROR was read */
};

/* What contradicts the contract; bits. */
enum bbpflash_problem {
    BBPFLASH_PROBLEM_FALLING = 1, /* a percentage up to 80 not above the one before it */
    BBPFLASH_PROBLEM_NUMBER = 2,  /* a number that is no percentage of an update */
    BBPFLASH_PROBLEM_ORDER = 4,   /* a stage that cannot follow the one before it */
    BBPFLASH_PROBLEM_DONE_WITHOUT_100 = 8,
    BBPFLASH_PROBLEM_AFTER_END = 16,        /* a line after DONE or ERROR */
    BBPFLASH_PROBLEM_PASSES = 32,           /* a fourth programming pass */
    BBPFLASH_PROBLEM_UNKNOWN_LINE = 64,     /* a line that bbpflash does not write in its mode */
    BBPFLASH_PROBLEM_UNFINISHED_LINE = 128, /* the stream ends inside a line */
    BBPFLASH_PROBLEM_NO_END = 256,          /* no DONE or ERROR where there must be one */
    BBPFLASH_PROBLEM_STATUS = 512           /* the last line contradicts the exit status */
};

enum bbpflash_verdict {
    BBPFLASH_VERDICT_SUCCESS = 0, /* nothing contradicts it */
    BBPFLASH_VERDICT_FAILURE = 1, /* the updater failed, and says so */
    BBPFLASH_VERDICT_DOUBTFUL = 2 /* contradictions, or no end: never take it for success */
};

enum {
    BBPFLASH_STATUS_UNKNOWN = -1, /* for bbpflash_stream_finish: nobody knows the exit status */
    BBPFLASH_LONGEST_LINE = 4096  /* bytes; what a line has beyond them is dropped */
};

struct bbpflash_event {
    enum bbpflash_line line;
    enum bbpflash_level level;
    enum bbpflash_phase phase; /* after this line */
    int pass;                  /* programming passes begun so far */
    int percent;               /* the last percentage of a valid kind, 0 before the first */
    int refused;               /* not 0 while the chip's last word is that it rejects the image */
    unsigned problems;         /* those of this line */
    const char* text;          /* the line without its end; valid during the call only, no NUL */
    size_t size;
    const char* message; /* a message's text behind its level; null for other lines */
    size_t message_size;
};

struct bbpflash_stream;

typedef void (*bbpflash_handler)(const struct bbpflash_event* event, void* context);

/* A reader that calls `handler`, if not null, once for every line. Null without memory. */
struct bbpflash_stream* bbpflash_stream_create(enum bbpflash_mode mode, bbpflash_handler handler,
                                               void* context);

void bbpflash_stream_destroy(struct bbpflash_stream* stream);

/* Takes the next bytes. */
void bbpflash_stream_feed(struct bbpflash_stream* stream, const char* bytes, size_t size);

/* The stream has ended, and the updater with `exit_status`: 0 to 127 or 255, 128 plus the signal's
 * number when one ended it, or BBPFLASH_STATUS_UNKNOWN. Nothing is fed afterwards. */
enum bbpflash_verdict bbpflash_stream_finish(struct bbpflash_stream* stream, int exit_status);

/* All problems so far, a set of bits. */
unsigned bbpflash_stream_problems(const struct bbpflash_stream* stream);

/* What a single problem's bit means, in words; a phase's name. Never null. */
const char* bbpflash_problem_text(enum bbpflash_problem problem);
const char* bbpflash_phase_name(enum bbpflash_phase phase);

#ifdef __cplusplus
}
#endif

#endif
