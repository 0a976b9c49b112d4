// SPDX-License-Identifier: MIT
// Faces are added to galleries, and everything ends in the middle of it: at every byte of every
// write, and with any of the writes lost that were not yet said to be on the disk. The program's own
// calls are led through the functions below, which record them; what a disk may hold afterwards is
// put together from them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <thread>

#include "files/failure.h"
#include "gallery/gallery.h"
#include "gallery_files.h"

namespace {

struct Call {
    enum Kind { kWrite, kCut, kSync } kind;
    uint64_t at; // or the new length
    std::string bytes;
};

std::vector<Call> g_calls;

} // namespace

extern "C" {
ssize_t __real_pwrite(int file, const void* bytes, size_t count, off_t at);
int __real_ftruncate(int file, off_t length);

ssize_t __wrap_pwrite(int file, const void* bytes, size_t count, off_t at) {
    g_calls.push_back({Call::kWrite, static_cast<uint64_t>(at),
                       std::string(static_cast<const char*>(bytes), count)});
    return __real_pwrite(file, bytes, count, at);
}
int __wrap_ftruncate(int file, off_t length) {
    g_calls.push_back({Call::kCut, static_cast<uint64_t>(length), ""});
    return __real_ftruncate(file, length);
}
int __wrap_fsync(int) { // no disk is waited for
    g_calls.push_back({Call::kSync, 0, ""});
    return 0;
}
}

namespace kova_fr_test {
namespace {

using kova_cli::AddToGallery;
using kova_cli::GalleryBlock;
using kova_cli::GalleryFile;
using kova_cli::GalleryLock;
using kova_cli::Sha256;

const std::string kModelBytes(32, 'm');

Sha256 Models() {
    Sha256 models;
    models.fill('m');
    return models;
}

// What becomes of a file's bytes by the first part of a call.
void Apply(const Call& call, size_t bytes, std::string& file) {
    if (call.kind == Call::kWrite) {
        file.resize(std::max(file.size(), call.at + bytes));
        file.replace(call.at, bytes, call.bytes, 0, bytes);
    } else if (call.kind == Call::kCut) {
        file.resize(call.at);
    }
}

void Apply(const Call& call, std::string& file) { Apply(call, call.bytes.size(), file); }

Entries Joined(const Entries& first, const Entries& second) {
    Entries all = first;
    all.features.insert(all.features.end(), second.features.begin(), second.features.end());
    all.names.insert(all.names.end(), second.names.begin(), second.names.end());
    return all;
}

bool operator==(const Entries& a, const Entries& b) {
    return a.names == b.names && a.features == b.features;
}

class Adding : public testing::Test {
  protected:
    uint64_t Add(const Entries& entries) {
        return AddToGallery(GalleryLock(path_), Models(), entries.features, entries.names);
    }

    Entries Listed() const {
        Entries entries;
        GalleryFile(path_, Models()).Read([&entries](const GalleryBlock& block) {
            for (size_t i = 0; i < block.names.size(); ++i) {
                Feature feature;
                std::memcpy(feature.data(), block.features + i * feature.size(), sizeof feature);
                entries.features.push_back(feature);
                entries.names.emplace_back(block.names[i]);
            }
        });
        return entries;
    }

    // The calls that adding to a file of these bytes makes.
    std::vector<Call> CallsOfAdding(const std::string& before, const Entries& added) {
        WriteFile(path_, before);
        g_calls.clear();
        Add(added);
        return g_calls;
    }

    // A file that somebody may find: nothing is lost, what was added is there whole or not at all,
    // and more can be added. Returns whether it is there.
    bool ExpectOldOrNew(const std::string& found, const Entries& old, const Entries& added) {
        WriteFile(path_, found);
        const Entries listed = Listed();
        const bool isNew = listed == Joined(old, added);
        EXPECT_TRUE(isNew || listed == old) << listed.names.size() << " entries";
        const Entries more = RandomEntries(1, 77);
        EXPECT_EQ(Add(more), listed.names.size() + 1);
        EXPECT_TRUE(Listed() == Joined(listed, more));
        return isNew;
    }

    void KillAtEveryByte(const std::string& before, const Entries& old, const Entries& added) {
        const std::vector<Call> calls = CallsOfAdding(before, added);
        std::string file = before;
        bool wasNew = false;
        for (const Call& call : calls) {
            const size_t step = std::max<size_t>(1, call.bytes.size() / 96);
            for (size_t bytes = 0; bytes < call.bytes.size(); bytes += step) {
                std::string found = file;
                Apply(call, bytes, found);
                const bool isNew = ExpectOldOrNew(found, old, added);
                EXPECT_TRUE(isNew || !wasNew) << "was there, and went";
                wasNew = isNew;
            }
            Apply(call, file);
            wasNew = ExpectOldOrNew(file, old, added);
        }
        EXPECT_TRUE(wasNew);
    }

    // Between two syncs a disk may have kept any of the writes, in parts of 16 bytes or whole.
    void LosePower(const std::string& before, const Entries& old, const Entries& added) {
        const std::vector<Call> calls = CallsOfAdding(before, added);
        std::string file = before;
        size_t states = 0;
        for (size_t first = 0; first < calls.size();) {
            const auto sync =
                std::find_if(calls.begin() + static_cast<ptrdiff_t>(first), calls.end(),
                             [](const Call& call) { return call.kind == Call::kSync; });
            const auto end = static_cast<size_t>(sync - calls.begin());
            for (size_t kept = 0; kept < size_t{1} << (end - first); ++kept) {
                std::string found = file;
                for (size_t i = first; i < end; ++i) {
                    if ((kept >> (i - first) & 1) != 0) {
                        Apply(calls[i], found);
                    }
                }
                ExpectOldOrNew(found, old, added);
                ++states;
            }
            for (size_t i = first; i < end; ++i) {
                for (size_t part = 16; part < calls[i].bytes.size(); part += 16) {
                    std::string found = file; // the end of a write without its begin
                    const std::string rest = calls[i].bytes.substr(part);
                    Apply({Call::kWrite, calls[i].at + part, rest}, found);
                    ExpectOldOrNew(found, old, added);
                    ++states;
                }
                Apply(calls[i], file);
            }
            first = end + 1;
        }
        EXPECT_GT(states, 10u);
    }

    TempFolder folder_;
    const std::string path_ = folder_ / "g";
};

std::string FileOf(const Entries& entries, size_t blockEntries = 512) {
    return Version2File(kModelBytes, BlocksOf(entries, blockEntries), entries.names.size());
}

TEST_F(Adding, KilledAtAnyByteLosesNothing) {
    const Entries old = RandomEntries(3, 1);
    for (const size_t count : {1u, 2u, 600u}) {
        KillAtEveryByte(FileOf(old), old, RandomEntries(count, 2));
    }
    KillAtEveryByte(FileOf({}), {}, RandomEntries(1, 2));
}

TEST_F(Adding, WithoutPowerLosesNothingWhateverTheDiskKept) {
    const Entries old = RandomEntries(3, 1);
    LosePower(FileOf(old), old, RandomEntries(2, 2));
}

// An earlier addition was killed, or lost its header.
TEST_F(Adding, AfterAnUnfinishedOneLosesNothing) {
    const Entries old = RandomEntries(3, 1);
    const Entries added = RandomEntries(1, 2);
    const std::string whole = FileOf(old);
    const std::string torn =
        whole.substr(0, 48) + std::string(48, 'x') + whole.substr(96) + whole.substr(0, 96);
    for (const std::string& before : {whole + std::string(3000, 'x'), torn}) {
        KillAtEveryByte(before, old, added);
        LosePower(before, old, added);
    }
}

TEST_F(Adding, GivesTheFileOfTheFormatAndNothingBehindIt) {
    Entries all = RandomEntries(5, 3);
    WriteFile(path_, FileOf(all));
    std::vector<FileBlock> blocks = BlocksOf(all);
    for (const size_t count : {1u, 2u, 513u}) {
        const Entries more = RandomEntries(count, 4);
        EXPECT_EQ(Add(more), all.names.size() + count);
        for (FileBlock block : BlocksOf(more)) {
            block.firstEntry += all.names.size();
            blocks.push_back(block);
        }
        all = Joined(all, more);
        EXPECT_TRUE(ReadFile(path_) == Version2File(kModelBytes, blocks, all.names.size()));
    }
}

TEST_F(Adding, WritesWhatIsAddedAndNotTheGallery) {
    WriteFile(path_, FileOf(RandomEntries(20'000, 5)));
    g_calls.clear();
    Add(RandomEntries(1, 6));
    size_t written = 0;
    for (const Call& call : g_calls) {
        written += call.bytes.size();
    }
    EXPECT_GT(written, sizeof(Feature));
    EXPECT_LT(written, 1000u);
}

TEST_F(Adding, OneByOneMakesNoMoreBlocksThanReadersCanBear) {
    Entries all;
    size_t most = 0;
    for (size_t i = 0; i < 300; ++i) {
        const Entries one = RandomEntries(1, 100 + i);
        Add(one);
        all = Joined(all, one);
        size_t blocks = 0;
        GalleryFile(path_, Models()).Read([&blocks](const GalleryBlock&) { ++blocks; });
        EXPECT_LE(blocks, 66u);
        most = std::max(most, blocks);
    }
    EXPECT_GT(most, 60u) << "written anew more often than it must be";
    EXPECT_TRUE(Listed() == all);
}

TEST_F(Adding, LeavesASecondNameOfTheFileWithWhatItHad) {
    const std::string before = FileOf(RandomEntries(3, 7));
    WriteFile(path_, before);
    std::filesystem::create_hard_link(path_, folder_ / "copy");
    EXPECT_EQ(Add(RandomEntries(1, 8)), 4u);
    EXPECT_TRUE(ReadFile(folder_ / "copy") == before);
    EXPECT_EQ(Listed().names.size(), 4u);
}

TEST_F(Adding, RefusesWhatIsNoFeatureAndWhatIsNoName) {
    const std::string before = FileOf(RandomEntries(3, 9));
    WriteFile(path_, before);
    Entries odd = RandomEntries(2, 10);
    odd.features[1][7] = std::nanf("");
    EXPECT_THROW(Add(odd), kova_cli::Failure);
    odd = RandomEntries(2, 10);
    odd.features[1].fill(0);
    EXPECT_THROW(Add(odd), kova_cli::Failure);
    odd = RandomEntries(2, 10);
    odd.names[1] = "a\nb";
    EXPECT_THROW(Add(odd), kova_cli::Failure);
    EXPECT_TRUE(ReadFile(path_) == before);
}

TEST_F(Adding, RefusesBlocksThatDoNotFitTogether) {
    std::vector<FileBlock> blocks = BlocksOf(RandomEntries(4, 11), 2);
    blocks[1].firstEntry = 3;
    const std::string bad = Version2File(kModelBytes, blocks, 4);
    WriteFile(path_, bad);
    EXPECT_THROW(Add(RandomEntries(1, 12)), kova_cli::Failure);
    EXPECT_TRUE(ReadFile(path_) == bad);
}

// Readers take no lock.
TEST_F(Adding, IsSeenWholeOrNotAtAllByThoseWhoReadMeanwhile) {
    const Entries all = RandomEntries(400, 13);
    Add({{all.features[0]}, {all.names[0]}});
    std::atomic<bool> isDone = false;
    std::thread writer([&] {
        for (size_t i = 1; i < all.names.size(); ++i) {
            Add({{all.features[i]}, {all.names[i]}});
        }
        isDone = true;
    });
    size_t last = 0;
    size_t readings = 0;
    while (!isDone) {
        try {
            const Entries seen = Listed();
            EXPECT_GE(seen.names.size(), last);
            last = seen.names.size();
            EXPECT_TRUE(std::equal(seen.names.begin(), seen.names.end(), all.names.begin()));
            ++readings;
        } catch (const kova_cli::Failure& failure) {
            ADD_FAILURE() << failure.what();
        }
    }
    writer.join();
    EXPECT_GT(readings, 5u);
    EXPECT_EQ(Listed().names.size(), all.names.size());
}

TEST_F(Adding, RemovingLeavesNothingOfAPersonInTheFile) {
    Entries all = RandomEntries(1200, 14);
    for (size_t i = 0; i < all.names.size(); ++i) {
        all.names[i] = i % 3 == 0 ? "somebody" : "others";
    }
    WriteFile(path_, FileOf(all, 100));
    EXPECT_EQ(kova_cli::RemoveFromGallery(GalleryLock(path_), Models(), "somebody"), 400u);
    Entries rest;
    for (size_t i = 0; i < all.names.size(); ++i) {
        if (i % 3 != 0) {
            rest.features.push_back(all.features[i]);
            rest.names.push_back(all.names[i]);
        }
    }
    EXPECT_TRUE(ReadFile(path_) == FileOf(rest));
    EXPECT_EQ(kova_cli::RemoveFromGallery(GalleryLock(path_), Models(), "somebody"), 0u);
    EXPECT_EQ(folder_.Names(), std::vector<std::string>{"g"});
}

} // namespace
} // namespace kova_fr_test
