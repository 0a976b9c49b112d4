// SPDX-License-Identifier: MIT
// Files are moved to their places on file systems that lack one call or another, and the folder is
// made to last. The program's own calls are led through the functions below.
#include "files/output_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "files/failure.h"
#include "program.h"

namespace {

int g_renameat2Error; // 0: the real call
int g_linkError;
std::vector<std::string> g_calls; // rename, link, sync file, sync folder

template <typename Call>
int Answer(int error, const char* name, Call real) {
    if (error != 0) {
        errno = error;
        return -1;
    }
    g_calls.emplace_back(name);
    return real();
}

} // namespace

extern "C" {
int __real_rename(const char* from, const char* to);
int __real_renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                     unsigned flags);
int __real_link(const char* from, const char* to);
int __real_fsync(int file);

int __wrap_rename(const char* from, const char* to) {
    return Answer(0, "move", [&] { return __real_rename(from, to); });
}
int __wrap_renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                     unsigned flags) {
    return Answer(g_renameat2Error, "move",
                  [&] { return __real_renameat2(fromFolder, from, toFolder, to, flags); });
}
int __wrap_link(const char* from, const char* to) {
    return Answer(g_linkError, "move", [&] { return __real_link(from, to); });
}
int __wrap_fsync(int file) {
    struct stat status = {};
    fstat(file, &status);
    return Answer(0, S_ISDIR(status.st_mode) ? "sync folder" : "sync file",
                  [&] { return __real_fsync(file); });
}
}

namespace kova_fr_test {
namespace {

using kova_cli::OutputFile;
using kova_cli::WriteFiles;

class Output : public testing::Test {
  protected:
    Output() {
        g_renameat2Error = 0;
        g_linkError = 0;
        g_calls.clear();
    }

    static OutputFile File(const std::string& path, const std::string& text, bool mayReplace) {
        return {path, mayReplace, {text.begin(), text.end()}};
    }

    TempFolder folder_;
    const std::string place_ = folder_ / "place";
};

TEST_F(Output, FolderIsSyncedAfterTheMove) {
    for (const bool mayReplace : {true, false}) {
        std::filesystem::remove(place_);
        g_calls.clear();
        WriteFiles({File(place_, "new", mayReplace)});
        EXPECT_EQ(g_calls, (std::vector<std::string>{"sync file", "move", "sync folder"}));
        EXPECT_EQ(ReadFile(place_), "new");
    }
}

TEST_F(Output, NewFileIsMadeWithoutRenameat2) {
    for (const int renameError : {EINVAL, ENOSYS, EOPNOTSUPP, EPERM}) {
        for (const int linkError : {0, EPERM, ENOSYS, EOPNOTSUPP}) {
            g_renameat2Error = renameError;
            g_linkError = linkError;
            std::filesystem::remove(place_);
            WriteFiles({File(place_, "new", false)});
            EXPECT_EQ(ReadFile(place_), "new");
            EXPECT_EQ(folder_.Names(), std::vector<std::string>{"place"});
        }
    }
}

TEST_F(Output, FileThatAppearsMeanwhileIsNotReplacedWithoutRenameat2Either) {
    WriteFile(place_, "somebody else's");
    for (const int renameError : {0, EINVAL, ENOSYS}) {
        for (const int linkError : {0, EPERM}) {
            g_renameat2Error = renameError;
            g_linkError = linkError;
            EXPECT_THROW(WriteFiles({File(place_, "new", false)}), kova_cli::Failure);
            EXPECT_EQ(ReadFile(place_), "somebody else's");
            EXPECT_EQ(folder_.Names(), std::vector<std::string>{"place"});
        }
    }
}

TEST_F(Output, LinkToAMissingFileStaysALink) {
    std::filesystem::create_directory(folder_ / "elsewhere");
    std::filesystem::create_symlink("elsewhere/target", folder_ / "link");
    std::filesystem::create_symlink("link", folder_ / "second");
    WriteFiles({File(folder_ / "second", "new", true)});
    EXPECT_TRUE(std::filesystem::is_symlink(folder_ / "second"));
    EXPECT_TRUE(std::filesystem::is_symlink(folder_ / "link"));
    EXPECT_FALSE(std::filesystem::is_symlink(folder_ / "elsewhere/target"));
    EXPECT_EQ(ReadFile(folder_ / "elsewhere/target"), "new");
    EXPECT_EQ(std::filesystem::file_size(folder_ / "elsewhere/target"), 3u);
}

TEST_F(Output, LinksInACircleAreRefused) {
    std::filesystem::create_symlink("b", folder_ / "a");
    std::filesystem::create_symlink("a", folder_ / "b");
    EXPECT_THROW(WriteFiles({File(folder_ / "a", "new", true)}), kova_cli::Failure);
    EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"a", "b"}));
}

TEST_F(Output, NameWithoutAFolderIsInTheCurrentOne) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder_.path());
    WriteFiles({File("bare", "new", true)});
    std::filesystem::current_path(before);
    EXPECT_EQ(folder_.Names(), std::vector<std::string>{"bare"});
}

} // namespace
} // namespace kova_fr_test
