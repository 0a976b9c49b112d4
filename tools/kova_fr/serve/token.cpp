// SPDX-License-Identifier: MIT
#include "serve/token.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "faces/digest.h"
#include "files/failure.h"
#include "files/input_file.h"

namespace kova_cli {
namespace {

constexpr char kVariable[] = "KOVA_FR_TOKEN";
constexpr size_t kShortest = 16;
constexpr size_t kLongest = 1024;
constexpr char kHowToMake[] = "make one with: openssl rand -hex 32";

std::string TokenOfFile(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0 && (status.st_mode & (S_IROTH | S_IWOTH)) != 0) {
        throw Failure(path + ": can be read by everybody on this machine; chmod 600 it");
    }
    try {
        const std::vector<uint8_t> bytes = ReadWholeFile(path, 65536);
        return {bytes.begin(), std::find(bytes.begin(), bytes.end(), '\n')};
    } catch (const Failure& failure) {
        throw Failure(path + ": " + failure.what());
    }
}

std::string TokenOfEnvironment() {
    char* const value = std::getenv(kVariable);
    if (value == nullptr) {
        return "";
    }
    const std::string token = value;
    std::memset(value, 0, token.size()); // the place that /proc shows
    unsetenv(kVariable);
    return token;
}

bool IsPrintable(char c) { return c > ' ' && c < 0x7F; }

Sha256 DigestOf(std::string_view text) {
    Sha256Stream stream;
    stream.Add(text.data(), text.size());
    return stream.Finish();
}

} // namespace

std::string TakeToken(const std::string& path) {
    std::string token = TokenOfEnvironment();
    if (path.empty() && token.empty()) {
        return token;
    }
    const std::string where = path.empty() ? kVariable : path;
    if (!path.empty()) {
        token = TokenOfFile(path);
    }
    if (token.size() < kShortest || token.size() > kLongest ||
        !std::all_of(token.begin(), token.end(), IsPrintable)) {
        throw Failure(where + ": the token needs " + std::to_string(kShortest) + " to " +
                      std::to_string(kLongest) + " letters and digits in one line; " + kHowToMake);
    }
    return token;
}

bool IsAuthorised(std::string_view authorization, std::string_view token) {
    constexpr std::string_view kScheme = "Bearer ";
    const bool isBearer = authorization.starts_with(kScheme);
    // Digests have one length, and a guess tells nothing about those of better guesses.
    const Sha256 given = DigestOf(authorization.substr(isBearer ? kScheme.size() : 0));
    const Sha256 wanted = DigestOf(token);
    unsigned difference = isBearer ? 0 : 1;
    for (size_t i = 0; i < wanted.size(); ++i) {
        difference |= static_cast<unsigned>(given[i] ^ wanted[i]);
    }
    return difference == 0;
}

} // namespace kova_cli
