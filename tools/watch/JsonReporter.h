// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_WATCH_JSONREPORTER_H
#define BBPFLASH_TOOLS_WATCH_JSONREPORTER_H

#include "tools/watch/Reporters.h"

namespace tools {

// One JSON object a line for each event, as bbpwatch.schema.json describes them.
class JsonReporter : public Reporter {
  public:
    explicit JsonReporter(TextSink sink) : sink_(std::move(sink)) {}

    void Report(const WatchEvent& event) override;

  private:
    const TextSink sink_;
};

}  // namespace tools

#endif
