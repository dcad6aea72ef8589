// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TOOLS_IMAGE_IMAGEINSPECTOR_H
#define BBPFLASH_TOOLS_IMAGE_IMAGEINSPECTOR_H

#include <string>

#include "tools/image/ImageReport.h"

namespace tools {

// Looks at the image `path` as the updater would and finds what would go wrong. A file that cannot
// be read is a finding, too; only a lack of resources throws std::system_error.
ImageReport InspectImage(const std::string& path);

}  // namespace tools

#endif
