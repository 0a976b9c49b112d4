// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace kova_fr_test {

// What a run of a program left behind.
struct Outcome {
    int status; // exit status; 128 + n after signal n
    std::string out;
    std::string err;
};

// Where the program is.
const char* KovaFrProgram();

// Runs kova-fr with these arguments.
Outcome KovaFr(const std::vector<std::string>& arguments);

// The same where the pictures are crops: with --crop behind a command that takes pictures, unless
// the arguments have boxes.
Outcome KovaFrOnCrops(const std::vector<std::string>& arguments);

// Runs kova-fr in a shell, for redirections and pipes: `command` with "$KOVA_FR" where it is meant.
Outcome Shell(const std::string& command);

// One line on standard error that begins "kova-fr: " and holds `part`, this exit status, and
// nothing on standard output.
void ExpectRefusal(const Outcome& run, int status, const std::string& part);

// A folder that goes with the object.
class TempFolder {
  public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    const std::string& path() const { return path_; }
    std::vector<std::string> Names() const; // what is in it, sorted

  private:
    std::string path_;
};

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& bytes);

using Feature = std::array<float, 128>;

// The features that `kova-fr extract` printed, one a line.
std::vector<Feature> ParseFeatures(const std::string& out);

// The feature that kova-fr prints for a crop, with more arguments if given. Fails the test if
// the run fails.
Feature FeatureOf(const std::string& path, const std::vector<std::string>& more = {});

} // namespace kova_fr_test
