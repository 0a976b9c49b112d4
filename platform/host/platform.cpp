// SPDX-License-Identifier: MIT
#include "platform/host/platform.h"

namespace kova_host {
namespace {

Platform* OpenPlatform() {
    Platform* const platform = new Platform;
    platform->pool = OpenMediaPool();
    return platform;
}

} // namespace

Platform& ThePlatform() {
    static Platform* const platform = OpenPlatform();
    return *platform;
}

} // namespace kova_host
