// SPDX-License-Identifier: MIT
// The packer from outside: good inputs, and every kind of bad one. A refusal is one line on
// standard error, exit status 1 and no file.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

std::string ReadText(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void WriteText(const fs::path& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text;
    ASSERT_TRUE(file.good());
}

// A safetensors file taken apart.
struct Model {
    Json header = Json::object();
    std::string data;

    static Model Read(const fs::path& path) {
        const std::string all = ReadText(path);
        uint64_t size = 0;
        all.copy(reinterpret_cast<char*>(&size), 8);
        return {Json::parse(all.substr(8, size)), all.substr(8 + size)};
    }

    // The same tensors in the order of their names, so that the tests know what lies where.
    static Model ReadSorted(const fs::path& path) {
        const Model model = Read(path);
        Model sorted;
        const nlohmann::json byName = model.header;
        for (const auto& [name, entry] : byName.items()) {
            const size_t begin = sorted.data.size();
            sorted.data += model.Data(name);
            sorted.header[name] = entry;
            sorted.header[name]["data_offsets"] = {begin, sorted.data.size()};
        }
        return sorted;
    }

    static std::string Assemble(const std::string& header, const std::string& data) {
        const uint64_t size = header.size();
        return std::string(reinterpret_cast<const char*>(&size), 8) + header + data;
    }

    std::string Text() const { return Assemble(header.dump(), data); }

    // Replaces a tensor's data, moving what lies behind it.
    void SetData(const std::string& name, const std::string& bytes) {
        const size_t begin = header[name]["data_offsets"][0];
        const size_t end = header[name]["data_offsets"][1];
        data.replace(begin, end - begin, bytes);
        for (auto& [other, entry] : header.items()) {
            for (auto& offset : entry["data_offsets"]) {
                if (offset >= end && (other != name || offset != begin)) {
                    offset = offset.get<size_t>() + bytes.size() - (end - begin);
                }
            }
        }
    }

    std::string Data(const std::string& name) const {
        const size_t begin = header[name]["data_offsets"][0];
        const size_t end = header[name]["data_offsets"][1];
        return data.substr(begin, end - begin);
    }
};

template <typename Wide>
std::string Widened(const std::string& bytes) {
    std::string wide;
    for (const char c : bytes) {
        const Wide value = static_cast<signed char>(c);
        wide.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
    return wide;
}

struct RunResult {
    int status;
    std::string text; // standard error and output
};

class PackModels : public testing::Test {
  protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "orvo_pack_XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
        align_ = folder_ / "align.safetensors";
        fr_ = folder_ / "fr.safetensors";
        key_ = folder_ / "test.key";
        out_ = folder_ / "out";
        RestoreModels();
        fs::copy_file(ORVO_KEY_FILE, key_);
    }

    void RestoreModels() const {
        WriteText(align_, Model::ReadSorted(ORVO_MODEL_DIR "/align.safetensors").Text());
        WriteText(fr_, Model::ReadSorted(ORVO_MODEL_DIR "/fr.safetensors").Text());
    }

    void TearDown() override { fs::remove_all(folder_); }

    RunResult Execute(const std::string& arguments) const {
        const fs::path captured = folder_ / "captured";
        const int status = std::system((std::string("'") + ORVO_PACK_MODELS + "' " + arguments +
                                        " >'" + captured.string() + "' 2>&1")
                                           .c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadText(captured)};
    }

    RunResult Pack(const std::string& more = "", const std::string& out = "out") const {
        return Execute("--align '" + align_.string() + "' --fr '" + fr_.string() + "' --key '" +
                       key_.string() + "' --out '" + (folder_ / out).string() + "' " + more);
    }

    std::vector<std::string> Outputs() const {
        std::vector<std::string> names;
        if (fs::exists(out_)) {
            for (const auto& entry : fs::directory_iterator(out_)) {
                names.push_back(entry.path().filename().string());
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    void ExpectRefused(const std::string& line, const std::string& more = "") const {
        const RunResult result = Pack(more);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.text, "pack_models: " + line + "\n");
        EXPECT_TRUE(Outputs().empty());
    }

    // Changes the recognition model, or the alignment model, and expects the line about it.
    void ExpectFrRefused(const std::function<void(Model*)>& change, const std::string& line) const {
        Model model = Model::Read(fr_);
        change(&model);
        WriteText(fr_, model.Text());
        ExpectRefused(fr_.string() + ": " + line);
    }

    void ExpectRawFrRefused(const std::string& text, const std::string& line) const {
        WriteText(fr_, text);
        ExpectRefused(fr_.string() + ": " + line);
    }

    void ExpectKeyRefused(const std::string& text, const std::string& line) const {
        WriteText(key_, text);
        ExpectRefused(key_.string() + ": " + line);
    }

    fs::path folder_, align_, fr_, key_, out_;
};

const std::vector<std::string> kNames = {"align_store.cpp", "fr_store.cpp", "wb_decrypt_table.cpp",
                                         "wb_encrypt_table.cpp"};

std::string KeyLine(const std::string& name, size_t bytes, char digit = '7') {
    return name + " = " + std::string(2 * bytes, digit) + "\n";
}

std::string GoodKeyFile() {
    return KeyLine("white_box_key", 16, '1') + KeyLine("seed", 32) + KeyLine("align_key", 16) +
           KeyLine("align_wrap_iv", 16) + KeyLine("align_array_iv", 16) + KeyLine("fr_key", 16) +
           KeyLine("fr_wrap_iv", 16) + KeyLine("fr_array_iv", 16);
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos);
    return text.replace(at, from.size(), to);
}

std::vector<uint32_t> TableOf(const std::string& source) {
    std::vector<uint32_t> words;
    for (size_t at = source.find('{'); (at = source.find("0x", at)) != std::string::npos; ++at) {
        words.push_back(static_cast<uint32_t>(std::stoul(source.substr(at + 2, 8), nullptr, 16)));
    }
    return words;
}

// The custom data that a table shows.
std::string CustomDataOf(const std::vector<uint32_t>& table) {
    std::string collected;
    for (unsigned column = 0; collected.size() < 260; ++column) {
        const uint32_t* sub = table.data() + 16 * 256 + 4 * 256 * column; // from round 1 on
        for (unsigned shift = 0; shift < 32; shift += 8) {
            for (unsigned x = 0; x < 4; ++x) {
                const uint32_t word = sub[x] ^ sub[256 + x] ^ sub[512 + x] ^ sub[768 + x];
                collected += static_cast<char>(word >> shift);
            }
        }
    }
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(collected[i]); };
    uint32_t state = byte(0) | static_cast<uint32_t>(byte(1)) << 8;
    const auto next = [&] {
        state = state * 1103515245u + 12345u;
        return static_cast<uint8_t>(state);
    };
    size_t length = static_cast<uint8_t>(byte(2) ^ next());
    length |= static_cast<size_t>(byte(3) ^ next()) << 8;
    std::string data;
    for (size_t i = 0; i < length && i < 256; ++i) {
        data += static_cast<char>(byte(4 + i) ^ next());
    }
    EXPECT_EQ(data.size(), length);
    return data;
}

TEST_F(PackModels, WritesTheFourSourcesAndNothingElse) {
    const RunResult result = Pack();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.text, "");
    EXPECT_EQ(Outputs(), kNames);
}

TEST_F(PackModels, TheSameInputsGiveTheSameBytes) {
    ASSERT_EQ(Pack("--custom-data 'batch 7'", "out").status, 0);
    ASSERT_EQ(Pack("--custom-data 'batch 7'", "again").status, 0);
    for (const std::string& name : kNames) {
        EXPECT_FALSE(ReadText(out_ / name).empty());
        EXPECT_TRUE(ReadText(out_ / name) == ReadText(folder_ / "again" / name)) << name;
    }
}

TEST_F(PackModels, ReplacesAnEarlierStore) {
    fs::create_directory(out_);
    WriteText(out_ / "fr_store.cpp", "old");
    ASSERT_EQ(Pack().status, 0);
    EXPECT_EQ(Outputs(), kNames);
    EXPECT_NE(ReadText(out_ / "fr_store.cpp"), "old");
}

TEST_F(PackModels, AFailureLeavesAnEarlierStoreAsItWas) {
    fs::create_directory(out_);
    WriteText(out_ / "fr_store.cpp", "old");
    fs::remove(align_);
    EXPECT_EQ(Pack().status, 1);
    EXPECT_EQ(Outputs(), std::vector<std::string>{"fr_store.cpp"});
    EXPECT_EQ(ReadText(out_ / "fr_store.cpp"), "old");
}

TEST_F(PackModels, TheSourcesHoldNoPlainKey) {
    WriteText(key_, GoodKeyFile());
    ASSERT_EQ(Pack().status, 0);
    for (const std::string& name : kNames) {
        const std::string text = ReadText(out_ / name);
        EXPECT_EQ(text.find("0x11, 0x11, 0x11"), std::string::npos) << name;
        EXPECT_EQ(text.find("0x11111111, 0x11111111"), std::string::npos) << name;
    }
}

TEST_F(PackModels, WeightsOfAWiderTypePackToTheSameBytes) {
    ASSERT_EQ(Pack("", "narrow").status, 0);
    Model model = Model::Read(fr_);
    model.header["0.weight"]["dtype"] = "I32";
    model.SetData("0.weight", Widened<int32_t>(model.Data("0.weight")));
    model.header["5.weight"]["dtype"] = "I16";
    model.SetData("5.weight", Widened<int16_t>(model.Data("5.weight")));
    WriteText(fr_, model.Text());
    ASSERT_EQ(Pack().status, 0);
    EXPECT_TRUE(ReadText(out_ / "fr_store.cpp") == ReadText(folder_ / "narrow" / "fr_store.cpp"));
}

TEST_F(PackModels, MetadataIsAllowed) {
    Model model = Model::Read(fr_);
    model.header["__metadata__"] = {{"format", "pt"}};
    WriteText(fr_, model.Text());
    EXPECT_EQ(Pack().status, 0);
}

TEST_F(PackModels, ArraysWithEqualBeginningsHaveEqualStoredBeginnings) {
    Model model = Model::Read(fr_);
    for (const char* name : {"2.bias", "9.bias"}) {
        std::string bytes = model.Data(name);
        std::fill_n(bytes.begin(), 64, '\x21');
        model.SetData(name, bytes);
    }
    WriteText(fr_, model.Text());
    ASSERT_EQ(Pack().status, 0);
    const std::string text = ReadText(out_ / "fr_store.cpp");
    const auto firstLine = [&](const std::string& name) {
        const size_t at = text.find('\n', text.find(name + "["));
        return text.substr(at + 1, text.find('\n', at + 1) - at - 1);
    };
    EXPECT_EQ(firstLine("g_frBias2"), firstLine("g_frBias9"));
    EXPECT_NE(firstLine("g_frBias2"), firstLine("g_frBias5"));
}

TEST_F(PackModels, UnusedBytesAndTailsArePlain) {
    ASSERT_EQ(Pack().status, 0);
    const std::string text = ReadText(out_ / "fr_store.cpp");
    // 872 bytes: the last 8 are behind the last whole block, and behind the filters.
    const size_t end = text.find("\n};", text.find("g_frWeights0["));
    EXPECT_EQ(text.substr(end - 24, 24), " 0, 0, 0, 0, 0, 0, 0, 0,");
}

// ---- Custom data

TEST_F(PackModels, HidesNoCustomDataUnlessGiven) {
    ASSERT_EQ(Pack().status, 0);
    EXPECT_EQ(CustomDataOf(TableOf(ReadText(out_ / "wb_decrypt_table.cpp"))), "");
}

TEST_F(PackModels, HidesTextAsCustomData) {
    ASSERT_EQ(Pack("--custom-data 'Front door, batch 12'").status, 0);
    EXPECT_EQ(CustomDataOf(TableOf(ReadText(out_ / "wb_decrypt_table.cpp"))),
              "Front door, batch 12");
}

TEST_F(PackModels, HidesAFileAsCustomData) {
    for (const size_t length : {0u, 1u, 17u, 255u, 256u}) {
        std::string data;
        for (size_t i = 0; i < length; ++i) {
            data += static_cast<char>(i * 151 + length);
        }
        WriteText(folder_ / "data", data);
        ASSERT_EQ(Pack("--custom-data-file '" + (folder_ / "data").string() + "'").status, 0);
        EXPECT_EQ(CustomDataOf(TableOf(ReadText(out_ / "wb_decrypt_table.cpp"))), data);
    }
}

TEST_F(PackModels, RefusesMoreThan256BytesOfCustomData) {
    ExpectRefused("custom data has 257 bytes, at most 256 can be hidden",
                  "--custom-data '" + std::string(257, 'x') + "'");
    WriteText(folder_ / "data", std::string(257, 'x'));
    ExpectRefused((folder_ / "data").string() + ": custom data has more than 256 bytes",
                  "--custom-data-file '" + (folder_ / "data").string() + "'");
}

TEST_F(PackModels, RefusesAMissingCustomDataFile) {
    ExpectRefused((folder_ / "none").string() + ": cannot be read",
                  "--custom-data-file '" + (folder_ / "none").string() + "'");
}

// ---- Files

TEST_F(PackModels, RefusesAMissingModel) {
    fs::remove(fr_);
    ExpectRefused(fr_.string() + ": cannot be opened");
}

TEST_F(PackModels, RefusesAMissingKeyFile) {
    fs::remove(key_);
    ExpectRefused(key_.string() + ": cannot be opened");
}

TEST_F(PackModels, RefusesAFolderInPlaceOfAModel) {
    fs::remove(fr_);
    fs::create_directory(fr_);
    ExpectRefused(fr_.string() + ": cannot be read");
}

TEST_F(PackModels, RefusesAnOutputFolderThatIsAFile) {
    WriteText(out_, "in the way");
    const RunResult result = Pack();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.text, "pack_models: " + out_.string() + ": cannot be made\n");
    EXPECT_EQ(ReadText(out_), "in the way");
}

TEST_F(PackModels, AnOutputThatCannotTakeItsNameLeavesNone) {
    fs::create_directories(out_ / "wb_encrypt_table.cpp" / "full"); // the last to be named
    const RunResult result = Pack();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.text,
              "pack_models: " + (out_ / "wb_encrypt_table.cpp").string() + ": cannot be written\n");
    EXPECT_EQ(Outputs(), std::vector<std::string>{"wb_encrypt_table.cpp"});
}

TEST_F(PackModels, RefusesMissingArgumentsInOneLine) {
    for (const char* arguments : {"", "--align a --fr b --key c", "--surplus", "--key c --out d",
                                  "--align a --key c --out d", "--fr b --find f --key c --out d"}) {
        const RunResult result = Execute(arguments);
        EXPECT_EQ(result.status, 1) << arguments;
        EXPECT_EQ(result.text.find("pack_models: "), 0u) << result.text;
        EXPECT_EQ(std::count(result.text.begin(), result.text.end(), '\n'), 1) << result.text;
    }
}

// ---- The model that finds faces, which another library has

std::string FindKeys() {
    return KeyLine("find_key", 16, '5') + KeyLine("find_wrap_iv", 16) +
           KeyLine("find_array_iv", 16);
}

TEST_F(PackModels, TheFindingModelIsPackedAloneAndWithTheOthersToTheSameBytes) {
    WriteText(key_, GoodKeyFile() + FindKeys());
    const std::string find = " --find '" ORVO_MODEL_DIR "/find.safetensors'";
    const RunResult alone = Execute("--key '" + key_.string() + "' --out '" +
                                    (folder_ / "alone").string() + "'" + find);
    EXPECT_EQ(alone.status, 0) << alone.text;
    ASSERT_EQ(Pack(find).status, 0);
    std::vector<std::string> names = kNames;
    names.emplace_back("find_store.cpp");
    std::sort(names.begin(), names.end());
    EXPECT_EQ(Outputs(), names);
    const std::string source = ReadText(out_ / "find_store.cpp");
    EXPECT_EQ(source, ReadText(folder_ / "alone" / "find_store.cpp"));
    EXPECT_NE(source.find("g_findWeights26"), std::string::npos);
    EXPECT_EQ(source.find("0x55, 0x55, 0x55"), std::string::npos);
    EXPECT_FALSE(fs::exists(folder_ / "alone" / "fr_store.cpp"));
}

TEST_F(PackModels, TheOtherStoresAreTheSameWithAndWithoutTheFindingModelsKeys) {
    WriteText(key_, GoodKeyFile());
    ASSERT_EQ(Pack("", "before").status, 0);
    WriteText(key_, GoodKeyFile() + FindKeys());
    ASSERT_EQ(Pack().status, 0);
    for (const std::string& name : kNames) {
        EXPECT_EQ(ReadText(out_ / name), ReadText(folder_ / "before" / name)) << name;
    }
}

TEST_F(PackModels, TheFindingModelNeedsItsKeys) {
    WriteText(key_, GoodKeyFile());
    ExpectRefused(key_.string() + ": find_key is missing",
                  "--find '" ORVO_MODEL_DIR "/find.safetensors'");
    for (const std::string name : {"find_key", "find_wrap_iv", "find_array_iv"}) {
        const std::string keys = FindKeys();
        const size_t at = keys.find(name);
        ExpectKeyRefused(
            GoodKeyFile() + Replaced(keys, keys.substr(at, keys.find('\n', at) + 1 - at), ""),
            name + " is missing");
    }
}

TEST_F(PackModels, RefusesAModelThatIsNotTheFindingOne) {
    WriteText(key_, GoodKeyFile() + FindKeys());
    ExpectRefused(align_.string() +
                      ": tensor \"0.weight\": shape is [32, 1, 3, 3], must be "
                      "[32, 16, 1, 1]",
                  "--find '" + align_.string() + "'");
}

// ---- The key file

TEST_F(PackModels, AKeyFileMayHaveCommentsAndBlanks) {
    WriteText(key_,
              "# a comment\n\n  " + Replaced(GoodKeyFile(), "seed = ", "\tseed=  ") + "# the end");
    EXPECT_EQ(Pack().status, 0);
    WriteText(key_, Replaced(GoodKeyFile(), "7777\n", "7777 # and a remark\r\n"));
    EXPECT_EQ(Pack().status, 0);
}

TEST_F(PackModels, EveryEntryOfTheKeyFileIsNeeded) {
    const std::string good = GoodKeyFile();
    for (const std::string name : {"white_box_key", "seed", "align_key", "align_wrap_iv",
                                   "align_array_iv", "fr_key", "fr_wrap_iv", "fr_array_iv"}) {
        const size_t at = good.find(name);
        ExpectKeyRefused(Replaced(good, good.substr(at, good.find('\n', at) + 1 - at), ""),
                         name + " is missing");
    }
}

TEST_F(PackModels, AnEmptyKeyFileIsRefused) { ExpectKeyRefused("", "white_box_key is missing"); }

TEST_F(PackModels, ARepeatedEntryIsRefused) {
    ExpectKeyRefused(GoodKeyFile() + KeyLine("fr_key", 16),
                     "line 9: fr_key is given a second time");
}

TEST_F(PackModels, AnUnknownEntryIsRefusedWithoutShowingIt) {
    ExpectKeyRefused(GoodKeyFile() + "0badc0de0badc0de = fr_key\n",
                     "line 9: unknown name before '='");
}

TEST_F(PackModels, ALineWithoutEqualsIsRefusedWithoutShowingIt) {
    ExpectKeyRefused("0badc0de0badc0de\n" + GoodKeyFile(), "line 1: not of the form 'name = hex'");
}

TEST_F(PackModels, AShortOrLongValueIsRefused) {
    ExpectKeyRefused(Replaced(GoodKeyFile(), "fr_key = 77", "fr_key = "),
                     "line 6: the value of fr_key has 30 hexadecimal digits, must have 32");
    ExpectKeyRefused(Replaced(GoodKeyFile(), "fr_key = 77", "fr_key = 7"),
                     "line 6: the value of fr_key has 31 hexadecimal digits, must have 32");
    ExpectKeyRefused(Replaced(GoodKeyFile(), "seed = 77", "seed = 7777"),
                     "line 2: the value of seed has 66 hexadecimal digits, must have 64");
    ExpectKeyRefused(Replaced(GoodKeyFile(), KeyLine("fr_key", 16), "fr_key =\n"),
                     "line 6: the value of fr_key has 0 hexadecimal digits, must have 32");
}

TEST_F(PackModels, AValueThatIsNotHexadecimalIsRefused) {
    ExpectKeyRefused(Replaced(GoodKeyFile(), "fr_key = 77", "fr_key = 7g"),
                     "line 6: the value of fr_key is not hexadecimal");
    ExpectKeyRefused(Replaced(GoodKeyFile(), "fr_key = 77", "fr_key = 77 77"),
                     "line 6: the value of fr_key is not hexadecimal");
}

TEST_F(PackModels, AKeyFileWithoutEndIsRefused) {
    fs::remove(key_);
    fs::create_symlink("/dev/zero", key_);
    ExpectRefused(key_.string() + ": is larger than 64 KiB");
}

TEST_F(PackModels, ALargeKeyFileIsRefused) {
    const std::string comment = "# a comment\n";
    std::string text = GoodKeyFile();
    while (text.size() + comment.size() <= 64 * 1024) {
        text += comment;
    }
    WriteText(key_, text);
    EXPECT_EQ(Pack().status, 0);
    fs::remove_all(out_);
    ExpectKeyRefused(text + comment, "is larger than 64 KiB");
}

TEST_F(PackModels, NoMessageShowsKeyBytes) {
    for (const char* text :
         {"fr_key = 0badc0de0badc0de\n", "fr_key = 0badc0dex\n", "0badc0de\n", "0badc0de = 1\n"}) {
        WriteText(key_, text);
        EXPECT_EQ(Pack().text.find("0badc0de"), std::string::npos) << text;
    }
}

// ---- The models

TEST_F(PackModels, AMissingTensorIsNamed) {
    ExpectFrRefused(
        [](Model* model) {
            model->SetData("46.bias", "");
            model->header.erase("46.bias");
        },
        "tensor \"46.bias\" is missing");
}

TEST_F(PackModels, ASurplusTensorIsNamed) {
    ExpectFrRefused(
        [](Model* model) {
            const size_t end = model->data.size();
            model->data += "x";
            model->header["3.weight"] = {
                {"dtype", "I8"}, {"shape", {1}}, {"data_offsets", {end, end + 1}}};
        },
        "tensor \"3.weight\" belongs to no layer");
}

TEST_F(PackModels, ARepeatedTensorIsNamed) {
    const Model model = Model::Read(fr_);
    const std::string header = model.header.dump();
    const std::string entry = "\"0.bias\":" + model.header["0.bias"].dump();
    ExpectRawFrRefused(
        Model::Assemble(header.substr(0, header.size() - 1) + "," + entry + "}", model.data),
        "tensor \"0.bias\" stands there twice");
}

TEST_F(PackModels, AWrongShapeIsNamed) {
    ExpectFrRefused(
        [](Model* model) {
            model->header["7.weight"]["shape"] = {32, 64, 1, 1};
        },
        "tensor \"7.weight\": shape is [32, 64, 1, 1], must be [64, 32, 1, 1]");
}

TEST_F(PackModels, AWrongNumberOfDimensionsIsNamed) {
    ExpectFrRefused(
        [](Model* model) {
            model->header["106.weight"]["shape"] = {128, 256, 1, 1};
        },
        "tensor \"106.weight\": shape is [128, 256, 1, 1], must be [128, 256]");
}

TEST_F(PackModels, AWrongBiasShapeIsNamed) {
    ExpectFrRefused(
        [](Model* model) {
            model->header["0.bias"]["shape"] = {32, 1};
        },
        "tensor \"0.bias\": shape is [32, 1], must be [32]");
}

TEST_F(PackModels, AnEmptyTensorIsNamed) {
    ExpectFrRefused(
        [](Model* model) {
            model->SetData("0.bias", "");
            model->header["0.bias"]["shape"] = {0};
            model->header["0.bias"]["data_offsets"] = {0, 0};
        },
        "tensor \"0.bias\": shape is [0], must be [32]");
}

TEST_F(PackModels, AWrongTypeIsNamed) {
    for (const Json& type : {Json("F32"), Json("U8"), Json("i8"), Json(8), Json(nullptr)}) {
        ExpectFrRefused([&](Model* model) { model->header["0.weight"]["dtype"] = type; },
                        "tensor \"0.weight\": dtype is not I8, I16, I32 or I64");
    }
}

TEST_F(PackModels, ATypeOfAnotherSizeIsNamed) {
    ExpectFrRefused([](Model* model) { model->header["0.weight"]["dtype"] = "I16"; },
                    "tensor \"0.weight\": data_offsets span 864 bytes, which shape [32, 3, 3, 3] "
                    "does not take");
}

TEST_F(PackModels, AWeightOutOfRangeIsNamed) {
    for (const int value : {128, -129, 32767}) {
        RestoreModels();
        ExpectFrRefused(
            [&](Model* model) {
                std::string wide = Widened<int16_t>(model->Data("5.weight"));
                const auto element = static_cast<int16_t>(value);
                wide.replace(2 * 40, 2, reinterpret_cast<const char*>(&element), 2);
                model->header["5.weight"]["dtype"] = "I16";
                model->SetData("5.weight", wide);
            },
            "tensor \"5.weight\": element 40 is " + std::to_string(value) +
                ", must be between -128 and 127");
    }
}

TEST_F(PackModels, ABiasOutOfRangeIsNamed) {
    for (const int64_t value : {int64_t{2147483648}, int64_t{-2147483649}, INT64_MIN}) {
        RestoreModels();
        ExpectFrRefused(
            [&](Model* model) {
                std::string wide(32 * 8, '\0');
                wide.replace(8 * 31, 8, reinterpret_cast<const char*>(&value), 8);
                model->header["0.bias"]["dtype"] = "I64";
                model->SetData("0.bias", wide);
            },
            "tensor \"0.bias\": element 31 is " + std::to_string(value) +
                ", must be between -2147483648 and 2147483647");
    }
}

TEST_F(PackModels, ExtremeBiasesAreAccepted) {
    Model model = Model::Read(fr_);
    std::string wide;
    for (int i = 0; i < 32; ++i) {
        const int64_t value = i % 2 == 0 ? int64_t{INT32_MIN} : int64_t{INT32_MAX};
        wide.append(reinterpret_cast<const char*>(&value), 8);
    }
    model.header["0.bias"]["dtype"] = "I64";
    model.SetData("0.bias", wide);
    WriteText(fr_, model.Text());
    EXPECT_EQ(Pack().status, 0);
}

TEST_F(PackModels, DataBeyondTheFileIsNamed) {
    Model model = Model::Read(fr_);
    const size_t size = model.data.size();
    std::string last;
    for (const auto& [name, entry] : model.header.items()) {
        last = entry["data_offsets"][1] == size ? name : last;
    }
    model.data.pop_back();
    WriteText(fr_, model.Text());
    ExpectRefused(fr_.string() + ": tensor " + Json(last).dump() + ": data ends at byte " +
                  std::to_string(size) + ", the file holds " + std::to_string(size - 1));
}

TEST_F(PackModels, BytesBehindTheLastTensorAreRefused) {
    ExpectFrRefused([](Model* model) { model->data += "xyz"; }, "3 bytes behind the last tensor");
}

TEST_F(PackModels, OverlappingTensorsAreNamed) {
    ExpectFrRefused(
        [](Model* model) {
            auto& offsets = model->header["2.bias"]["data_offsets"];
            offsets = {offsets[0].get<size_t>() - 4, offsets[1].get<size_t>() - 4};
        },
        "tensor \"2.bias\": data overlaps another tensor's");
}

TEST_F(PackModels, AGapBetweenTensorsIsNamed) {
    ExpectFrRefused(
        [](Model* model) {
            model->data += "1234";
            const size_t end = model->data.size();
            for (auto& [name, entry] : model->header.items()) {
                auto& offsets = entry["data_offsets"];
                if (offsets[1].get<size_t>() == end - 4) {
                    offsets = {offsets[0].get<size_t>() + 4, end};
                }
            }
        },
        "tensor \"99.weight\": data leaves a gap behind the tensor before");
}

TEST_F(PackModels, MalformedOffsetsAreNamed) {
    const std::string tensor = "tensor \"0.bias\": ";
    const std::vector<std::pair<Json, std::string>> cases = {
        {Json::array({128, 0}), "data_offsets is not a begin and an end"},
        {Json::array({0}), "data_offsets is not a begin and an end"},
        {Json::array({0, 64, 128}), "data_offsets is not a begin and an end"},
        {Json::array({-4, 124}), "data_offsets is not a list of whole numbers"},
        {Json::array({0, 128.5}), "data_offsets is not a list of whole numbers"},
        {Json::array({0, UINT64_MAX}), "data_offsets is not a list of whole numbers"},
        {Json("0"), "data_offsets is not a list of whole numbers"},
        {Json::array({0, 124}), "data_offsets span 124 bytes, which shape [32] does not take"}};
    for (const auto& [offsets, line] : cases) {
        ExpectFrRefused([&offsets = offsets](
                            Model* model) { model->header["0.bias"]["data_offsets"] = offsets; },
                        tensor + line);
    }
}

TEST_F(PackModels, MalformedShapesAreNamed) {
    const std::string tensor = "tensor \"0.bias\": ";
    const std::vector<std::pair<Json, std::string>> cases = {
        {Json::array({-32}), "shape is not a list of whole numbers"},
        {Json::array({"32"}), "shape is not a list of whole numbers"},
        {Json(32), "shape is not a list of whole numbers"},
        {Json::array({INT64_MAX, INT64_MAX}),
         "data_offsets span 128 bytes, which shape [9223372036854775807, 9223372036854775807] does "
         "not take"}};
    for (const auto& [shape, line] : cases) {
        ExpectFrRefused(
            [&shape = shape](Model* model) { model->header["0.bias"]["shape"] = shape; },
            tensor + line);
    }
}

TEST_F(PackModels, IncompleteEntriesAreNamed) {
    for (const char* field : {"dtype", "shape", "data_offsets"}) {
        RestoreModels();
        ExpectFrRefused([&](Model* model) { model->header["0.bias"].erase(field); },
                        "tensor \"0.bias\": dtype, shape or data_offsets is missing");
    }
    RestoreModels();
    ExpectFrRefused([](Model* model) { model->header["0.bias"] = 5; },
                    "tensor \"0.bias\": dtype, shape or data_offsets is missing");
}

TEST_F(PackModels, FilesThatAreNoSafetensorsAreRefused) {
    const Model model = Model::Read(fr_);
    ExpectRawFrRefused("", "is too short for a safetensors file");
    ExpectRawFrRefused("1234567", "is too short for a safetensors file");
    ExpectRawFrRefused(std::string("\xff\xff\xff\xff\xff\xff\xff\xff{}", 10),
                       "the header is cut off");
    ExpectRawFrRefused(model.Text().substr(0, 1000), "the header is cut off");
    ExpectRawFrRefused(Model::Assemble("", ""), "the header is not a JSON object");
    ExpectRawFrRefused(Model::Assemble("[]", ""), "the header is not a JSON object");
    ExpectRawFrRefused(Model::Assemble("{\"a\":", ""), "the header is not a JSON object");
    ExpectRawFrRefused(Model::Assemble("{\"\xff\":1}", ""), "the header is not a JSON object");
    ExpectRawFrRefused(Model::Assemble("{}", ""), "tensor \"0.weight\" is missing");
}

TEST_F(PackModels, AHostileNameStaysOnOneLine) {
    ExpectRawFrRefused(Model::Assemble("{\"a\\nb\":1}", ""),
                       "tensor \"a\\nb\": dtype, shape or data_offsets is missing");
}

TEST_F(PackModels, TheModelsCannotBeMistakenForEachOther) {
    fs::copy_file(align_, fr_, fs::copy_options::overwrite_existing);
    ExpectRefused(fr_.string() +
                  ": tensor \"0.weight\": shape is [32, 1, 3, 3], must be [32, 3, 3, 3]");
}

TEST_F(PackModels, TheAlignmentModelIsCheckedAlike) {
    Model model = Model::Read(align_);
    model.header["58.weight"]["shape"] = {68, 4};
    WriteText(align_, model.Text());
    ExpectRefused(align_.string() + ": tensor \"58.weight\": shape is [68, 4], must be [4, 68]");
}

} // namespace
