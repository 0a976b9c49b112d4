// SPDX-License-Identifier: MIT
// kova-fr under a limit of the address space (ulimit -v).
#include <gtest/gtest.h>

#include "gallery_files.h"
#include "program.h"

#ifdef ORVO_HAVE_WEBP
#include <webp/encode.h>
#endif

namespace kova_fr_test {
namespace {

constexpr uint64_t kStep = 128; // KiB, as the shell counts

Outcome Under(uint64_t limit, const std::string& command) {
    return Shell("ulimit -v " + std::to_string(limit) + "; exec \"$KOVA_FR\" " + command);
}

// The narrowest limit in which the program starts at all.
uint64_t Least() {
    uint64_t limit = 4096;
    while (Under(limit, "--version").status != 0 && limit < (uint64_t{1} << 21)) {
        limit += kStep;
    }
    return limit;
}

TEST(AddressLimit, ComparesOrSaysThatMemoryLacksUnderEveryLimitInWhichItStarts) {
    const uint64_t least = Least();
    ASSERT_LT(least, uint64_t{1} << 21);
    // Pictures, working memory, frames and the heap's own steps.
    const uint64_t enough = least + 8 * 1024;
    const std::string compare = "compare '" ORVO_SAMPLES "/ira-1.png' '" ORVO_SAMPLES "/ira-2.png'";
    for (uint64_t limit = least; limit < uint64_t{1400} << 10;
         limit += limit < 2 * enough ? 2 * kStep : limit / 20) {
        const Outcome run = Under(limit, compare);
        if (run.status == 0) {
            continue;
        }
        EXPECT_LT(limit, enough) << run.err;
        EXPECT_EQ(run.status, 1) << limit << ": " << run.err;
        EXPECT_NE(run.err.find("memory"), std::string::npos) << limit << ": " << run.err;
    }
}

// 51 MB of features in a few more than the program starts in.
TEST(AddressLimit, IdentifiesInAGalleryThatIsLargerThanTheMemory) {
    const TempFolder folder;
    const std::string gallery = folder / "g";
    const std::string picture = "'" ORVO_SAMPLES "/ira-1.png'";
    ASSERT_EQ(Shell("\"$KOVA_FR\" enroll --any-quality " + gallery + " ira " + picture).status, 0);
    const std::string models = ReadFile(gallery).substr(16, 32);
    const Entries entries = RandomEntries(100'000, 1);
    for (const std::string& bytes : {Version2File(models, BlocksOf(entries), entries.names.size()),
                                     Version1File(models, entries)}) {
        WriteFile(gallery, bytes);
        const Outcome run = Under(Least() + 16 * 1024, "identify " + gallery + " " + picture);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_NE(run.out.find("name "), std::string::npos);
    }
}

#ifdef ORVO_HAVE_WEBP
// 64 MB of pixels while it is decoded.
TEST(AddressLimit, APictureForWhichMemoryLacksIsNotCalledDamaged) {
    constexpr int kSide = 4000;
    const TempFolder folder;
    const std::string path = folder / "large.webp";
    {
        const std::vector<uint8_t> rgb(size_t{3} * kSide * kSide, 90);
        uint8_t* bytes = nullptr;
        const size_t size = WebPEncodeLosslessRGB(rgb.data(), kSide, kSide, 3 * kSide, &bytes);
        ASSERT_GT(size, 0u);
        WriteFile(path, std::string(reinterpret_cast<const char*>(bytes), size));
        WebPFree(bytes);
    }
    const std::string extract = "extract --crop " + path;
    const uint64_t least = Least();
    const auto line = [&](uint64_t more) { return Under(least + more * 1024, extract).err; };
    int lacking = 0;
    for (uint64_t more = 8; more <= 128; more += 8) {
        const std::string err = line(more);
        EXPECT_EQ(err.find("damaged"), std::string::npos) << more << ": " << err;
        lacking += err.find("there is not enough memory") == std::string::npos ? 0 : 1;
    }
    EXPECT_GT(lacking, 4);
    EXPECT_NE(line(512).find("shows no structure"), std::string::npos);
}
#endif

} // namespace
} // namespace kova_fr_test
