// SPDX-License-Identifier: MIT
#include <cmath>
#include <memory>

#include "commands/commands.h"
#include "commands/found_faces.h"
#include "evaluation/shipped_thresholds.h"
#include "faces/faces_of.h"
#include "files/failure.h"
#include "serve/service.h"
#include "serve/token.h"

namespace kova_cli {
namespace {

struct ServeOptions {
    ServeSettings settings;
    std::string tokenPath;
    double bodyMib = 8;
    double megapixels = 16;
    double timeoutSeconds = 10;
    int32_t leastQuality = kLeastQuality;
};

constexpr const char* kNotes =
    R"(Answers over HTTP: finds faces, extracts and compares features, enrols and
identifies people. Requests are JSON with pictures in Base64, or forms; what can
be asked stands at /openapi.json and in docs/SERVICE.md. It prints the address it
listens on, and ends on SIGTERM or SIGINT when it has answered what was asked.

The token is the first line of --token-file, or the environment variable
KOVA_FR_TOKEN; clients send it as "Authorization: Bearer TOKEN". Without one the
service binds to this machine only. HTTP is not encrypted: beyond this machine
put a proxy with TLS before it.

Galleries are the files of kova-fr enroll, which may change them meanwhile;
requests name them by the file's name without its extension. Nothing is kept of
pictures.

Examples:
  kova-fr serve --gallery people.gallery
  kova-fr serve --address 0.0.0.0 --token-file /etc/kova-fr/token
  curl -F picture=@me.jpg http://127.0.0.1:8017/v1/identify)";

bool IsLocal(const std::string& address) { return address.starts_with("127.") || address == "::1"; }

std::vector<Face> Look(const Recogniser& recogniser, Finder& finder, const GreyPicture& picture,
                       const Looking& looking) {
    if (looking.isCrop || !looking.smallest) {
        return FacesOf(recogniser, finder, picture, {looking.isCrop, {}, false, looking.most});
    }
    const Finder::Features found = finder.FindFeatures(picture, looking.smallest, looking.most);
    std::vector<Face> faces(found.faces.size());
    for (size_t i = 0; i < faces.size(); ++i) {
        faces[i].found = found.faces[i];
        faces[i].feature = found.features[i];
    }
    return faces;
}

FaceEngine MakeEngine(const Recogniser& recogniser, Finder& finder, int32_t leastQuality) {
    FaceEngine engine;
    engine.find = [&](const GreyPicture& picture, const Looking& looking) {
        return finder.Find(picture, looking.smallest, looking.most);
    };
    engine.look = [&](const GreyPicture& picture, const Looking& looking) {
        return Look(recogniser, finder, picture, looking);
    };
    engine.describe = FaceJson;
    engine.reasonWords = ReasonWords;
    engine.models = ModelsDigest();
    engine.about = {{"version", ORVO_VERSION},
                    {"models_sha256", Hex(engine.models)},
                    {"thresholds", ShippedThresholds()}};
    engine.leastQuality = leastQuality;
    return engine;
}

void RunServe(ServeOptions options) {
    ServeSettings& settings = options.settings;
    settings.token = TakeToken(options.tokenPath);
    if (settings.token.empty() && !IsLocal(settings.address)) {
        throw Failure(
            "beyond this machine a token is needed; make one with openssl rand -hex 32 "
            "and name its file with --token-file");
    }
    settings.bodyBytes = static_cast<size_t>(options.bodyMib * (1 << 20));
    settings.pixels = static_cast<uint64_t>(options.megapixels * 1e6);
    settings.timeout =
        std::chrono::milliseconds(static_cast<int64_t>(options.timeoutSeconds * 1000));
    LimitPictures(settings.pixels);
    const Recogniser recogniser;
    Finder finder;
    Service service(settings, MakeEngine(recogniser, finder, options.leastQuality));
    Serve(service);
}

} // namespace

void AddServeCommand(CLI::App& program) {
    CLI::App& command = *program.add_subcommand("serve", "Answer over HTTP");
    const auto options = std::make_shared<ServeOptions>();
    ServeSettings& settings = options->settings;
    command.add_option("--gallery", settings.galleries, "Gallery file; may be given several times")
        ->allow_extra_args(false)
        ->type_name("FILE");
    command.add_option("--address", settings.address, "Address to listen on")
        ->capture_default_str()
        ->type_name("ADDRESS");
    command.add_option("--port", settings.port, "Port; 0 takes one that is free")
        ->capture_default_str()
        ->type_name("PORT");
    command.add_option("--token-file", options->tokenPath, "File with the token of the clients")
        ->type_name("FILE");
    command
        .add_option("--least-quality", options->leastQuality,
                    "Quality that a face needs to be compared, 0 to 100")
        ->check(CLI::Range(0, 100))
        ->capture_default_str()
        ->type_name("Q");
    command.add_option("--body", options->bodyMib, "Longest request body, in MiB")
        ->check(CLI::Range(0.001, 256.0))
        ->capture_default_str()
        ->type_name("MIB");
    command.add_option("--megapixels", options->megapixels, "Largest picture")
        ->check(CLI::Range(0.001, 100.0))
        ->capture_default_str()
        ->type_name("N");
    command.add_option("--rate", settings.rate, "Requests a second in all; 0: no limit")
        ->check(CLI::Range(0.0, 1e9))
        ->capture_default_str()
        ->type_name("N");
    command
        .add_option("--rate-per-address", settings.ratePerAddress,
                    "Requests a second of one address; 0: no limit")
        ->check(CLI::Range(0.0, 1e9))
        ->capture_default_str()
        ->type_name("N");
    command.add_option("--connections", settings.connections, "Open connections in all")
        ->check(CLI::Range(size_t{1}, kMostConnections))
        ->capture_default_str()
        ->type_name("N");
    command
        .add_option("--connections-per-address", settings.connectionsPerAddress,
                    "Open connections of one address")
        ->check(CLI::Range(size_t{1}, kMostConnections))
        ->capture_default_str()
        ->type_name("N");
    command
        .add_option("--timeout", options->timeoutSeconds,
                    "Seconds that a client may take for its request and, for each 64 KiB, one more")
        ->check(CLI::Range(0.1, 600.0))
        ->capture_default_str()
        ->type_name("SECONDS");
    command
        .add_option("--waiting", settings.waiting, "Requests that may wait for a picture's turn")
        ->check(CLI::Range(size_t{0}, kMostConnections))
        ->capture_default_str()
        ->type_name("N");
    command.add_flag("--log", settings.log,
                     "Write a line for each request to standard error: address, method, route, "
                     "status, time");
    command.footer(kNotes);
    command.callback([options] { RunServe(*options); });
}

} // namespace kova_cli
