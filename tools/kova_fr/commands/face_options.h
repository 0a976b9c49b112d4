// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "calibration/calibration.h"
#include "faces/face.h"
#include "files/output_file.h"

namespace kova_cli {

// What every command that looks at faces asks the user for.
struct FaceOptions {
    std::vector<std::string> pictures;
    std::vector<std::string> boxes; // as typed: "x,y,w,h" or "all"
    std::string cropPath;           // empty: no crops are wanted
    bool detect = false;            // look for the face in each picture
    bool detectAll = false;         // take every face of each picture
    bool json = false;
};

inline constexpr int kAnyNumber = CLI::detail::expected_max_vector_size;

void AddFaceOptions(CLI::App& command, FaceOptions& options, int fewestPictures,
                    int mostPictures = kAnyNumber);

// --calibration FILE.
void AddCalibrationOption(CLI::App& command, std::string& path);

// What that file has, for the models of this program, which must be open; none for an empty path.
std::optional<Calibration> CalibrationIfNamed(const std::string& path);

// The files that --save-crop asks for, without their bytes yet: the one that the user named for one
// picture; for more the name with -1, -2 and so on before its extension.
std::vector<OutputFile> CropFiles(const FaceOptions& options);

// Packs the crop of each face into the file of the same rank.
void FillCropFiles(const std::vector<Face>& faces, std::vector<OutputFile>& files);

// Recognises the pictures in the order given. A wrong number of boxes is wrong usage. Of a picture
// with several faces that are all wanted, each face's path gets #1, #2 and so on.
std::vector<Face> RecogniseAll(const Recogniser& recogniser, const FaceOptions& options);

// The same for the one face of the one picture, with all that lies between.
Inspection InspectOne(const Recogniser& recogniser, const FaceOptions& options);

// One picture as the commands describe it in JSON.
nlohmann::ordered_json PictureJson(const Face& face);

} // namespace kova_cli
