// SPDX-License-Identifier: Apache-2.0
#ifndef SIM_HOST_BENCH_H
#define SIM_HOST_BENCH_H

#include "sim/host/Options.h"

namespace sim {

// Runs the options' command, or a shell, inside a simulated head unit, and writes what the options
// ask for. Returns its exit status, or STATUS_OWN_FAILURE when something could not be written,
// which is told on standard error. Throws common::Failure when it cannot be started.
int RunBench(const Options& options);

}  // namespace sim

#endif
