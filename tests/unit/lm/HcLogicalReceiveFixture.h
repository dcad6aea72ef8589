// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_UNIT_LM_HCLOGICALRECEIVEFIXTURE_H
#define BBPFLASH_TESTS_UNIT_LM_HCLOGICALRECEIVEFIXTURE_H

#include <utility>

#include "tests/unit/lm/HcLogicalFixture.h"

// Whether objects find no memory.
extern bool g_no_memory;

// An engine whose replies the test gives, and what retrieving them leads to.
class HcLogicalReceive : public HcLogicalTest {
  protected:
    ~HcLogicalReceive() override { g_no_memory = false; }

    // What `reply` to the request under way leads to: the result and the messages.
    int Retrieve(fake::Reply reply, unsigned char* payload = nullptr) {
        platform.Answer(std::move(reply));
        platform.log.clear();
        int result = -99;
        output_ = fake::Capture([&] { result = lm_.RetrieveShort(payload); });
        return result;
    }

    int RetrieveLong(unsigned char* destination) {
        int result = -99;
        output_ = fake::Capture([&] { result = lm_.RetrieveLong(destination); });
        return result;
    }

    fake::Output output_;
};

#endif
