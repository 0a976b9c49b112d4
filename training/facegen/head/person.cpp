// SPDX-License-Identifier: MIT
#include "head/person.h"

#include "random.h"

namespace facegen {
namespace {

Piece fit_piece(const Fitted& fitted, const Shape& shape, Material material) {
    Piece piece;
    piece.points = fit(fitted.fitting, shape.points);
    for (const auto& point : fitted.fitting.points) {
        piece.follows.push_back(point.base[0]);
    }
    piece.surface = fitted.surface;
    piece.style.material = material;
    return piece;
}

// Parts of the base mesh other than skin are pieces that follow their own points.
Piece own_piece(const Surface& surface, const Shape& shape, Material material) {
    Piece piece;
    piece.surface = surface;
    std::vector<std::uint32_t> index(shape.points.size(), 0xffffffffU);
    for (std::uint32_t& point : piece.surface.point) {
        if (index[point] == 0xffffffffU) {
            index[point] = static_cast<std::uint32_t>(piece.points.size());
            piece.points.push_back(shape.points[point]);
            piece.follows.push_back(point);
        }
        point = index[point];
    }
    // Light reaches the front of the mouth only.
    float front = -far_away;
    for (const Vec3& p : piece.points) {
        front = std::max(front, p.z);
    }
    for (const Vec3& p : piece.points) {
        piece.occlusion.push_back(0.75F * smooth_step(front - 0.4F, front, p.z));
    }
    piece.style.material = material;
    return piece;
}

// Leaves nothing of a person but the shape and the eyes.
void strip(Person& person) {
    for (int y = 0; y < atlas::skin.height; ++y) {
        for (int x = 0; x < atlas::skin.width; ++x) {
            person.atlas.set(x, y, 0.3F);
        }
    }
    person.identity.reflectance = 0.3F;
    person.hairdress.styles.resize(1);
    person.hairdress.styles[0] = HairStyle{};
    person.hairdress.beard = Piece{};
}

} // namespace

Studio open_studio(const std::filesystem::path& assets) {
    Studio studio;
    studio.model = load_head_model(assets);
    studio.kit = make_skin_kit(studio.model);
    studio.streaks = make_streaks();
    return studio;
}

void add_shapes(Studio& studio, const std::filesystem::path& shapes, float share) {
    studio.space = load_shape_space(shapes, studio.model.number, studio.model.base);
    studio.scanned_share = share;
}

Person make_person(const Studio& studio, std::uint64_t seed, std::uint64_t number) {
    const HeadModel& model = studio.model;
    Person person;
    person.seed = seed;
    person.number = number;
    Random random(seed, number, 0, Purpose::person);
    person.identity = draw_identity(random);
    // A stream of its own: without the space everybody stays who they were.
    person.identity.scanned = !studio.space.empty() &&
                              Random(seed, number, 0, Purpose::space).chance(studio.scanned_share);
    person.shape = draw_shape(model, studio.space, person.identity, random);
    Random hair(seed, number, 0, Purpose::hair);
    person.hairiness = draw_hairiness(person.identity, hair);
    person.hairdress = draw_hairdress(model, person.shape, person.identity, person.hairiness,
                                      studio.streaks, hair);
    if (person.hairdress.styles.front().id == 1) { // shaven or bald
        person.hairiness.scalp = hair.chance(0.5F) ? 0.0F : hair.uniform(0.1F, 0.5F);
    }
    Random skin(seed, number, 0, Purpose::skin);
    paint_skin(person.atlas, model, studio.kit, person.identity, person.hairiness, skin);
    paint_eyes_and_mouth(person.atlas, model, person.identity, skin);
    paint_hair_tiles(person.atlas, model, person.identity, person.hairdress, studio.streaks, skin);
    if (studio.bare) {
        strip(person);
    }
    person.atlas.pack();

    person.eyes = fit_piece(model.eyes, person.shape, eye_material);
    // The upper lid shades the eyeball.
    for (const Vec3& p : person.eyes.points) {
        const float up = (p.y - 0.5F * (person.shape.left_eye.y + person.shape.right_eye.y)) /
                         person.shape.eye_radius;
        person.eyes.occlusion.push_back(mix(0.85F, 0.35F, smooth_step(-0.3F, 0.55F, up)));
    }
    const auto lash = static_cast<std::size_t>(skin.below(static_cast<int>(model.lashes.size())));
    person.lashes = fit_piece(model.lashes[lash], person.shape, lash_material);
    if (studio.bare) {
        person.lashes = Piece{};
    }
    person.lashes.style.two_sided = true;
    person.lashes.style.coverage = {
        Coverage::Kind::texture,
        &model.lash_alpha[lash],
        atlas::hair.x,
        atlas::hair.y,
        skin.uniform(0.2F, 0.9F) * mix(1.2F, 0.6F, person.identity.male),
        0};
    person.teeth = own_piece(model.teeth, person.shape, teeth_material);
    person.tongue = own_piece(model.tongue, person.shape, tongue_material);
    return person;
}

} // namespace facegen
