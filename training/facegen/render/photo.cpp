// SPDX-License-Identifier: MIT
#include "render/photo.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "render/background.h"
#include "wear/wearables.h"

namespace facegen {
namespace {

constexpr float per_degree = std::numbers::pi_v<float> / 180.0F;
constexpr int fineness = 2; // samples a pixel along each side

// The joint on which the head turns, behind and below the eyes.
const Vec3 head_joint{0, -0.45F, -1.0F};

void draw_pose(PhotoPlan& plan, View view, Random& random) {
    if (random.chance(0.68F)) {
        plan.yaw = random.normal_within(14.0F, 2.6F);
        plan.pitch = random.normal_within(8.0F, 2.6F);
    } else {
        plan.yaw = random.uniform(-60.0F, 60.0F);
        plan.pitch = random.uniform(-30.0F, 30.0F) * (1.0F - 0.5F * std::fabs(plan.yaw) / 60.0F);
    }
    plan.roll = random.chance(view == View::crop ? 0.85F : 0.75F) ? random.normal_within(4.5F, 2.5F)
                                                                  : random.uniform(-25.0F, 25.0F);
}

// As people come before a camera that hangs higher or lower than they look.
void draw_wide_pose(PhotoPlan& plan, Random& random) {
    if (random.chance(0.7F)) {
        plan.yaw = random.normal_within(19.0F, 2.6F);
        plan.pitch = random.normal_within(11.0F, 2.4F);
    } else {
        plan.yaw = random.uniform(-75.0F, 75.0F);
        plan.pitch = random.uniform(-30.0F, 30.0F) * (1.0F - 0.5F * std::fabs(plan.yaw) / 75.0F);
    }
    plan.roll =
        random.chance(0.8F) ? random.normal_within(6.0F, 2.5F) : random.uniform(-25.0F, 25.0F);
}

void draw_frame_box(PhotoPlan& plan, Random& random) {
    const float size = random.uniform(85.0F, 215.0F);
    const float frame = static_cast<float>(frame_size);
    // Now and then the face leaves the frame by up to a quarter of its box.
    const float over = random.chance(0.15F) ? 0.25F * size : 0.0F;
    plan.box = {random.uniform(-over, frame - size + over),
                random.uniform(-over, frame - size + over), size};
}

void draw_wear(PhotoPlan& plan, const Person& person, Random& random) {
    const float at = random.uniform();
    plan.occlusion = at < 0.6F     ? Occlusion::none
                     : at < 0.78F  ? Occlusion::glasses
                     : at < 0.84F  ? Occlusion::dark_glasses
                     : at < 0.92F  ? Occlusion::cap
                     : at < 0.955F ? Occlusion::face_mask
                                   : Occlusion::hand;
    plan.glasses_as_well =
        (plan.occlusion == Occlusion::cap || plan.occlusion == Occlusion::hand) &&
        random.chance(0.2F);
    const std::size_t styles = person.hairdress.styles.size();
    plan.style = styles > 1 && random.chance(0.2F) ? 1 : 0;
    const bool beardless =
        person.hairiness.beard == BeardStyle::none || person.hairiness.beard == BeardStyle::shadow;
    const bool may_grow = person.identity.male > 0.5F && person.identity.age != AgeBand::child;
    plan.stubble =
        beardless && may_grow && random.chance(0.45F) ? random.uniform(0.05F, 0.55F) : 0.0F;
}

Surroundings surroundings(const Person& person, const PhotoPlan& plan, float frame_reflectance,
                          float lens_reflectance, Random& random) {
    Surroundings s;
    const float oil = person.identity.oiliness * random.uniform(0.5F, 1.3F);
    auto& f = s.finishes;
    f[skin_material] = {-1,    0.16F * oil, 14.0F + 22.0F * random.uniform(), 0.18F, 2.0F,
                        0.72F, 0.5F};
    f[eye_material] = {-1, 0.9F, 90, 0.1F, 0.5F, 0.8F, 0.6F};
    f[teeth_material] = {-1, 0.3F, 40, 0.1F, 0, 1, 1};
    f[tongue_material] = {-1, 0.15F, 20, 0.1F, 0, 1, 0.5F};
    f[hair_material] = {-1, random.uniform(0.005F, 0.05F), 12, 0.25F, 0.5F, 0.8F, 0.75F};
    f[beard_material] = {-1, 0.01F, 8, 0.25F, 0.5F, 0.8F, 0.75F};
    f[lash_material] = {0.02F, 0, 8, 0.3F, 0, 1, 1};
    f[frame_material] = {frame_reflectance, 0.4F, 40, 0, 2, 1, 1};
    f[lens_material] = {lens_reflectance, 0.5F, 80, 0, 3, 1, 1};
    const float cap =
        random.chance(0.5F) ? random.uniform(0.02F, 0.12F) : random.uniform(0.1F, 0.75F);
    f[fabric_material] = {cap, 0.01F, 6, 0.1F, 1, 1, 0.8F};
    f[mask_material] = {
        random.chance(0.7F) ? random.uniform(0.4F, 0.85F) : random.uniform(0.03F, 0.4F),
        0.01F,
        6,
        0.25F,
        0,
        1,
        0.8F};
    const float cloth =
        random.chance(0.5F) ? random.uniform(0.02F, 0.15F) : random.uniform(0.1F, 0.85F);
    f[cloth_material] = {cloth, 0.01F, 6, 0.15F, 1, 1, 0.7F};
    s.atlas = person.atlas.words();
    s.stubble_density = plan.stubble;
    s.stripes = random.chance(0.25F) ? random.uniform(0.1F, 0.6F) : 0.0F;
    s.stripe_pitch = random.uniform(0.08F, 0.6F);
    return s;
}

} // namespace

PhotoPlan plan_photo(const Studio& studio, const Person& person, View view, std::uint64_t picture) {
    Random random(person.seed, person.number, picture + 1, Purpose::picture);
    PhotoPlan plan;
    plan.size = picture_size(view);
    if (view == View::crop) {
        const float margin = static_cast<float>(crop_size - crop_box) / 2;
        plan.box = {margin, margin, static_cast<float>(crop_box)};
    } else {
        draw_frame_box(plan, random);
    }
    const bool scanned = person.identity.scanned;
    if (scanned) {
        draw_wide_pose(plan, random);
    } else {
        draw_pose(plan, view, random);
    }
    plan.distance = std::exp(random.uniform(std::log(4.5F), std::log(30.0F)));
    plan.expression = draw_expression(studio.model, random);
    if (scanned && random.chance(0.4F)) {
        strengthen(plan.expression, random.uniform(1.1F, 1.7F));
    }
    plan.light = draw_light(random);
    draw_wear(plan, person, random);
    if (plan.occlusion == Occlusion::face_mask) {
        quieten_mouth(plan.expression, studio.model);
    }
    plan.degradation = draw_degradation(plan.light.kind == LightKind::dark,
                                        plan.box.size / static_cast<float>(crop_box), random);
    return plan;
}

PhotoPlan plain_photo(PhotoPlan plan, float yaw, float pitch) {
    plan.degradation = Degradation{};
    plan.yaw = yaw;
    plan.pitch = pitch;
    plan.roll = 0;
    plan.expression = Expression{};
    plan.occlusion = Occlusion::none;
    plan.light = Light{};
    plan.light.sky = 0.1F;
    plan.light.lamps[0] = {normalised({0.4F, 0.5F, 0.8F}), 0.4F, 0.05F};
    return plan;
}

void Photographer::pose_skin(const Person& person, const PhotoPlan& plan, Random& random) {
    const HeadModel& model = studio_.model;
    const std::vector<Vec3>& rest = person.shape.points;
    face_ = rest;
    apply(plan.expression, model, person.identity.main_ethnicity(), face_);

    Collar collar;
    collar.lift =
        random.chance(0.15F) ? random.uniform(0.12F, 0.28F) : random.uniform(-0.3F, 0.08F);
    collar.notch = random.chance(0.4F) ? random.uniform(0.1F, 0.7F) : 0.0F;
    const float cloth = random.uniform(0.03F, 0.09F);
    head_ = rotation(plan.yaw * per_degree, plan.pitch * per_degree, plan.roll * per_degree);
    const float turn = random.uniform(0.0F, 0.7F);
    trunk_ = rotation(turn * plan.yaw * per_degree, 0,
                      random.uniform(0.0F, 0.6F) * plan.roll * per_degree);

    const std::size_t count = rest.size();
    posed_.resize(count);
    collar_.assign(count, 1.0F);
    for (std::size_t i = 0; i < count; ++i) {
        const float weight = model.head_weight[i];
        Vec3 p = face_[i];
        if (weight >= 1.0F) {
            posed_[i] = head_ * (p - head_joint);
            continue;
        }
        collar_[i] = above_collar(model.base[i], collar);
        p += person.shape.normals[i] * (cloth * smooth_step(0.02F, -0.04F, collar_[i]));
        p = p - head_joint;
        posed_[i] = mix(trunk_ * p, head_ * p, weight);
    }
    normals_.assign(count, Vec3{});
    add_normals(model.skin, posed_, normals_);
}

// Brings a piece's points before the camera, into piece_points_.
void Photographer::pose(const Person& person, const Piece& piece, const Expression* gaze) {
    const bool follows = !piece.follows.empty();
    piece_points_.resize(piece.points.size());
    const Mat3 look = gaze != nullptr ? rotation(gaze->gaze_yaw, gaze->gaze_pitch, 0) : Mat3{};
    for (std::size_t i = 0; i < piece.points.size(); ++i) {
        Vec3 p = piece.points[i];
        if (gaze != nullptr) {
            const Vec3 eye = p.x > 0 ? person.shape.left_eye : person.shape.right_eye;
            p = eye + look * (p - eye);
        } else if (follows) {
            const std::uint32_t skin = piece.follows[i];
            p += face_[skin] - person.shape.points[skin];
        }
        p = p - head_joint;
        // Long hair falls on the shoulders, which turn less than the head.
        const float weight = smooth_step(-1.9F, -0.7F, p.y);
        piece_points_[i] = weight >= 1.0F ? head_ * p : mix(trunk_ * p, head_ * p, weight);
    }
    piece_normals_.assign(piece.points.size(), Vec3{});
    add_normals(piece.surface, piece_points_, piece_normals_);
}

void Photographer::draw_piece(const Piece& piece) {
    const std::size_t count = piece.surface.point.size();
    vertices_.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t point = piece.surface.point[i];
        const Vec3 p = piece_points_[point];
        const Vec3 n = normalised(piece_normals_[point]);
        vertices_[i] = {camera_.x_of(p),
                        camera_.y_of(p),
                        camera_.depth_of(p),
                        {piece.surface.u[i], piece.surface.v[i], n.x, n.y, n.z,
                         piece.occlusion.empty() ? 0.9F : piece.occlusion[point],
                         piece.field.empty() ? 1.0F : piece.field[point]}};
    }
    draw(samples_, vertices_, piece.surface.triangles.data(), piece.surface.triangles.size(),
         piece.style);
    const bool casts =
        piece.style.material != eye_material && piece.style.material != teeth_material &&
        piece.style.material != tongue_material && piece.style.material != lash_material;
    if (shadowed_ && casts) {
        for (std::size_t i = 0; i < count; ++i) {
            const Vec3 p = piece_points_[piece.surface.point[i]];
            vertices_[i].x = shadow_.x_of(p);
            vertices_[i].y = shadow_.y_of(p);
            vertices_[i].depth = shadow_.depth_of(p);
        }
        DrawStyle style = piece.style;
        style.two_sided = true;
        draw(shadow_.map, vertices_, piece.surface.triangles.data(), piece.surface.triangles.size(),
             style);
    }
}

void Photographer::take(const Person& person, const PhotoPlan& plan, std::uint64_t picture,
                        std::uint8_t* pixels) {
    Random random(person.seed, person.number, picture + 1, Purpose::camera);
    Random backdrop(person.seed, person.number, picture + 1, Purpose::background);
    Random occluder(person.seed, person.number, picture + 1, Purpose::occluder);
    const HeadModel& model = studio_.model;
    const Shape& shape = person.shape;

    pose_skin(person, plan, random);
    const Vec3 eyes = head_ * (shape.eyes - head_joint), mouth = head_ * (shape.mouth - head_joint);
    camera_ = enlarged(camera_for(plan.box, plan.distance, eyes, mouth), fineness);
    samples_.clear(plan.size * fineness, plan.size * fineness);
    shadowed_ = plan.light.lamps[0].strength > 0.05F;
    if (shadowed_) {
        shadow_.aim(plan.light.lamps[0].towards, head_ * (Vec3{0, -0.1F, -0.6F} - head_joint), 2.1F,
                    176);
    }

    // The skin.
    const bool close = plan.size == crop_size;
    const std::size_t triangles = close ? model.close_triangles : model.skin.triangles.size();
    const Surface& skin = model.skin;
    vertices_.resize(skin.point.size());
    for (std::size_t i = 0; i < skin.point.size(); ++i) {
        const std::uint32_t point = skin.point[i];
        const Vec3 p = posed_[point];
        const Vec3 n = normalised(normals_[point]);
        vertices_[i] = {
            camera_.x_of(p),
            camera_.y_of(p),
            camera_.depth_of(p),
            {skin.u[i], skin.v[i], n.x, n.y, n.z, model.occlusion[point], collar_[point]}};
    }
    DrawStyle style;
    style.material = skin_material;
    draw(samples_, vertices_, skin.triangles.data(), triangles, style);
    if (shadowed_) {
        for (std::size_t i = 0; i < skin.point.size(); ++i) {
            const Vec3 p = posed_[skin.point[i]];
            vertices_[i].x = shadow_.x_of(p);
            vertices_[i].y = shadow_.y_of(p);
            vertices_[i].depth = shadow_.depth_of(p);
        }
        draw(shadow_.map, vertices_, skin.triangles.data(), model.close_triangles, style);
    }

    const auto put = [&](const Piece& piece, const Expression* gaze = nullptr) {
        if (!piece.empty()) {
            pose(person, piece, gaze);
            draw_piece(piece);
        }
    };
    put(person.eyes, &plan.expression);
    put(person.lashes);
    if (plan.expression.strength > 0.02F) {
        put(person.teeth);
        put(person.tongue);
    }
    put(person.hairdress.beard);
    const HairStyle& hair = person.hairdress.styles[plan.style];
    if (plan.occlusion == Occlusion::cap) {
        const Cap cap = draw_cap(model, shape, random);
        put(cap.crown);
        put(cap.brim);
        if (!hair.piece.empty()) {
            Piece under = hair.piece;
            under.surface.triangles = hair.under_cap;
            put(under);
        }
    } else {
        put(hair.piece);
        put(hair.fringe);
    }
    put(hair.curtain);
    if (plan.occlusion == Occlusion::face_mask) {
        put(draw_face_mask(model, shape, random));
    }
    float frame_reflectance = 0.05F, lens_reflectance = 0.05F;
    if (plan.occlusion == Occlusion::glasses || plan.occlusion == Occlusion::dark_glasses ||
        plan.glasses_as_well) {
        Glasses glasses = draw_glasses(shape, plan.occlusion == Occlusion::dark_glasses, random);
        frame_reflectance = glasses.frame_reflectance;
        lens_reflectance = glasses.lens_reflectance;
        put(glasses.frame);
        if (!glasses.lenses.empty()) {
            glasses.lenses.style.coverage = {Coverage::Kind::field, nullptr, 0, 0, 1.0F, 0};
            put(glasses.lenses);
        }
    }

    Surroundings around = surroundings(person, plan, frame_reflectance, lens_reflectance, random);
    around.stubble = studio_.kit.stubble.data();
    shade(samples_, camera_, plan.light, shadowed_ ? &shadow_ : nullptr, around, radiance_);

    draw_background(tones_, plan.size, plan.size, backdrop);
    develop(plan, backdrop);
    if (plan.occlusion == Occlusion::hand) {
        const float tone = std::pow(clamp01(person.identity.reflectance * plan.light.mean_level /
                                            (0.25F + 0.5F * person.identity.reflectance)),
                                    1.0F / plan.light.gamma);
        draw_occluder(tones_, plan.size, plan.size, plan.box.left + plan.box.size / 2,
                      plan.box.top + plan.box.size / 2, plan.box.size,
                      tone * occluder.uniform(0.7F, 1.2F), occluder);
    }
    degrade(tones_, plan.size, plan.size, plan.degradation, random, pixels);
}

// Averages the samples of each pixel, sets the exposure by the face and blends the figure over the
// background in tones_.
void Photographer::develop(const PhotoPlan& plan, Random& random) {
    const int size = plan.size;
    const auto pixels = static_cast<std::size_t>(size) * static_cast<std::size_t>(size);
    face_tones_.resize(pixels);
    cover_.resize(pixels);
    for (int y = 0; y < size; ++y) {
        const float* upper =
            &radiance_[static_cast<std::size_t>(2 * y) * static_cast<std::size_t>(samples_.stride)];
        const float* lower = upper + samples_.stride;
        float* tone = &face_tones_[static_cast<std::size_t>(y) * static_cast<std::size_t>(size)];
        float* cover = &cover_[static_cast<std::size_t>(y) * static_cast<std::size_t>(size)];
        for (int x = 0; x < size; ++x) {
            const float a = upper[2 * x], b = upper[2 * x + 1], c = lower[2 * x],
                        d = lower[2 * x + 1];
            const float count = (a >= 0 ? 1.0F : 0.0F) + (b >= 0 ? 1.0F : 0.0F) +
                                (c >= 0 ? 1.0F : 0.0F) + (d >= 0 ? 1.0F : 0.0F);
            const float sum =
                std::max(a, 0.0F) + std::max(b, 0.0F) + std::max(c, 0.0F) + std::max(d, 0.0F);
            cover[x] = 0.25F * count;
            tone[x] = sum / std::max(count, 1.0F);
        }
    }
    // The camera meters the middle of the face's box.
    const auto edge = [&](float at) { return std::clamp(static_cast<int>(at), 0, size); };
    double total = 0, weight = 1e-9;
    for (int y = edge(plan.box.top + 0.15F * plan.box.size);
         y < edge(plan.box.top + 0.9F * plan.box.size); ++y) {
        for (int x = edge(plan.box.left + 0.15F * plan.box.size);
             x < edge(plan.box.left + 0.85F * plan.box.size); ++x) {
            const auto i = static_cast<std::size_t>(y) * static_cast<std::size_t>(size) +
                           static_cast<std::size_t>(x);
            total += cover_[i] * face_tones_[i];
            weight += cover_[i];
        }
    }
    const float metered = std::max(static_cast<float>(total / weight), 1e-4F);
    // A meter only half makes up for dark skin.
    const float usual = 0.22F;
    const float exposure =
        plan.light.mean_level / (std::pow(metered, 0.62F) * std::pow(usual, 0.38F));
    const float inverse_gamma = 1.0F / plan.light.gamma, shoulder = plan.light.shoulder;
    const bool infrared = plan.light.kind == LightKind::infrared;
    const float far_light = plan.light.kind == LightKind::dark ? random.uniform(0.1F, 0.7F)
                            : infrared                         ? random.uniform(0.05F, 0.7F)
                                                               : 1.0F;
    for (std::size_t i = 0; i < pixels; ++i) {
        float level = exposure * face_tones_[i];
        level = mix(level, 1.25F * level / (1.0F + 0.55F * level), shoulder);
        const float tone = std::pow(std::min(level, 1.0F), inverse_gamma);
        tones_[i] = mix(far_light * tones_[i], tone, cover_[i]);
    }
}

void Photographer::take_empty(std::uint64_t seed, std::uint64_t number, std::uint64_t picture,
                              int size, std::uint8_t* pixels) {
    Random random(seed, number, picture + 1, Purpose::camera);
    Random backdrop(seed, number, picture + 1, Purpose::background);
    Random occluder(seed, number, picture + 1, Purpose::occluder);
    draw_background(tones_, size, size, backdrop);
    // Hands and things without a face teach what is no face.
    for (int i = occluder.below(3); i > 0; --i) {
        const float side = static_cast<float>(size);
        draw_occluder(tones_, size, size, side * occluder.uniform(), side * occluder.uniform(),
                      side * occluder.uniform(0.3F, 0.8F), occluder.uniform(0.1F, 0.9F), occluder);
    }
    degrade(tones_, size, size, draw_degradation(random.chance(0.15F), 1.2F, random), random,
            pixels);
}

} // namespace facegen
