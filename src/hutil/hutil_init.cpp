// SPDX-License-Identifier: Apache-2.0
#include "hutil/hutil_init.h"

#include <stdio.h>
#include <stdlib.h>

#include <new>

HutilOptions* g_p_hutil_opt = nullptr;
HutilMsg* g_p_hutil_msg = nullptr;

void hutil_init(int argc, char** argv) {
    g_p_hutil_opt = new (std::nothrow) HutilOptions(argc, argv);
    if (g_p_hutil_opt == nullptr) {
        exit(-1);
    }
    g_p_hutil_msg = new (std::nothrow) HutilMsg(g_p_hutil_opt);
    if (g_p_hutil_msg == nullptr) {
        exit(-1);
    }
}

void hutil_print16(FILE* stream, unsigned char* bytes, int count) {
    if (stream == nullptr || count < 1) {
        return;
    }
    for (int i = 0; i < count; ++i) {
        if (i % 16 == 0) {
            fprintf(stream, "\n\t\t");
        }
        fprintf(stream, " %02X", static_cast<unsigned int>(bytes[i]));
    }
    fprintf(stream, "\n\n");
}

void hutil_fail() {
    fprintf(stdout, "ERROR\n");
    exit(EXIT_FAILURE);
}
