// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "calibration/calibration.h"
#include "faces/faces_of.h"
#include "files/output_file.h"

namespace kova_cli {

// What a command does with a face that is not good enough to be compared.
enum class Poor {
    kTaken,  // nobody compares it here
    kWarned, // its result is shown with a warning
    kLeftOut // it would spoil what is kept
};

// What every command that looks at faces asks the user for.
struct FaceOptions {
    std::vector<std::string> pictures;
    std::vector<std::string> boxes; // as typed: "x,y,w,h" or "all"
    std::string cropPath;           // empty: no crops are wanted
    bool crop = false;              // each picture is a face already
    bool takesAll = false;          // of several faces all, in place of the largest good one
    bool withCrops = false;         // also where no file for them is named
    bool anyQuality = false;
    bool json = false;
    Poor poor = Poor::kTaken; // the command's own, not asked for
};

inline constexpr int kAnyNumber = CLI::detail::expected_max_vector_size;

// `options.takesAll` and `options.poor` are the command's own to begin with.
void AddFaceOptions(CLI::App& command, FaceOptions& options, int fewestPictures,
                    int mostPictures = kAnyNumber);

// --crop and --any-quality as every command has them.
CLI::Option* AddCropOption(CLI::App& command, bool& crop);
void AddAnyQualityOption(CLI::App& command, bool& anyQuality);

// --calibration FILE.
void AddCalibrationOption(CLI::App& command, std::string& path);

// What that file has, for the models of this program, which must be open; none for an empty path.
// Warns where it was made of found faces and these are crops, or the other way round.
std::optional<Calibration> CalibrationIfNamed(const std::string& path, const FaceOptions& options);

// The files that --save-crop asks for, without their bytes yet: the one that the user named for one
// picture; for more the name with -1, -2 and so on before its extension.
std::vector<OutputFile> CropFiles(const FaceOptions& options);

// Packs the crop of each face into the file of the same rank. There may be more faces than pictures,
// and fewer.
void FillCropFiles(const std::vector<Face>& faces, const FaceOptions& options,
                   std::vector<OutputFile>& files);

// The faces of the pictures in the order given, with what happened on the way.
struct FacesRead {
    std::vector<Face> faces;
    std::vector<std::string> leftOut; // of Poor::kLeftOut: which, and why
    GreyPicture last;                 // the picture that was read last
};

// A wrong number of boxes is wrong usage, a picture without a face a Failure. Of a picture with
// several faces that are all wanted, each face's path gets #1, #2 and so on, best first; else a
// warning on standard error says how many there are. Faces that are not good enough are warned of or
// left out as the command does.
FacesRead ReadFaces(const Recogniser& recogniser, const FaceOptions& options);

// All faces of one picture of the options and the picture itself; there is one at least.
struct PictureRead {
    GreyPicture picture;
    std::vector<Face> faces;
};
PictureRead ReadPicture(const Recogniser& recogniser, Finder& finder, const FaceOptions& options,
                        size_t rank);

// Whether nobody is to look for faces.
bool IsCrop(const FaceOptions& options);
// The first picture of the options, which is a crop.
Inspection InspectCrop(const Recogniser& recogniser, const FaceOptions& options);

// One picture as the commands describe it in JSON: its face's box, and where it was found what else
// is known of it.
nlohmann::ordered_json PictureJson(const Face& face);

} // namespace kova_cli
