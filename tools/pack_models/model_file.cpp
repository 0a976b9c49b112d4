// SPDX-License-Identifier: MIT
#include "tools/pack_models/model_file.h"

#include <algorithm>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>

#include "tools/pack_models/input_file.h"
#include "tools/pack_models/pack_error.h"

namespace orvo::pack {
namespace {

using Json = nlohmann::json;

constexpr uint64_t kMaxFileSize = 256u << 20;
constexpr uint64_t kPrefixSize = 8; // the header's length, little-endian

struct Range {
    int64_t low;
    int64_t high;
};

constexpr Range kWeightRange = {-128, 127};
constexpr Range kBiasRange = {std::numeric_limits<int32_t>::min(),
                              std::numeric_limits<int32_t>::max()};

struct Tensor {
    size_t elementSize;
    std::vector<int64_t> shape;
    std::span<const uint8_t> data;
};

uint64_t ReadLittleEndian(std::span<const uint8_t> bytes) {
    uint64_t value = 0;
    for (size_t i = bytes.size(); i-- > 0;) {
        value = value << 8 | bytes[i];
    }
    return value;
}

int64_t ReadSigned(std::span<const uint8_t> bytes) {
    const uint64_t sign = uint64_t{1} << (8 * bytes.size() - 1);
    return static_cast<int64_t>((ReadLittleEndian(bytes) ^ sign) - sign);
}

// Escaped, so that a hostile name cannot break the one line of a message.
std::string Quoted(const std::string& name) { return Json(name).dump(-1, ' ', true); }

// Parses the header and refuses a name that stands there twice, of which JSON would keep one.
Json ParseHeader(const std::string& path, std::span<const uint8_t> text) {
    std::set<std::string> names;
    std::string repeated;
    const auto watch = [&](int depth, Json::parse_event_t event, Json& value) {
        if (event == Json::parse_event_t::key && depth == 1 &&
            !names.insert(value.get<std::string>()).second && repeated.empty()) {
            repeated = value.get<std::string>();
        }
        return true;
    };
    Json header = Json::parse(text.begin(), text.end(), watch, false);
    if (header.is_discarded() || !header.is_object()) {
        throw PackError(path + ": the header is not a JSON object");
    }
    if (!repeated.empty()) {
        throw PackError(path + ": tensor " + Quoted(repeated) + " stands there twice");
    }
    return header;
}

size_t ElementSize(const Json& type) {
    static const std::map<std::string, size_t> kSizes = {
        {"I8", 1}, {"I16", 2}, {"I32", 4}, {"I64", 8}};
    const auto found = type.is_string() ? kSizes.find(type.get<std::string>()) : kSizes.end();
    return found == kSizes.end() ? 0 : found->second;
}

// An unsigned number that fits the signed type, or -1.
int64_t NonNegative(const Json& value) {
    if (!value.is_number_integer() ||
        (value.is_number_unsigned() && value.get<uint64_t>() > static_cast<uint64_t>(INT64_MAX))) {
        return -1;
    }
    return std::max<int64_t>(value.get<int64_t>(), -1);
}

std::vector<int64_t> NonNegatives(const Json& values, const std::string& what) {
    std::vector<int64_t> numbers;
    for (const Json& value : values.is_array() ? values : Json{nullptr}) {
        numbers.push_back(NonNegative(value));
        if (numbers.back() < 0) {
            throw PackError(what + " is not a list of whole numbers");
        }
    }
    return numbers;
}

std::string ToString(const std::vector<int64_t>& shape) {
    std::string text = "[";
    for (size_t i = 0; i < shape.size(); ++i) {
        text += (i == 0 ? "" : ", ") + std::to_string(shape[i]);
    }
    return text + "]";
}

// The product of the shape and the element size, or SIZE_MAX where it exceeds any file.
size_t SizeInBytes(const Tensor& tensor) {
    uint64_t size = tensor.elementSize;
    for (const int64_t extent : tensor.shape) {
        if (extent != 0 && size > kMaxFileSize / static_cast<uint64_t>(extent)) {
            return SIZE_MAX;
        }
        size *= static_cast<uint64_t>(extent);
    }
    return size;
}

Tensor ParseTensor(const Json& entry, const std::string& where, std::span<const uint8_t> data) {
    if (!entry.is_object() || !entry.contains("dtype") || !entry.contains("shape") ||
        !entry.contains("data_offsets")) {
        throw PackError(where + "dtype, shape or data_offsets is missing");
    }
    Tensor tensor;
    tensor.elementSize = ElementSize(entry["dtype"]);
    if (tensor.elementSize == 0) {
        throw PackError(where + "dtype is not I8, I16, I32 or I64");
    }
    tensor.shape = NonNegatives(entry["shape"], where + "shape");
    const std::vector<int64_t> offsets =
        NonNegatives(entry["data_offsets"], where + "data_offsets");
    if (offsets.size() != 2 || offsets[0] > offsets[1]) {
        throw PackError(where + "data_offsets is not a begin and an end");
    }
    if (static_cast<uint64_t>(offsets[1]) > data.size()) {
        throw PackError(where + "data ends at byte " + std::to_string(offsets[1]) +
                        ", the file holds " + std::to_string(data.size()));
    }
    tensor.data =
        data.subspan(static_cast<size_t>(offsets[0]), static_cast<size_t>(offsets[1] - offsets[0]));
    if (tensor.data.size() != SizeInBytes(tensor)) {
        throw PackError(where + "data_offsets span " + std::to_string(tensor.data.size()) +
                        " bytes, which shape " + ToString(tensor.shape) + " does not take");
    }
    return tensor;
}

// Every byte of the data must belong to exactly one tensor.
void CheckCoverage(const std::string& path, const std::map<std::string, Tensor>& tensors,
                   std::span<const uint8_t> data) {
    std::vector<std::pair<std::span<const uint8_t>, const std::string*>> pieces;
    for (const auto& [name, tensor] : tensors) {
        if (!tensor.data.empty()) {
            pieces.emplace_back(tensor.data, &name);
        }
    }
    std::sort(pieces.begin(), pieces.end(),
              [](const auto& a, const auto& b) { return a.first.data() < b.first.data(); });
    const uint8_t* end = data.data();
    for (const auto& [bytes, name] : pieces) {
        if (bytes.data() != end) {
            throw PackError(path + ": tensor " + Quoted(*name) + ": data " +
                            (bytes.data() < end ? "overlaps another tensor's"
                                                : "leaves a gap behind the tensor before"));
        }
        end = bytes.data() + bytes.size();
    }
    if (end != data.data() + data.size()) {
        throw PackError(path + ": " + std::to_string(data.data() + data.size() - end) +
                        " bytes behind the last tensor");
    }
}

std::map<std::string, Tensor> ParseTensors(const std::string& path, std::span<const uint8_t> file) {
    if (file.size() < kPrefixSize) {
        throw PackError(path + ": is too short for a safetensors file");
    }
    const uint64_t headerSize = ReadLittleEndian(file.first(kPrefixSize));
    if (headerSize > file.size() - kPrefixSize) {
        throw PackError(path + ": the header is cut off");
    }
    const Json header = ParseHeader(path, file.subspan(kPrefixSize, headerSize));
    const std::span<const uint8_t> data = file.subspan(kPrefixSize + headerSize);
    std::map<std::string, Tensor> tensors;
    for (const auto& [name, entry] : header.items()) {
        if (name != "__metadata__") {
            tensors[name] = ParseTensor(entry, path + ": tensor " + Quoted(name) + ": ", data);
        }
    }
    CheckCoverage(path, tensors, data);
    return tensors;
}

std::vector<int32_t> TakeValues(const std::string& path, std::map<std::string, Tensor>* tensors,
                                const std::string& name, const std::vector<int64_t>& shape,
                                Range range) {
    const auto found = tensors->find(name);
    if (found == tensors->end()) {
        throw PackError(path + ": tensor " + Quoted(name) + " is missing");
    }
    const std::string where = path + ": tensor " + Quoted(name) + ": ";
    const Tensor& tensor = found->second;
    if (tensor.shape != shape) {
        throw PackError(where + "shape is " + ToString(tensor.shape) + ", must be " +
                        ToString(shape));
    }
    std::vector<int32_t> values;
    for (size_t at = 0; at < tensor.data.size(); at += tensor.elementSize) {
        const int64_t value = ReadSigned(tensor.data.subspan(at, tensor.elementSize));
        if (value < range.low || value > range.high) {
            throw PackError(where + "element " + std::to_string(values.size()) + " is " +
                            std::to_string(value) + ", must be between " +
                            std::to_string(range.low) + " and " + std::to_string(range.high));
        }
        values.push_back(static_cast<int32_t>(value));
    }
    tensors->erase(found);
    return values;
}

} // namespace

std::vector<LayerParameters> ReadModel(const std::string& path, std::span<const Layer> layers) {
    const std::vector<uint8_t> file = ReadFile(path, kMaxFileSize);
    std::map<std::string, Tensor> tensors = ParseTensors(path, file);
    std::vector<LayerParameters> parameters;
    for (const Layer& layer : layers) {
        LayerParameters p;
        p.weights = TakeValues(path, &tensors, WeightName(layer), WeightShape(layer), kWeightRange);
        p.biases = TakeValues(path, &tensors, BiasName(layer), {layer.out}, kBiasRange);
        parameters.push_back(std::move(p));
    }
    if (!tensors.empty()) {
        throw PackError(path + ": tensor " + Quoted(tensors.begin()->first) +
                        " belongs to no layer");
    }
    return parameters;
}

} // namespace orvo::pack
