// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "head/expression.h"
#include "head/person.h"
#include "light/light.h"
#include "light/shading.h"
#include "render/camera.h"
#include "render/degradation.h"

namespace facegen {

enum class Occlusion { kNone, kGlasses, kDarkGlasses, kCap, kFaceMask, kHand };

// Where a picture was taken.
struct Scene {
    int environment = -1; // index into Studio::environments; -1: nowhere
    float turn = 0;       // of the panorama about the upright axis, radians
    float across = 0.4f;  // of what is seen of it: half its width over its distance
    float gain = 1;       // how much brighter than the face's exposure makes it
};

// Everything drawn for one picture of a person before it is rendered.
struct PhotoPlan {
    int size = 128;
    FaceBox box;
    float yaw = 0, pitch = 0, roll = 0; // degrees
    float distance = 10;                // of the camera, decimetres
    Expression expression;
    Light light;
    Scene scene;
    Occlusion occlusion = Occlusion::kNone;
    bool glassesAsWell = false;
    std::size_t style = 0; // index into the person's hair styles
    float stubble = 0;
    float mouthLines = 0, eyeLines = 0,
          eyeTone = 1; // 1: as dark as such lines are, eyes as they are
    Degradation degradation;
};

// The joint on which the head turns, behind and below the eyes.
inline constexpr Vec3 kHeadJoint{0, -0.45f, -1.0f};

enum class View { kCrop, kFrame };

constexpr int kCropSize = 128, kCropBox = 96, kFrameSize = 256;
inline int PictureSize(View view) { return view == View::kCrop ? kCropSize : kFrameSize; }

PhotoPlan PlanPhoto(const Studio& studio, const Person& person, View view, std::uint64_t picture);

// The same without blur and noise, seen from there in even light, with a neutral face and nothing
// worn.
PhotoPlan PlainPhoto(PhotoPlan plan, float yaw, float pitch);

// Places in a picture, in pixels, as they are seen: left is left in the picture of an upright face.
struct FacePoints {
    // Pupils left and right, the nose's tip, corners of the mouth left and right: x and y of each.
    std::array<float, 10> at{};
};

// Renders plans; keeps its buffers from picture to picture, one of these a thread.
class Photographer {
  public:
    explicit Photographer(const Studio& studio) : studio_(studio) {}

    // Writes plan.size x plan.size pixels.
    void Take(const Person& person, const PhotoPlan& plan, std::uint64_t picture,
              std::uint8_t* pixels);
    // The person alone, clean: `tones` where nothing else shone through, and how much of each pixel
    // they cover. Nothing but what is worn is before the face.
    void TakeCutout(const Person& person, const PhotoPlan& plan, std::uint64_t picture,
                    std::uint8_t* tones, std::uint8_t* cover);
    // Where landmarks lie in the picture that was taken last.
    FacePoints PointsOf(const Person& person, const PhotoPlan& plan) const;
    // A picture of that size with no face in it.
    void TakeEmpty(std::uint64_t seed, std::uint64_t number, std::uint64_t picture, int size,
                   std::uint8_t* pixels);

  private:
    // Poses, draws and lights the person, into radiance_.
    void Portray(const Person& person, const PhotoPlan& plan, Random& random);
    void PoseSkin(const Person& person, const PhotoPlan& plan, Random& random);
    void Pose(const Person& person, const Piece& piece, const Expression* gaze);
    void DrawPiece(const Piece& piece);
    void Develop(const PhotoPlan& plan, Random& random);

    const Studio& studio_;
    Samples samples_;
    Shadow shadow_;
    bool shadowed_ = false;
    Camera camera_; // in samples
    Mat3 head_, trunk_;
    std::vector<Vec3> face_;            // skin points with expression, the person's frame
    std::vector<Vec3> posed_, normals_; // skin points before the camera
    std::vector<float> collar_;
    std::vector<Vec3> piecePoints_, pieceNormals_;
    std::vector<DrawVertex> vertices_;
    std::vector<DrawVertex> shadowVertices_;
    std::vector<float> radiance_, tones_, faceTones_, cover_;
};

} // namespace facegen
