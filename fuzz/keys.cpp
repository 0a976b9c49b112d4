// SPDX-License-Identifier: MIT
//
// Key files, as the packer reads them. One that is taken has to say the same when it is written down again,
// and no message may hold a value.
#include <cstring>
#include <string>

#include "memory_file.h"
#include "require.h"
#include "tools/pack_models/key_file.h"
#include "tools/pack_models/pack_error.h"

namespace {

using orvo::pack::KeyFile;

template <size_t kSize>
void AppendLine(std::string& text, const char* name, const std::array<uint8_t, kSize>& bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    text += name;
    text += " = ";
    for (const uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    text += '\n';
}

void AppendModel(std::string& text, const std::string& name, const orvo::pack::ModelKeys& keys) {
    AppendLine(text, (name + "_key").c_str(), keys.key);
    AppendLine(text, (name + "_wrap_iv").c_str(), keys.wrapIv);
    AppendLine(text, (name + "_array_iv").c_str(), keys.arrayIv);
}

std::string TextOf(const KeyFile& keys) {
    std::string text;
    AppendLine(text, "white_box_key", keys.whiteBoxKey);
    AppendLine(text, "seed", keys.seed);
    AppendModel(text, "align", keys.align);
    AppendModel(text, "fr", keys.fr);
    if (keys.find) {
        AppendModel(text, "find", *keys.find);
    }
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const orvo_fuzz::MemoryFile file;
    file.Write({data, size});
    try {
        const std::string text = TextOf(orvo::pack::ReadKeyFile(file.path()));
        file.Write({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
        orvo_fuzz::Require(TextOf(orvo::pack::ReadKeyFile(file.path())) == text,
                           "a key file is read as it was written");
    } catch (const orvo::pack::PackError& error) {
        orvo_fuzz::Require(std::strlen(error.what()) < 300, "a message is one short line");
    }
    return 0;
}
