// SPDX-License-Identifier: MIT
#include "render/photo.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "head/scanned_expression.h"
#include "render/background.h"
#include "wear/wearables.h"

namespace facegen {
namespace {

constexpr float kPerDegree = std::numbers::pi_v<float> / 180.0f;
constexpr float kFaceReflectance = 0.3f;
constexpr int kFineness = 2; // samples a pixel along each side

void DrawPose(PhotoPlan& plan, View view, Random& random) {
    if (random.Chance(0.68f)) {
        plan.yaw = random.NormalWithin(14.0f, 2.6f);
        plan.pitch = random.NormalWithin(8.0f, 2.6f);
    } else {
        plan.yaw = random.Uniform(-60.0f, 60.0f);
        plan.pitch = random.Uniform(-30.0f, 30.0f) * (1.0f - 0.5f * std::fabs(plan.yaw) / 60.0f);
    }
    plan.roll = random.Chance(view == View::kCrop ? 0.85f : 0.75f) ? random.NormalWithin(4.5f, 2.5f)
                                                                   : random.Uniform(-25.0f, 25.0f);
}

// As people come before a camera that hangs higher or lower than they look.
void DrawWidePose(PhotoPlan& plan, Random& random) {
    if (random.Chance(0.7f)) {
        plan.yaw = random.NormalWithin(19.0f, 2.6f);
        plan.pitch = random.NormalWithin(11.0f, 2.4f);
    } else {
        plan.yaw = random.Uniform(-75.0f, 75.0f);
        plan.pitch = random.Uniform(-30.0f, 30.0f) * (1.0f - 0.5f * std::fabs(plan.yaw) / 75.0f);
    }
    plan.roll =
        random.Chance(0.8f) ? random.NormalWithin(6.0f, 2.5f) : random.Uniform(-25.0f, 25.0f);
}

// As wide as a door's camera sees people pass.
void DrawBroadPose(PhotoPlan& plan, Random& random) {
    plan.yaw =
        random.Chance(0.8f) ? random.NormalWithin(24.0f, 3.2f) : random.Uniform(-75.0f, 75.0f);
    plan.pitch =
        (random.Chance(0.75f) ? random.NormalWithin(12.0f, 2.5f) : random.Uniform(-30.0f, 30.0f)) *
        (1.0f - 0.5f * std::fabs(plan.yaw) / 80.0f);
    plan.roll =
        random.Chance(0.75f) ? random.NormalWithin(7.0f, 2.5f) : random.Uniform(-25.0f, 25.0f);
}

void DrawFrameBox(PhotoPlan& plan, Random& random) {
    const float size = random.Uniform(85.0f, 215.0f);
    const float frame = static_cast<float>(kFrameSize);
    // Now and then the face leaves the frame by up to a quarter of its box.
    const float over = random.Chance(0.15f) ? 0.25f * size : 0.0f;
    plan.box = {random.Uniform(-over, frame - size + over),
                random.Uniform(-over, frame - size + over), size};
}

// Up to which share nothing is worn, glasses, dark glasses, a cap, a mask; behind these is a hand.
Occlusion WornAt(float at, const std::array<float, 5>& shares) {
    const auto* const first = std::upper_bound(shares.begin(), shares.end(), at);
    return static_cast<Occlusion>(first - shares.begin());
}

void DrawWear(PhotoPlan& plan, const Person& person, Random& random) {
    plan.occlusion = WornAt(random.Uniform(), {0.6f, 0.78f, 0.84f, 0.92f, 0.955f});
    plan.glassesAsWell =
        (plan.occlusion == Occlusion::kCap || plan.occlusion == Occlusion::kHand) &&
        random.Chance(0.2f);
    const std::size_t styles = person.hairdress.styles.size();
    plan.style = styles > 1 && random.Chance(0.2f) ? 1 : 0;
    const bool beardless = person.hairiness.beard == BeardStyle::kNone ||
                           person.hairiness.beard == BeardStyle::kShadow;
    const bool mayGrow = person.identity.male > 0.5f && person.identity.age != AgeBand::kChild;
    plan.stubble =
        beardless && mayGrow && random.Chance(0.45f) ? random.Uniform(0.05f, 0.55f) : 0.0f;
}

// Covers that networks lose people by come more often.
void DrawBroadWear(PhotoPlan& plan, Random& random) {
    plan.occlusion = WornAt(random.Uniform(), {0.53f, 0.71f, 0.78f, 0.85f, 0.92f});
}

// As people stand before a camera to be known: upright and towards it, often with a smile, in light
// that serves, with little on.
void DrawCalm(PhotoPlan& plan, const Studio& studio, Random& random) {
    plan.yaw = random.NormalWithin(13.0f, 2.6f);
    plan.pitch = random.NormalWithin(8.0f, 2.6f);
    plan.roll = random.NormalWithin(4.0f, 2.5f);
    if (random.Chance(0.6f)) {
        plan.expression = studio.space.expressions.empty()
                              ? Smile(studio.model, random.Uniform(0.0f, 0.8f))
                              : DrawFriendlyExpression(studio.space, random);
    }
    while (plan.light.kind != LightKind::kSoft && random.Chance(0.75f)) {
        plan.light = DrawLight(random);
    }
    plan.occlusion = WornAt(random.Uniform(), {0.74f, 0.94f, 0.96f, 0.98f, 1.0f});
}

// The lines and shadows that real faces share, and that light and mimic deepen or take away, so that
// nobody is known by them.
void DrawLines(PhotoPlan& plan, Random& random) {
    plan.mouthLines = random.Uniform(0.0f, 0.85f);
    plan.eyeLines = random.Uniform(0.0f, 0.85f);
    plan.eyeTone = random.Uniform(0.3f, 1.0f);
}

// Puts a picture into a panorama: its light, and what is seen behind the face.
void DrawScene(PhotoPlan& plan, const std::vector<Environment>& environments, Random& random) {
    plan.scene.environment = random.Below(static_cast<int>(environments.size()));
    plan.scene.turn = random.Uniform(-3.14159265f, 3.14159265f);
    plan.scene.across = random.Uniform(0.15f, 0.7f);
    plan.scene.gain = std::exp(random.NormalWithin(0.5f, 2));
    LightBy(plan.light, environments[static_cast<std::size_t>(plan.scene.environment)],
            plan.scene.turn);
    plan.light.lamps[0].softness = random.Uniform(0.01f, 0.08f);
    // The camera's own lamp, or another one near by.
    Lamp& second = plan.light.lamps[1];
    if (second.strength < 0.05f && random.Chance(0.25f)) {
        second = {Normalised({random.Normal(0, 0.5f), random.Normal(0.3f, 0.4f), 1.0f}),
                  random.Uniform(0.1f, 0.7f), 0};
    }
}

Surroundings SurroundingsOf(const Person& person, const PhotoPlan& plan, float frameReflectance,
                            float lensReflectance, Random& random) {
    Surroundings s;
    const float oil = person.identity.oiliness * random.Uniform(0.5f, 1.3f);
    auto& f = s.finishes;
    f[kSkinMaterial] = {-1,    0.16f * oil, 14.0f + 22.0f * random.Uniform(), 0.18f, 2.0f,
                        0.72f, 0.5f};
    f[kEyeMaterial] = {-1, 0.9f, 90, 0.1f, 0.5f, 0.8f, 0.6f};
    f[kTeethMaterial] = {-1, 0.3f, 40, 0.1f, 0, 1, 1};
    f[kTongueMaterial] = {-1, 0.15f, 20, 0.1f, 0, 1, 0.5f};
    f[kHairMaterial] = {-1, random.Uniform(0.005f, 0.05f), 12, 0.25f, 0.5f, 0.8f, 0.75f};
    f[kBeardMaterial] = {-1, 0.01f, 8, 0.25f, 0.5f, 0.8f, 0.75f};
    f[kLashMaterial] = {0.02f, 0, 8, 0.3f, 0, 1, 1};
    f[kFrameMaterial] = {frameReflectance, 0.4f, 40, 0, 2, 1, 1};
    f[kLensMaterial] = {lensReflectance, 0.5f, 80, 0, 3, 1, 1};
    const float cap =
        random.Chance(0.5f) ? random.Uniform(0.02f, 0.12f) : random.Uniform(0.1f, 0.75f);
    f[kFabricMaterial] = {cap, 0.01f, 6, 0.1f, 1, 1, 0.8f};
    f[kMaskMaterial] = {
        random.Chance(0.7f) ? random.Uniform(0.4f, 0.85f) : random.Uniform(0.03f, 0.4f),
        0.01f,
        6,
        0.25f,
        0,
        1,
        0.8f};
    const float cloth =
        random.Chance(0.5f) ? random.Uniform(0.02f, 0.15f) : random.Uniform(0.1f, 0.85f);
    f[kClothMaterial] = {cloth, 0.01f, 6, 0.15f, 1, 1, 0.7f};
    s.atlas = person.atlas.Words();
    s.layers[0].density = plan.stubble;
    s.layers[1].density = plan.mouthLines;
    s.layers[2].density = plan.eyeLines;
    s.eyeTone = plan.eyeTone;
    s.stripes = random.Chance(0.25f) ? random.Uniform(0.1f, 0.6f) : 0.0f;
    s.stripePitch = random.Uniform(0.08f, 0.6f);
    return s;
}

} // namespace

PhotoPlan PlanPhoto(const Studio& studio, const Person& person, View view, std::uint64_t picture) {
    Random random(person.seed, person.number, picture + 1, Purpose::kPicture);
    PhotoPlan plan;
    plan.size = PictureSize(view);
    if (view == View::kCrop) {
        const float margin = static_cast<float>(kCropSize - kCropBox) / 2;
        plan.box = {margin, margin, static_cast<float>(kCropBox)};
    } else {
        DrawFrameBox(plan, random);
    }
    const bool scanned = person.identity.scanned, broad = studio.broad;
    if (broad) {
        DrawBroadPose(plan, random);
    } else if (scanned) {
        DrawWidePose(plan, random);
    } else {
        DrawPose(plan, view, random);
    }
    plan.distance = std::exp(random.Uniform(std::log(4.5f), std::log(30.0f)));
    const bool ofScans = broad && !studio.space.expressions.empty() && random.Chance(0.6f);
    plan.expression = ofScans ? DrawScannedExpression(studio.space, random)
                              : DrawExpression(studio.model, random);
    if (scanned && !ofScans && random.Chance(0.4f)) {
        Strengthen(plan.expression, random.Uniform(1.1f, 1.7f));
    }
    plan.light = DrawLight(random);
    DrawWear(plan, person, random);
    if (broad) {
        DrawBroadWear(plan, random);
    }
    if (studio.calm) {
        DrawCalm(plan, studio, random);
    }
    if (studio.lined) {
        DrawLines(plan, random);
    }
    if (!studio.environments.empty() && plan.light.kind != LightKind::kDark &&
        plan.light.kind != LightKind::kInfrared && random.Chance(0.7f)) {
        DrawScene(plan, studio.environments, random);
    }
    if (plan.occlusion == Occlusion::kFaceMask) {
        QuietenMouth(plan.expression, studio.model, studio.space);
    }
    plan.degradation = DrawDegradation(plan.light.kind == LightKind::kDark,
                                       plan.box.size / static_cast<float>(kCropBox), random);
    if (studio.bare) {
        plan.stubble = 0;
    }
    if (broad) { // light falls short more often than sensors
        plan.degradation.noise *= 0.5f;
        plan.degradation.sensorNoise *= 0.5f;
    }
    return plan;
}

PhotoPlan PlainPhoto(PhotoPlan plan, float yaw, float pitch) {
    plan.degradation = Degradation{};
    plan.yaw = yaw;
    plan.pitch = pitch;
    plan.roll = 0;
    plan.expression = Expression{};
    plan.occlusion = Occlusion::kNone;
    plan.light = Light{};
    plan.scene = Scene{};
    plan.light.sky = 0.1f;
    plan.light.lamps[0] = {Normalised({0.4f, 0.5f, 0.8f}), 0.4f, 0.05f};
    return plan;
}

void Photographer::PoseSkin(const Person& person, const PhotoPlan& plan, Random& random) {
    const HeadModel& model = studio_.model;
    const std::vector<Vec3>& rest = person.shape.points;
    face_ = rest;
    Apply(plan.expression, model, studio_.space, person.identity.MainEthnicity(), face_);

    Collar collar;
    collar.lift =
        random.Chance(0.15f) ? random.Uniform(0.12f, 0.28f) : random.Uniform(-0.3f, 0.08f);
    collar.notch = random.Chance(0.4f) ? random.Uniform(0.1f, 0.7f) : 0.0f;
    const float cloth = random.Uniform(0.03f, 0.09f);
    head_ = Rotation(plan.yaw * kPerDegree, plan.pitch * kPerDegree, plan.roll * kPerDegree);
    const float turn = random.Uniform(0.0f, 0.7f);
    trunk_ = Rotation(turn * plan.yaw * kPerDegree, 0,
                      random.Uniform(0.0f, 0.6f) * plan.roll * kPerDegree);

    const std::size_t count = rest.size();
    posed_.resize(count);
    collar_.assign(count, 1.0f);
    for (std::size_t i = 0; i < count; ++i) {
        const float weight = model.headWeight[i];
        Vec3 p = face_[i];
        if (weight >= 1.0f) {
            posed_[i] = head_ * (p - kHeadJoint);
            continue;
        }
        collar_[i] = AboveCollar(model.base[i], collar);
        p += person.shape.normals[i] * (cloth * SmoothStep(0.02f, -0.04f, collar_[i]));
        p = p - kHeadJoint;
        posed_[i] = Mix(trunk_ * p, head_ * p, weight);
    }
    normals_.assign(count, Vec3{});
    AddNormals(model.skin, posed_, normals_);
}

// Brings a piece's points before the camera, into piece_points_.
void Photographer::Pose(const Person& person, const Piece& piece, const Expression* gaze) {
    const bool follows = !piece.follows.empty();
    piecePoints_.resize(piece.points.size());
    const Mat3 look = gaze != nullptr ? Rotation(gaze->gazeYaw, gaze->gazePitch, 0) : Mat3{};
    for (std::size_t i = 0; i < piece.points.size(); ++i) {
        Vec3 p = piece.points[i];
        if (gaze != nullptr) {
            const Vec3 eye = p.x > 0 ? person.shape.leftEye : person.shape.rightEye;
            p = eye + look * (p - eye);
        } else if (follows) {
            const std::uint32_t skin = piece.follows[i];
            p += face_[skin] - person.shape.points[skin];
        }
        p = p - kHeadJoint;
        // Long hair falls on the shoulders, which turn less than the head.
        const float weight = SmoothStep(-1.9f, -0.7f, p.y);
        piecePoints_[i] = weight >= 1.0f ? head_ * p : Mix(trunk_ * p, head_ * p, weight);
    }
    pieceNormals_.assign(piece.points.size(), Vec3{});
    AddNormals(piece.surface, piecePoints_, pieceNormals_);
}

void Photographer::DrawPiece(const Piece& piece) {
    const std::size_t count = piece.surface.point.size();
    vertices_.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t point = piece.surface.point[i];
        const Vec3 p = piecePoints_[point];
        const Vec3 n = Normalised(pieceNormals_[point]);
        vertices_[i] = {camera_.XOf(p),
                        camera_.YOf(p),
                        camera_.DepthOf(p),
                        {piece.surface.u[i], piece.surface.v[i], n.x, n.y, n.z,
                         piece.occlusion.empty() ? 0.9f : piece.occlusion[point],
                         piece.field.empty() ? 1.0f : piece.field[point]}};
    }
    Draw(samples_, vertices_, piece.surface.triangles.data(), piece.surface.triangles.size(),
         piece.style);
    const bool casts =
        piece.style.material != kEyeMaterial && piece.style.material != kTeethMaterial &&
        piece.style.material != kTongueMaterial && piece.style.material != kLashMaterial;
    if (shadowed_ && casts) {
        for (std::size_t i = 0; i < count; ++i) {
            const Vec3 p = piecePoints_[piece.surface.point[i]];
            vertices_[i].x = shadow_.XOf(p);
            vertices_[i].y = shadow_.YOf(p);
            vertices_[i].depth = shadow_.DepthOf(p);
        }
        DrawStyle style = piece.style;
        style.twoSided = true;
        Draw(shadow_.map, vertices_, piece.surface.triangles.data(), piece.surface.triangles.size(),
             style);
    }
}

void Photographer::Portray(const Person& person, const PhotoPlan& plan, Random& random) {
    const HeadModel& model = studio_.model;
    const Shape& shape = person.shape;

    PoseSkin(person, plan, random);
    const Vec3 eyes = head_ * (shape.eyes - kHeadJoint), mouth = head_ * (shape.mouth - kHeadJoint);
    camera_ = Enlarged(CameraFor(plan.box, plan.distance, eyes, mouth), kFineness);
    samples_.Clear(plan.size * kFineness, plan.size * kFineness);
    shadowed_ = plan.light.lamps[0].strength > 0.05f;
    if (shadowed_) {
        shadow_.Aim(plan.light.lamps[0].towards, head_ * (Vec3{0, -0.1f, -0.6f} - kHeadJoint), 2.1f,
                    176);
    }

    // The skin.
    const bool close = plan.size == kCropSize;
    const std::size_t triangles = close ? model.closeTriangles : model.skin.triangles.size();
    const Surface& skin = model.skin;
    vertices_.resize(skin.point.size());
    for (std::size_t i = 0; i < skin.point.size(); ++i) {
        const std::uint32_t point = skin.point[i];
        const Vec3 p = posed_[point];
        const Vec3 n = Normalised(normals_[point]);
        vertices_[i] = {
            camera_.XOf(p),
            camera_.YOf(p),
            camera_.DepthOf(p),
            {skin.u[i], skin.v[i], n.x, n.y, n.z, model.occlusion[point], collar_[point]}};
    }
    DrawStyle style;
    style.material = kSkinMaterial;
    Draw(samples_, vertices_, skin.triangles.data(), triangles, style);
    if (shadowed_) {
        for (std::size_t i = 0; i < skin.point.size(); ++i) {
            const Vec3 p = posed_[skin.point[i]];
            vertices_[i].x = shadow_.XOf(p);
            vertices_[i].y = shadow_.YOf(p);
            vertices_[i].depth = shadow_.DepthOf(p);
        }
        Draw(shadow_.map, vertices_, skin.triangles.data(), model.closeTriangles, style);
    }

    const auto put = [&](const Piece& piece, const Expression* gaze = nullptr) {
        if (!piece.Empty()) {
            Pose(person, piece, gaze);
            DrawPiece(piece);
        }
    };
    put(person.eyes, &plan.expression);
    put(person.lashes);
    if (plan.expression.strength > 0.02f) {
        put(person.teeth);
        put(person.tongue);
    }
    put(person.hairdress.beard);
    const HairStyle& hair = person.hairdress.styles[plan.style];
    if (plan.occlusion == Occlusion::kCap) {
        const Cap cap = DrawCap(model, shape, random);
        put(cap.crown);
        put(cap.brim);
        if (!hair.piece.Empty()) {
            Piece under = hair.piece;
            under.surface.triangles = hair.underCap;
            put(under);
        }
    } else {
        put(hair.piece);
        put(hair.fringe);
    }
    put(hair.curtain);
    if (plan.occlusion == Occlusion::kFaceMask) {
        put(DrawFaceMask(model, shape, random));
    }
    float frameReflectance = 0.05f, lensReflectance = 0.05f;
    if (plan.occlusion == Occlusion::kGlasses || plan.occlusion == Occlusion::kDarkGlasses ||
        plan.glassesAsWell) {
        Glasses glasses = DrawGlasses(shape, plan.occlusion == Occlusion::kDarkGlasses, random);
        frameReflectance = glasses.frameReflectance;
        lensReflectance = glasses.lensReflectance;
        put(glasses.frame);
        if (!glasses.lenses.Empty()) {
            glasses.lenses.style.coverage = {Coverage::Kind::kField, nullptr, 0, 0, 1.0f, 0};
            put(glasses.lenses);
        }
    }

    Surroundings around = SurroundingsOf(person, plan, frameReflectance, lensReflectance, random);
    around.layers[0].words = studio_.kit.stubble.data();
    around.layers[1].words = studio_.kit.mouthLines.data();
    around.layers[2].words = studio_.kit.eyeLines.data();
    Shade(samples_, camera_, plan.light, shadowed_ ? &shadow_ : nullptr, around, radiance_);
}

void Photographer::Take(const Person& person, const PhotoPlan& plan, std::uint64_t picture,
                        std::uint8_t* pixels) {
    Random random(person.seed, person.number, picture + 1, Purpose::kCamera);
    Random backdrop(person.seed, person.number, picture + 1, Purpose::kBackground);
    Random occluder(person.seed, person.number, picture + 1, Purpose::kOccluder);
    Portray(person, plan, random);
    if (plan.scene.environment >= 0) {
        Look(studio_.environments[static_cast<std::size_t>(plan.scene.environment)],
             plan.scene.turn, 0.3f * plan.pitch * kPerDegree, plan.scene.across, tones_, plan.size,
             plan.size);
    } else {
        DrawBackground(tones_, plan.size, plan.size, backdrop);
    }
    Develop(plan, backdrop);
    if (plan.occlusion == Occlusion::kHand) {
        const float tone = std::pow(Clamp01(person.identity.reflectance * plan.light.meanLevel /
                                            (0.25f + 0.5f * person.identity.reflectance)),
                                    1.0f / plan.light.gamma);
        DrawOccluder(tones_, plan.size, plan.size, plan.box.left + plan.box.size / 2,
                     plan.box.top + plan.box.size / 2, plan.box.size,
                     tone * occluder.Uniform(0.7f, 1.2f), occluder);
    }
    Degrade(tones_, plan.size, plan.size, plan.degradation, random, pixels);
}

// Averages the samples of each pixel, sets the exposure by the face and blends the figure over the
// background in tones_.
void Photographer::Develop(const PhotoPlan& plan, Random& random) {
    const int size = plan.size;
    const auto pixels = static_cast<std::size_t>(size) * static_cast<std::size_t>(size);
    faceTones_.resize(pixels);
    cover_.resize(pixels);
    for (int y = 0; y < size; ++y) {
        const float* upper =
            &radiance_[static_cast<std::size_t>(2 * y) * static_cast<std::size_t>(samples_.stride)];
        const float* lower = upper + samples_.stride;
        float* tone = &faceTones_[static_cast<std::size_t>(y) * static_cast<std::size_t>(size)];
        float* cover = &cover_[static_cast<std::size_t>(y) * static_cast<std::size_t>(size)];
        for (int x = 0; x < size; ++x) {
            const float a = upper[2 * x], b = upper[2 * x + 1], c = lower[2 * x],
                        d = lower[2 * x + 1];
            const float count = (a >= 0 ? 1.0f : 0.0f) + (b >= 0 ? 1.0f : 0.0f) +
                                (c >= 0 ? 1.0f : 0.0f) + (d >= 0 ? 1.0f : 0.0f);
            const float sum =
                std::max(a, 0.0f) + std::max(b, 0.0f) + std::max(c, 0.0f) + std::max(d, 0.0f);
            cover[x] = 0.25f * count;
            tone[x] = sum / std::max(count, 1.0f);
        }
    }
    // The camera meters the middle of the face's box.
    const auto edge = [&](float at) { return std::clamp(static_cast<int>(at), 0, size); };
    double total = 0, weight = 1e-9;
    for (int y = edge(plan.box.top + 0.15f * plan.box.size);
         y < edge(plan.box.top + 0.9f * plan.box.size); ++y) {
        for (int x = edge(plan.box.left + 0.15f * plan.box.size);
             x < edge(plan.box.left + 0.85f * plan.box.size); ++x) {
            const auto i = static_cast<std::size_t>(y) * static_cast<std::size_t>(size) +
                           static_cast<std::size_t>(x);
            total += cover_[i] * faceTones_[i];
            weight += cover_[i];
        }
    }
    const float metered = std::max(static_cast<float>(total / weight), 1e-4f);
    // A meter only half makes up for dark skin.
    const float usual = 0.22f;
    const float exposure =
        plan.light.meanLevel / (std::pow(metered, 0.62f) * std::pow(usual, 0.38f));
    const float inverseGamma = 1.0f / plan.light.gamma, shoulder = plan.light.shoulder;
    const bool infrared = plan.light.kind == LightKind::kInfrared;
    const float farLight = plan.light.kind == LightKind::kDark ? random.Uniform(0.1f, 0.7f)
                           : infrared                          ? random.Uniform(0.05f, 0.7f)
                                                               : 1.0f;
    if (plan.scene.environment >= 0) { // radiance so far; a face has about a third of it
        for (std::size_t i = 0; i < pixels; ++i) {
            const float level = exposure * plan.scene.gain * kFaceReflectance * 2 * tones_[i];
            tones_[i] = std::pow(std::min(level, 1.0f), inverseGamma);
        }
    }
    for (std::size_t i = 0; i < pixels; ++i) {
        float level = exposure * faceTones_[i];
        level = Mix(level, 1.25f * level / (1.0f + 0.55f * level), shoulder);
        const float tone = std::pow(std::min(level, 1.0f), inverseGamma);
        tones_[i] = Mix(farLight * tones_[i], tone, cover_[i]);
    }
}

void Photographer::TakeEmpty(std::uint64_t seed, std::uint64_t number, std::uint64_t picture,
                             int size, std::uint8_t* pixels) {
    Random random(seed, number, picture + 1, Purpose::kCamera);
    Random backdrop(seed, number, picture + 1, Purpose::kBackground);
    Random occluder(seed, number, picture + 1, Purpose::kOccluder);
    DrawBackground(tones_, size, size, backdrop);
    // Hands and things without a face teach what is no face.
    for (int i = occluder.Below(3); i > 0; --i) {
        const float side = static_cast<float>(size);
        DrawOccluder(tones_, size, size, side * occluder.Uniform(), side * occluder.Uniform(),
                     side * occluder.Uniform(0.3f, 0.8f), occluder.Uniform(0.1f, 0.9f), occluder);
    }
    Degrade(tones_, size, size, DrawDegradation(random.Chance(0.15f), 1.2f, random), random,
            pixels);
}

} // namespace facegen
