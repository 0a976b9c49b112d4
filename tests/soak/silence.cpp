// SPDX-License-Identifier: MIT
#include "soak/silence.h"

#include <fcntl.h>
#include <unistd.h>

#include "soak/soak.h"

namespace orvo_soak {

Silence::Silence() : kept_(dup(STDERR_FILENO)) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    Require(kept_ >= 0 && nowhere >= 0 && dup2(nowhere, STDERR_FILENO) >= 0,
            "standard error cannot be turned away");
    close(nowhere);
}

Silence::~Silence() {
    dup2(kept_, STDERR_FILENO);
    close(kept_);
}

} // namespace orvo_soak
