// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>

#include "serve/engine.h"
#include "serve/limits.h"
#include "serve/metrics.h"
#include "serve/people.h"
#include "serve/settings.h"

namespace kova_cli {

// What all connections share.
struct Service {
    Service(const ServeSettings& given, FaceEngine engineGiven);

    ServeSettings settings;
    FaceEngine engine;
    std::map<std::string, People> galleries; // by the names that requests use
    RateLimit rate;
    ConnectionCount connections;
    BodyRoom bodies;
    Gate pictures; // for whoever looks at one
    Metrics metrics;
};

// A gallery's name in requests: its file's without folder and extension.
std::string GalleryName(const std::string& path);

// Serves until the process gets SIGTERM or SIGINT; requests that have begun are answered. Says on
// standard output where it listens.
void Serve(Service& service);

} // namespace kova_cli
