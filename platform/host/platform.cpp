// SPDX-License-Identifier: MIT
#include "platform/host/platform.h"

#include <new>

namespace kova_host {
namespace {

// Asks for no memory, for want of which a call could not even say that it has none.
Platform* OpenPlatform() {
    alignas(Platform) static unsigned char room[sizeof(Platform)];
    Platform* const platform = new (room) Platform;
    platform->pool = OpenMediaPool();
    return platform;
}

} // namespace

Platform& ThePlatform() {
    static Platform* const platform = OpenPlatform();
    return *platform;
}

} // namespace kova_host
