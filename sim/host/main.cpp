// SPDX-License-Identifier: Apache-2.0
#include "common/Failure.h"
#include "common/StandardDescriptors.h"
#include "sim/host/Bench.h"
#include "sim/host/Child.h"
#include "sim/host/Options.h"

int main(int argc, char** argv) {
    common::OpenMissingStandardDescriptors();
    return common::RunProgram("bbpsim", sim::STATUS_OWN_FAILURE, [&] {
        int status = 0;
        const std::optional<sim::Options> options = sim::ParseOptions(argc, argv, &status);
        return options ? sim::RunBench(*options) : status;
    });
}
