// SPDX-License-Identifier: MIT
//
// The HTTP service's connections: bytes as they come from a client, or requests made of a method, a path, a
// type and a body. A pair of sockets takes the network's place. Whatever is asked, what comes back begins
// like HTTP, and the service takes the next connection.
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <string_view>

#include "gallery/formats.h"
#include "input.h"
#include "quiet.h"
#include "require.h"
#include "serve/conversation.h"

namespace orvo_fuzz {
namespace {

using kova_cli::Face;
using kova_cli::GreyPicture;
using kova_cli::Looking;

constexpr size_t kLongestRequest = 1 << 16; // fits a socket's buffer

constexpr const char* kMethods[] = {"GET", "POST", "DELETE", "HEAD", "PUT", "PRI"};
constexpr const char* kPaths[] = {"/health",
                                  "/openapi.json",
                                  "/metrics",
                                  "/v1/info",
                                  "/v1/find",
                                  "/v1/extract",
                                  "/v1/compare",
                                  "/v1/identify",
                                  "/v1/people",
                                  "/v1/people/a",
                                  "/v1/people/%",
                                  "/v1/identify?gallery=g",
                                  "/v1/people?gallery=nobody"};
constexpr const char* kTypes[] = {"application/json", "multipart/form-data; boundary=x",
                                  "text/plain", "multipart/form-data; boundary=\"x y\""};

OrvoFindFace FoundFace(const GreyPicture& picture) {
    OrvoFindFace face = {};
    face.side = static_cast<float>(picture.width);
    face.score = 0.5f;
    face.quality = static_cast<int32_t>(picture.pixels.front() % 101);
    return face;
}

// As many faces as the first pixel says, without looking for any.
std::vector<Face> SeeFaces(const GreyPicture& picture, const Looking& looking) {
    std::vector<Face> faces(picture.pixels.front() % 3);
    for (Face& face : faces) {
        face.feature[0] = 1;
        if (!looking.isCrop) {
            face.found = FoundFace(picture);
        }
    }
    return faces;
}

kova_cli::FaceEngine MakeEngine() {
    kova_cli::FaceEngine engine;
    engine.find = [](const GreyPicture& picture, const Looking&) {
        return std::vector<OrvoFindFace>(picture.pixels.front() % 3, FoundFace(picture));
    };
    engine.look = SeeFaces;
    engine.describe = [](const OrvoFindFace& face) {
        return nlohmann::ordered_json{{"quality", face.quality}};
    };
    engine.reasonWords = [](uint32_t) { return std::vector<std::string>{"small"}; };
    engine.about = {{"version", "0"}};
    engine.models = {};
    engine.leastQuality = 30;
    return engine;
}

// A gallery of its own for the life of the program, in memory where the system has a folder for that.
class Folder {
  public:
    Folder() {
        const bool isMade = mkdtemp(inMemory_) != nullptr || mkdtemp(onDisk_) != nullptr;
        Require(isMade, "a folder is made");
        path_ = access(inMemory_, W_OK) == 0 ? inMemory_ : onDisk_;
    }
    ~Folder() {
        unlink(Gallery().c_str());
        rmdir(path_.c_str());
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::string Gallery() const { return path_ + "/g.gallery"; }

  private:
    char inMemory_[32] = "/dev/shm/fuzz-XXXXXX";
    char onDisk_[32] = "/tmp/fuzz-XXXXXX";
    std::string path_;
};

const Folder& TheFolder() {
    static const Folder folder;
    return folder;
}

kova_cli::ServeSettings Settings() {
    kova_cli::ServeSettings settings;
    settings.galleries = {TheFolder().Gallery()};
    settings.bodyBytes = 8192;
    settings.rate = 0;
    settings.ratePerAddress = 0;
    settings.timeout = std::chrono::milliseconds(20);
    return settings;
}

kova_cli::Service& TheService() {
    static kova_cli::Service service(Settings(), MakeEngine());
    return service;
}

// One of a known form, which has more behind its first line than chance finds.
void AppendRequest(Input& input, std::string& text) {
    const char* const method = kMethods[input.Byte() % std::size(kMethods)];
    const char* const path = kPaths[input.Byte() % std::size(kPaths)];
    const char* const type = kTypes[input.Byte() % std::size(kTypes)];
    const auto body = input.Bytes(input.Number<uint16_t>() % 8300);
    text += std::string(method) + " " + path +
            " HTTP/1.1\r\nHost: localhost\r\nContent-Type: " + type +
            "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    text.append(body.begin(), body.end());
}

std::string TextOf(Input& input) {
    const uint8_t kind = input.Byte();
    std::string text;
    for (int i = kind % 4; i > 0 && input.left() > 0; --i) {
        AppendRequest(input, text);
    }
    const auto rest = input.Rest();
    if (kind < 128 || kind % 4 == 0) {
        text.append(rest.begin(), rest.end());
    }
    text.resize(std::min(text.size(), kLongestRequest));
    return text;
}

// The other end of the connection: all that was answered.
std::string Answers(int client) {
    std::string answers;
    char piece[16384];
    for (ssize_t count; (count = recv(client, piece, sizeof piece, MSG_DONTWAIT)) > 0;) {
        answers.append(piece, static_cast<size_t>(count));
    }
    return answers;
}

void Converse(const std::string& text) {
    static kova_cli::Conversation conversation(TheService());
    static const int stopping = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    int ends[2];
    Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0,
            "there are sockets");
    Require(
        send(ends[0], text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size()),
        "a request fits its socket");
    shutdown(ends[0], SHUT_WR);
    {
        kova_cli::Connection connection(ends[1], "127.0.0.1", stopping,
                                        TheService().settings.timeout);
        conversation.Hold(connection, "127.0.0.1");
    }
    const std::string answers = Answers(ends[0]);
    close(ends[0]);
    Require(answers.empty() || answers.starts_with("HTTP/1.1 "), "an answer is HTTP");
}

} // namespace
} // namespace orvo_fuzz

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    orvo_fuzz::SilenceDiagnostics();
    kova_cli::LimitPictures(1 << 12);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace orvo_fuzz;
    Input input(data, size);
    unlink(TheFolder().Gallery().c_str());
    Converse(TextOf(input));
    // Whatever came, a service that cannot take the next picture is of no use.
    Require(TheService().pictures.Waiting() == 0 && TheService().bodies.Take(0),
            "nothing is held after a conversation");
    return 0;
}
