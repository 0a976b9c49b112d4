// SPDX-License-Identifier: MIT
#include "commands/reading_options.h"

#include "commands/face_options.h"

namespace kova_cli {

void AddReadingOptions(CLI::App& command, FeatureReading& reading) {
    AddCropOption(command, reading.isCrop);
    AddAnyQualityOption(command, reading.anyQuality);
    command.add_flag("--strict", reading.strict,
                     "Stop at a picture that cannot be used, in place of leaving it out");
}

} // namespace kova_cli
