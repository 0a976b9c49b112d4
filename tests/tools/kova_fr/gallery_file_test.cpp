// SPDX-License-Identifier: MIT
// Galleries as they lie in files, both versions, and the search among their entries.
#include "gallery/gallery_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <set>

#include "files/failure.h"
#include "gallery/checksum.h"
#include "gallery/gallery_writer.h"
#include "gallery/search.h"
#include "gallery_files.h"
#include "orvo/orvo_fr.h"
#include "support/random.h"

namespace kova_fr_test {
namespace {

using kova_cli::GalleryBlock;
using kova_cli::GalleryFile;
using kova_cli::Match;
using kova_cli::Search;
using kova_cli::Sha256;

// ---- The checksum

std::string RandomBytes(size_t count, uint64_t seed) {
    orvo_test::Random random(seed);
    std::string bytes(count, '\0');
    random.Fill(reinterpret_cast<int8_t*>(bytes.data()), count);
    return bytes;
}

// One lane's, of 32 equal bytes, inverted as others give it.
uint32_t KnownCrc(char byte) {
    std::string stripes;
    for (int word = 0; word < 4; ++word) {
        stripes += std::string(8, byte) + std::string(24, '\0'); // what the other lanes get
    }
    return ~PlainChecksum({~0u, ~0u, ~0u, ~0u}, stripes)[0];
}

TEST(Checksum, OfTheDefinitionIsTheKnownOne) {
    EXPECT_EQ(KnownCrc('\0'), 0x8a9136aau);
    EXPECT_EQ(KnownCrc('\xff'), 0x62a8ab43u);
}

TEST(Checksum, IsThatOfTheDefinitionForEveryLengthAndBeginning) {
    for (size_t count = 0; count <= 300; ++count) {
        const std::string bytes = RandomBytes(count + 1, count);
        const Sums before = {static_cast<uint32_t>(count), ~0u, 0x12345678u, 0u};
        const Sums expected = PlainChecksum(before, bytes.substr(1));
        // Also where it does not begin at a word.
        EXPECT_EQ(kova_cli::ChecksumOf(before, bytes.data() + 1, count), expected) << count;
        EXPECT_EQ(kova_cli::ChecksumByTables(before, bytes.data() + 1, count), expected) << count;
    }
}

// ---- Files

const std::string kModels = RandomBytes(32, 7);

Sha256 ModelsOf(const std::string& bytes) {
    Sha256 models;
    std::copy(bytes.begin(), bytes.end(), models.begin());
    return models;
}

class GalleryFiles : public testing::Test {
  protected:
    // What came of reading a file of these bytes: its entries, or why there are none.
    struct Reading {
        Entries entries;
        std::string failure;
    };

    Reading ReadBack(const std::string& bytes) {
        WriteFile(path_, bytes);
        Reading reading;
        try {
            const GalleryFile file(path_, ModelsOf(kModels));
            file.Read([&reading](const GalleryBlock& block) { Append(reading.entries, block); });
            EXPECT_EQ(file.count(), reading.entries.names.size());
        } catch (const kova_cli::Failure& failure) {
            reading.failure = failure.what();
            EXPECT_EQ(reading.failure.find(path_ + ": "), 0u) << reading.failure;
        }
        return reading;
    }

    static void Append(Entries& entries, const GalleryBlock& block) {
        EXPECT_EQ(block.firstEntry, entries.names.size());
        EXPECT_FALSE(block.names.empty());
        for (size_t i = 0; i < block.names.size(); ++i) {
            Feature feature;
            std::memcpy(feature.data(), block.features + i * feature.size(), sizeof feature);
            entries.features.push_back(feature);
            entries.names.emplace_back(block.names[i]);
        }
    }

    void ExpectEntries(const std::string& bytes, const Entries& entries) {
        const Reading reading = ReadBack(bytes);
        EXPECT_EQ(reading.failure, "");
        EXPECT_EQ(reading.entries.names, entries.names);
        EXPECT_TRUE(reading.entries.features == entries.features);
    }

    void ExpectFailure(const std::string& bytes, const std::string& part) {
        const Reading reading = ReadBack(bytes);
        EXPECT_NE(reading.failure.find(part), std::string::npos) << reading.failure;
    }

    void ExpectDamaged(const std::string& bytes) { ExpectFailure(bytes, "damaged or cut short"); }

    TempFolder folder_;
    const std::string path_ = folder_ / "g";
};

std::string Version2Of(const Entries& entries) {
    return Version2File(kModels, BlocksOf(entries), entries.names.size());
}

// Around the borders of blocks.
constexpr size_t kCounts[] = {0, 1, 2, 511, 512, 513, 1024, 1025};

TEST_F(GalleryFiles, ArePackedAsDescribed) {
    for (const size_t count : kCounts) {
        const Entries entries = RandomEntries(count, count);
        kova_cli::GalleryWriter writer(path_, ModelsOf(kModels));
        for (size_t i = 0; i < count; ++i) {
            writer.Add(entries.features[i].data(), entries.names[i]);
        }
        EXPECT_EQ(writer.Finish(), count);
        EXPECT_TRUE(ReadFile(path_) == Version2Of(entries)) << count;
    }
}

TEST_F(GalleryFiles, OfBothVersionsAreRead) {
    for (const size_t count : kCounts) {
        Entries entries = RandomEntries(count, count);
        if (count > 1) {
            entries.names[1] = std::string(65535, 'x');
            entries.names[0] = "";
        }
        ExpectEntries(Version2Of(entries), entries);
        ExpectEntries(Version1File(kModels, entries), entries);
    }
}

TEST_F(GalleryFiles, MayHaveBlocksOfAnySize) {
    const Entries entries = RandomEntries(700, 1);
    for (const size_t blockEntries : {1u, 3u, 100u, 511u}) {
        ExpectEntries(Version2File(kModels, BlocksOf(entries, blockEntries), 700), entries);
    }
}

TEST_F(GalleryFiles, OfBothVersionsAreRefusedWhereverTheyAreCut) {
    const Entries entries = RandomEntries(1030, 2);
    for (const std::string& whole : {Version2Of(entries), Version1File(kModels, entries)}) {
        for (size_t length = 8; length < whole.size(); length += length < 200 ? 1 : 4099) {
            ExpectFailure(whole.substr(0, length), "cut short");
        }
    }
    ExpectDamaged(Version1File(kModels, entries) + "x");
}

// As an addition leaves it that was killed.
TEST_F(GalleryFiles, EndWhereTheirHeaderSays) {
    const Entries entries = RandomEntries(3, 10);
    const std::string whole = Version2Of(entries);
    ExpectEntries(whole + "x", entries);
    ExpectEntries(whole + whole.substr(96), entries);
    ExpectEntries(whole + std::string(4096, '\0'), entries);
}

// As a loss of power leaves it in the middle of an addition.
TEST_F(GalleryFiles, WithTornHeadersAreReadByTheCopyAtTheirEnd) {
    const Entries entries = RandomEntries(3, 11);
    const std::string whole = Version2Of(entries);
    const std::string header = whole.substr(0, 96);
    const std::string torn = header.substr(0, 50) + std::string(46, '\0') + whole.substr(96);
    ExpectEntries(torn + header, entries);
    ExpectDamaged(torn);
    ExpectDamaged(torn + "x" + header);
    ExpectDamaged(torn + header + "x");
    std::string wrong = header;
    wrong[48] = static_cast<char>(wrong[48] ^ 1);
    ExpectDamaged(torn + wrong);
}

TEST_F(GalleryFiles, OfBothVersionsAreRefusedWithWhatIsNoFeature) {
    const float odd[] = {
        std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
        -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::max(), 0.0f};
    for (const float value : odd) {
        Entries entries = RandomEntries(600, 12);
        entries.features[530].fill(value);
        ExpectFailure(Version2Of(entries), "entry 530 is no feature");
        ExpectFailure(Version1File(kModels, entries), "entry 530 is no feature");
    }
    for (const float factor : {0.99f, 1.01f}) {
        Entries entries = RandomEntries(2, 13);
        for (float& number : entries.features[0]) {
            number *= factor;
        }
        ExpectFailure(Version2Of(entries), "entry 0 is no feature");
    }
}

TEST_F(GalleryFiles, CutBetweenTwoBlocksAreRefused) {
    const std::vector<FileBlock> blocks = BlocksOf(RandomEntries(1030, 2));
    const std::string whole = Version2File(kModels, blocks, 1030);
    size_t end = 96;
    for (const FileBlock& block : blocks) {
        ExpectDamaged(whole.substr(0, end));
        end += 16 + block.content.size() + 16;
    }
    EXPECT_EQ(end, whole.size());
}

TEST_F(GalleryFiles, OfBothVersionsAreRefusedWhateverByteIsChanged) {
    const Entries entries = RandomEntries(514, 3);
    const std::string files[] = {Version2Of(entries), Version1File(kModels, entries)};
    for (const std::string& whole : files) {
        for (size_t at = 0; at < whole.size(); at += at < 300 ? 1 : 1009) {
            std::string changed = whole;
            changed[at] = static_cast<char>(changed[at] ^ 0x10);
            EXPECT_NE(ReadBack(changed).failure, "") << at;
        }
    }
}

TEST_F(GalleryFiles, WithBlocksThatAreMissingExchangedOrOfAnEarlierFileAreRefused) {
    const Entries entries = RandomEntries(6, 4);
    const std::string whole = Version2File(kModels, BlocksOf(entries, 2), 6);
    const size_t blockBytes = (whole.size() - 96) / 3;
    const auto block = [&whole, blockBytes](size_t i) {
        return whole.substr(96 + i * blockBytes, blockBytes);
    };
    const std::string header = whole.substr(0, 96);
    ExpectDamaged(header + block(1) + block(0) + block(2));
    ExpectDamaged(header + block(0) + block(0) + block(2));
    Entries earlier = entries;
    earlier.features[3][5] *= -1;
    const std::string before = Version2File(kModels, BlocksOf(earlier, 2), 6);
    for (size_t i = 1; i < 3; ++i) {
        std::string mixed = whole;
        const size_t at = 96 + i * blockBytes;
        mixed.replace(at, blockBytes, before, at, blockBytes);
        ExpectDamaged(mixed);
    }
    // A header of before, with the same number of entries and bytes.
    ExpectDamaged(before.substr(0, 96) + whole.substr(96));
}

// Checksums that fit make nothing right that cannot be.
TEST_F(GalleryFiles, WithImpossibleBlocksAreRefused) {
    const Entries entries = RandomEntries(4, 5);
    const std::vector<FileBlock> good = BlocksOf(entries, 2);
    const auto with = [&good](auto change) {
        std::vector<FileBlock> blocks = good;
        change(blocks);
        return Version2File(kModels, blocks, 4);
    };
    ExpectEntries(with([](auto&) {}), entries);
    ExpectDamaged(with([](auto& blocks) { blocks[1].firstEntry = 3; }));
    ExpectDamaged(with([](auto& blocks) { blocks[1].count = 0; }));
    ExpectDamaged(with([](auto& blocks) { blocks[1].count = 3; }));
    ExpectDamaged(with([](auto& blocks) { blocks[1].count = ~0u; }));
    ExpectDamaged(with([](auto& blocks) { blocks[0].nameBytes = ~0u; }));
    ExpectDamaged(with([](auto& blocks) { blocks[1].nameBytes += 1; }));
    ExpectDamaged(with([](auto& blocks) { blocks.pop_back(); }));
    ExpectDamaged(Version2File(kModels, good, 3));
    ExpectDamaged(Version2File(kModels, good, 5));
    ExpectDamaged(Version2File(kModels, BlocksOf(RandomEntries(513, 5), 513), 513));
    const std::string inconsistent = "do not fit together";
    ExpectFailure(with([](auto& blocks) { // a name that is longer than all names
                      std::string& content = blocks[1].content;
                      content[content.size() - 8] = '\x7f';
                  }),
                  inconsistent);
    ExpectFailure(with([](auto& blocks) { // bytes behind the last name
                      blocks[1].content += "x";
                      blocks[1].nameBytes += 1;
                  }),
                  inconsistent);
}

TEST_F(GalleryFiles, OfVersion1ThatDoNotFitTogetherAreRefused) {
    const std::string whole = Version1File(kModels, RandomEntries(3, 6));
    const auto with = [&whole](size_t at, char value) {
        std::string changed = whole;
        changed[at] = value;
        SealVersion1(changed);
        return changed;
    };
    for (const char count : {'\0', '\1', '\2', '\4', '\x7f'}) {
        ExpectFailure(with(16, count), "do not fit together");
    }
    ExpectFailure(with(23, '\x7f'), "do not fit together");
    ExpectFailure(with(56 + 3 * sizeof(Feature), '\x7f'), "do not fit together");
}

TEST_F(GalleryFiles, OfOtherModelsLengthsOrVersionsAreRefused) {
    const Entries entries = RandomEntries(3, 7);
    const std::string other = RandomBytes(32, 8);
    ExpectFailure(Version2File(other, BlocksOf(entries), 3), "other models");
    ExpectFailure(Version1File(other, entries), "other models");
    std::string damaged = Version1File(other, entries);
    damaged[100] = static_cast<char>(damaged[100] ^ 1);
    ExpectDamaged(damaged);
    std::string longer = Version2Of(entries);
    longer[13] = 1; // 384 floats a feature
    SealVersion2(longer);
    ExpectFailure(longer, "other models");
    for (const char version : {'\0', '\3'}) {
        std::string later = Version2Of(entries);
        later[8] = version;
        ExpectFailure(later, "knows versions 1 and 2; use the program that made it");
    }
}

// The signal that a mapped file would send is none of ours.
TEST_F(GalleryFiles, CutShortWhileTheyAreReadAreRefused) {
    const Entries entries = RandomEntries(2000, 9);
    for (const std::string& whole : {Version2Of(entries), Version1File(kModels, entries)}) {
        WriteFile(path_, whole);
        const GalleryFile file(path_, ModelsOf(kModels));
        size_t blocks = 0;
        try {
            file.Read([&](const GalleryBlock&) {
                ++blocks;
                ASSERT_EQ(truncate(path_.c_str(), 4096), 0);
            });
            ADD_FAILURE() << "nothing was noticed";
        } catch (const kova_cli::Failure& failure) {
            EXPECT_NE(std::string(failure.what()).find("has become shorter while it was read"),
                      std::string::npos)
                << failure.what();
        }
        EXPECT_EQ(blocks, 1u);
    }
}

// ---- The search

struct PlainMatch {
    float distance;
    size_t entry;
};

// Everything compared, everything sorted.
std::vector<PlainMatch> PlainSearch(const Entries& entries, const Feature& feature, size_t count) {
    std::vector<PlainMatch> all;
    for (size_t i = 0; i < entries.names.size(); ++i) {
        const float distance = OrvoFrGetDistance(feature.data(), sizeof feature,
                                                 entries.features[i].data(), sizeof feature);
        if (std::isfinite(distance)) {
            all.push_back({distance, i});
        }
    }
    std::stable_sort(all.begin(), all.end(), [](const PlainMatch& a, const PlainMatch& b) {
        return a.distance > b.distance;
    });
    std::vector<PlainMatch> best;
    std::set<std::string> names;
    for (const PlainMatch& match : all) {
        if (best.size() < count && names.insert(entries.names[match.entry]).second) {
            best.push_back(match);
        }
    }
    return best;
}

class GallerySearch : public GalleryFiles {
  protected:
    void ExpectThoseOfThePlainSearch(const Entries& entries, const std::vector<Feature>& looked,
                                     size_t count) {
        WriteFile(path_, Version2Of(entries));
        const GalleryFile file(path_, ModelsOf(kModels));
        const std::vector<std::vector<Match>> found = Search(file, looked, count);
        ASSERT_EQ(found.size(), looked.size());
        for (size_t i = 0; i < looked.size(); ++i) {
            const std::vector<PlainMatch> expected = PlainSearch(entries, looked[i], count);
            ASSERT_EQ(found[i].size(), expected.size());
            for (size_t k = 0; k < expected.size(); ++k) {
                EXPECT_EQ(found[i][k].entry, expected[k].entry);
                EXPECT_EQ(found[i][k].distance, expected[k].distance);
                EXPECT_EQ(found[i][k].name, entries.names[expected[k].entry]);
            }
        }
    }
};

TEST_F(GallerySearch, FindsTheBestOfEveryEntry) {
    const Entries entries = RandomEntries(1300, 11);
    const std::vector<Feature> looked = RandomEntries(3, 12).features;
    for (const size_t count : {1u, 2u, 5u, 1299u, 1300u, 5000u}) {
        ExpectThoseOfThePlainSearch(entries, looked, count);
    }
    ExpectThoseOfThePlainSearch(entries, {}, 5);
    ExpectThoseOfThePlainSearch({}, looked, 5);
}

TEST_F(GallerySearch, TakesTheBestOfEachNameAndTheEarlierOfEqualOnes) {
    orvo_test::Random random(13);
    const std::vector<Feature> few = RandomEntries(40, 14).features;
    for (int round = 0; round < 20; ++round) {
        Entries entries;
        for (size_t i = 0; i < 600; ++i) {
            entries.features.push_back(few[static_cast<size_t>(random.Between(0, 39))]);
            entries.names.push_back(std::to_string(random.Between(0, 30)));
        }
        for (const size_t count : {1u, 3u, 30u, 31u, 100u}) {
            ExpectThoseOfThePlainSearch(entries, {few[0], few[1]}, count);
        }
    }
}

// Of what is looked for; in galleries there is nothing like it.
TEST_F(GallerySearch, FindsNobodyForWhatIsNoNumber) {
    Feature none;
    none.fill(std::numeric_limits<float>::quiet_NaN());
    const Entries entries = RandomEntries(40, 15);
    ExpectThoseOfThePlainSearch(entries, {none, entries.features[35]}, 12);
    EXPECT_EQ(PlainSearch(entries, none, 12).size(), 0u);
}

} // namespace
} // namespace kova_fr_test
