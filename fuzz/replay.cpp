// SPDX-License-Identifier: MIT
//
// Runs a target over corpora without libFuzzer, for every compiler: each argument is a corpus as corpus.py
// packs it, an input a line in Base64, or a file that is one input.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* count, char*** arguments);

namespace {

int ValueOf(char digit) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const size_t value = kDigits.find(digit);
    return value == std::string_view::npos ? -1 : static_cast<int>(value);
}

// False where the line is no Base64.
bool Decode(std::string_view line, std::vector<uint8_t>& bytes) {
    bytes.clear();
    uint32_t bits = 0;
    int held = 0;
    for (const char digit : line.substr(0, line.find('='))) {
        const int value = ValueOf(digit);
        if (value < 0) {
            return false;
        }
        bits = bits << 6 | static_cast<uint32_t>(value);
        held += 6;
        if (held >= 8) {
            held -= 8;
            bytes.push_back(static_cast<uint8_t>(bits >> held));
        }
    }
    return true;
}

// Returns how many inputs there were; below 0 where the file is of no use.
int ReplayCorpus(std::ifstream& file) {
    std::vector<uint8_t> bytes;
    int count = 0;
    for (std::string line; std::getline(file, line); ++count) {
        if (!Decode(line, bytes)) {
            return -1;
        }
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    return file.eof() ? count : -1;
}

int ReplayOne(std::ifstream& file) {
    const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return 1;
}

} // namespace

int main(int count, char** arguments) {
    if (LLVMFuzzerInitialize != nullptr) {
        LLVMFuzzerInitialize(&count, &arguments);
    }
    int inputs = 0;
    for (int i = 1; i < count; ++i) {
        const std::string path = arguments[i];
        std::ifstream file(path, std::ios::binary);
        const int more = path.ends_with(".corpus") ? ReplayCorpus(file) : ReplayOne(file);
        if (!file.is_open() || more < 1) {
            std::printf("%s: holds no inputs; give a corpus of fuzz/corpus/ or a file\n",
                        path.c_str());
            return 1;
        }
        inputs += more;
    }
    std::printf("%d inputs, no finding\n", inputs);
    return inputs > 0 ? 0 : 1;
}
