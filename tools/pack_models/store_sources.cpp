// SPDX-License-Identifier: MIT
#include "tools/pack_models/store_sources.h"

#include <array>

#include "orvo/cipher.h"
#include "tools/pack_models/packing.h"

namespace orvo::pack {
namespace {

constexpr const char* kHeading =
    "// SPDX-License-Identifier: MIT\n"
    "// Written by pack_models from the plain models and the key file; changes here are lost.\n";

// Lists values between braces, in lines of a fixed number of values.
template <typename Values, typename Format>
void AppendList(std::string* source, const Values& values, size_t perLine, Format format) {
    *source += " = {";
    for (size_t i = 0; i < values.size(); ++i) {
        *source += i % perLine == 0 ? "\n    " : " ";
        *source += format(values[i]) + ",";
    }
    *source += "\n};\n";
}

std::string Hex(uint32_t value) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    for (; value != 0 || text.empty(); value >>= 4) {
        text.insert(text.begin(), kDigits[value & 15]);
    }
    return "0x" + text;
}

void AppendBytes(std::string* source, const std::string& name, std::span<const uint8_t> bytes) {
    *source += "\nalignas(16) uint8_t " + name + "[" + std::to_string(bytes.size()) + "]";
    AppendList(source, bytes, 16, Hex);
}

void AppendWeights(std::string* source, const std::string& name, std::span<const uint8_t> bytes) {
    *source += "\nalignas(16) int8_t " + name + "[" + std::to_string(bytes.size()) + "]";
    AppendList(source, bytes, 24,
               [](uint8_t byte) { return std::to_string(static_cast<int8_t>(byte)); });
}

// The enciphered bytes are listed as the numbers that they are on a little-endian machine; the library
// changes their places on any other before it deciphers.
void AppendBiases(std::string* source, const std::string& name, std::span<const uint8_t> bytes) {
    std::vector<int32_t> values;
    for (size_t i = 0; i < bytes.size(); i += 4) {
        values.push_back(static_cast<int32_t>(bytes[i] | static_cast<uint32_t>(bytes[i + 1]) << 8 |
                                              static_cast<uint32_t>(bytes[i + 2]) << 16 |
                                              static_cast<uint32_t>(bytes[i + 3]) << 24));
    }
    *source += "\nalignas(16) int32_t " + name + "[" + std::to_string(values.size()) + "]";
    AppendList(source, values, 8, [](int32_t value) { return std::to_string(value); });
}

void Encipher(const Block& key, const Block& iv, std::span<uint8_t> bytes) {
    AES_ctx ctx;
    AES_init_ctx_iv(&ctx, key.data(), iv.data());
    AES_CBC_encrypt_buffer(&ctx, bytes.data(), static_cast<uint32_t>(bytes.size()));
}

// Whole blocks only, each array from the same IV; the rest of an array stays plain.
std::vector<uint8_t> EncipherArray(std::vector<uint8_t> bytes, const ModelKeys& keys) {
    Encipher(keys.key, keys.arrayIv, std::span(bytes).first(bytes.size() & ~size_t{15}));
    return bytes;
}

// The model's key and a full block of padding.
std::array<uint8_t, 32> WrapKey(const ModelKeys& keys, const Block& wrappingKey) {
    std::array<uint8_t, 32> wrapped;
    wrapped.fill(16);
    std::copy(keys.key.begin(), keys.key.end(), wrapped.begin());
    Encipher(wrappingKey, keys.wrapIv, wrapped);
    return wrapped;
}

std::string TableSource(const std::string& include, const std::string& name,
                        const std::vector<uint32_t>& table) {
    std::string source = kHeading;
    source += "#include \"" + include + "\"\n\n";
    source += "alignas(64) const uint32_t " + name + "[" + std::to_string(table.size()) + "]";
    AppendList(&source, table, 8, Hex);
    return source;
}

} // namespace

std::string ModelStoreSource(const StoreNames& names, std::span<const Layer> layers,
                             const std::vector<LayerParameters>& parameters, const ModelKeys& keys,
                             const Block& wrappingKey) {
    const std::string prefix = "g_" + names.model;
    std::string source = kHeading;
    source += "#include \"" + names.header + "\"\n";
    if (!names.space.empty()) {
        source += "\nnamespace " + names.space + " {\n";
    }
    AppendBytes(&source, prefix + "Wb", WrapKey(keys, wrappingKey));
    AppendBytes(&source, prefix + "WbIv", keys.wrapIv);
    AppendBytes(&source, prefix + "AesIv", keys.arrayIv);
    for (size_t i = 0; i < layers.size(); ++i) {
        const std::string number = std::to_string(layers[i].number);
        std::string weights = prefix;
        weights.append("Weights").append(number);
        std::string bias = prefix;
        bias.append("Bias").append(number);
        AppendWeights(&source, weights,
                      EncipherArray(PackWeights(layers[i], parameters[i].weights), keys));
        AppendBiases(&source, bias, EncipherArray(PackBiases(parameters[i].biases), keys));
    }
    if (!names.space.empty()) {
        source += "\n} // namespace " + names.space + "\n";
    }
    return source;
}

std::string DecryptTableSource(const std::vector<uint32_t>& table) {
    return TableSource("orvo/cipher.h", "table2", table);
}

std::string EncryptTableSource(const std::vector<uint32_t>& table) {
    return TableSource("platform/host/wb_encrypt_table.h", "g_wbEncryptTable", table);
}

} // namespace orvo::pack
