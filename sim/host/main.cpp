// SPDX-License-Identifier: Apache-2.0
#include "common/Failure.h"
#include "common/StandardDescriptors.h"
#include "sim/host/Bench.h"
#include "sim/host/Child.h"
#include "sim/host/Options.h"

int main(int argc, char** argv) {
    common::OpenMissingStandardDescriptors();
    return common::RunProgram("bbpsim", sim::STATUS_OWN_FAILURE, [&] {
        sim::Options options;
        const std::optional<int> asked = sim::ParseOptions(argc, argv, options);
        return asked ? *asked : sim::RunBench(options);
    });
}
