// SPDX-License-Identifier: MIT
#include "evaluation/eval_features.h"

#include "faces/faces_of.h"
#include "files/failure.h"
#include "terminal/progress.h"
#include "terminal/warning.h"

namespace kova_cli {
namespace {

// The largest good face counts, as for all commands that take one.
class Reader {
  public:
    Reader(const Recogniser& recogniser, const FeatureReading& reading)
        : recogniser_(recogniser), reading_(reading) {}

    Feature operator()(const std::string& path) {
        const GreyPicture picture = LoadPicture(path);
        return Naming(path, [&] {
            return FeatureOf(FacesOf(recogniser_, finder_, picture, {reading_.isCrop}));
        });
    }

    size_t withSeveral() const { return withSeveral_; }

  private:
    Feature FeatureOf(const std::vector<Face>& faces) {
        if (faces.empty()) {
            throw Failure(kNoFace);
        }
        const Face& face = faces[LargestGood(faces)];
        if (!IsGood(face) && !reading_.anyQuality) {
            throw Failure(QualityWords(*face.found));
        }
        withSeveral_ += faces.size() > 1 ? 1 : 0;
        return face.feature;
    }

    const Recogniser& recogniser_;
    const FeatureReading& reading_;
    Finder finder_;
    size_t withSeveral_ = 0;
};

} // namespace

std::vector<std::optional<Feature>> ReadFeatures(const Recogniser& recogniser,
                                                 const EvalInput& input,
                                                 const FeatureReading& reading,
                                                 std::vector<std::string>& leftOut) {
    Reader featureOf(recogniser, reading);
    Progress progress("Reading");
    std::vector<std::optional<Feature>> features;
    for (const std::string& path : input.pictures) {
        progress.Show(features.size(), input.pictures.size());
        try {
            features.emplace_back(featureOf(path));
        } catch (const Failure& failure) {
            if (reading.strict) {
                throw;
            }
            Warn(std::string("left out: ") + failure.what());
            leftOut.emplace_back(failure.what());
            features.emplace_back(std::nullopt);
        }
    }
    progress.Close(input.pictures.size(), "pictures");
    if (featureOf.withSeveral() > 0) {
        Warn(std::to_string(featureOf.withSeveral()) +
             " of the pictures have several faces; the largest one that is good enough was taken");
    }
    return features;
}

} // namespace kova_cli
