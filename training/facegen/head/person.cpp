// SPDX-License-Identifier: MIT
#include "head/person.h"

#include "random.h"

namespace facegen {
namespace {

Piece FitPiece(const Fitted& fitted, const Shape& shape, Material material) {
    Piece piece;
    piece.points = Fit(fitted.fitting, shape.points);
    for (const auto& point : fitted.fitting.points) {
        piece.follows.push_back(point.base[0]);
    }
    piece.surface = fitted.surface;
    piece.style.material = material;
    return piece;
}

// Parts of the base mesh other than skin are pieces that follow their own points.
Piece OwnPiece(const Surface& surface, const Shape& shape, Material material) {
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
    float front = -kFarAway;
    for (const Vec3& p : piece.points) {
        front = std::max(front, p.z);
    }
    for (const Vec3& p : piece.points) {
        piece.occlusion.push_back(0.75f * SmoothStep(front - 0.4f, front, p.z));
    }
    piece.style.material = material;
    return piece;
}

// Leaves nothing of a person but the shape and the eyes.
void Strip(Person& person) {
    for (int y = 0; y < atlas::kSkin.height; ++y) {
        for (int x = 0; x < atlas::kSkin.width; ++x) {
            person.atlas.Set(x, y, 0.3f);
        }
    }
    person.identity.reflectance = 0.3f;
    person.hairdress.styles.resize(1);
    person.hairdress.styles[0] = HairStyle{};
    person.hairdress.beard = Piece{};
}

} // namespace

Studio OpenStudio(const std::filesystem::path& assets) {
    Studio studio;
    studio.model = LoadHeadModel(assets);
    studio.kit = MakeSkinKit(studio.model);
    studio.streaks = MakeStreaks();
    return studio;
}

void AddShapes(Studio& studio, const std::filesystem::path& shapes, float share) {
    studio.space = LoadShapeSpace(shapes, studio.model.number, studio.model.base);
    studio.scannedShare = share;
}

Person MakePerson(const Studio& studio, std::uint64_t seed, std::uint64_t number,
                  std::uint64_t look) {
    const HeadModel& model = studio.model;
    Person person;
    person.seed = seed;
    person.number = number;
    person.look = look;
    Random random(seed, number, 0, Purpose::kPerson);
    person.identity = DrawIdentity(random);
    // A stream of its own: without the space everybody stays who they were.
    person.identity.scanned = !studio.space.Empty() &&
                              Random(seed, number, 0, Purpose::kSpace).Chance(studio.scannedShare);
    person.identity.broad = studio.broad;
    person.identity.drawnBrows = studio.drawnBrows;
    person.shape = DrawShape(model, studio.space, person.identity, random);
    Random hair(seed, number, look, Purpose::kHair);
    person.hairiness = DrawHairiness(person.identity, hair);
    person.hairdress =
        DrawHairdress(model, person.shape, person.identity, person.hairiness, studio.streaks, hair);
    if (studio.broad && Random(seed, number, look, Purpose::kBroad).Chance(studio.hairless)) {
        person.hairdress.styles.resize(1);
        person.hairdress.styles[0] = HairStyle{};
        person.hairdress.styles[0].id = 1;
        person.hairdress.beard = Piece{};
        person.hairiness.beard = BeardStyle::kNone;
    }
    if (person.hairdress.styles.front().id == 1) { // shaven or bald
        person.hairiness.scalp = hair.Chance(0.5f) ? 0.0f : hair.Uniform(0.1f, 0.5f);
    }
    Random skin(seed, number, 0, Purpose::kSkin);
    PaintSkin(person.atlas, model, studio.kit, person.identity, person.hairiness, skin);
    PaintEyesAndMouth(person.atlas, model, person.identity, skin);
    PaintHairTiles(person.atlas, model, person.identity, person.hairdress, studio.streaks, skin);
    if (studio.bare) {
        Strip(person);
    }
    person.atlas.Pack();

    person.eyes = FitPiece(model.eyes, person.shape, kEyeMaterial);
    // The upper lid shades the eyeball.
    for (const Vec3& p : person.eyes.points) {
        const float up = (p.y - 0.5f * (person.shape.leftEye.y + person.shape.rightEye.y)) /
                         person.shape.eyeRadius;
        person.eyes.occlusion.push_back(Mix(0.85f, 0.35f, SmoothStep(-0.3f, 0.55f, up)));
    }
    const auto lash = static_cast<std::size_t>(skin.Below(static_cast<int>(model.lashes.size())));
    person.lashes = FitPiece(model.lashes[lash], person.shape, kLashMaterial);
    if (studio.bare) {
        person.lashes = Piece{};
    }
    person.lashes.style.twoSided = true;
    person.lashes.style.coverage = {
        Coverage::Kind::kTexture,
        &model.lashAlpha[lash],
        atlas::kHair.x,
        atlas::kHair.y,
        skin.Uniform(0.2f, 0.9f) * Mix(1.2f, 0.6f, person.identity.male),
        0};
    person.teeth = OwnPiece(model.teeth, person.shape, kTeethMaterial);
    person.tongue = OwnPiece(model.tongue, person.shape, kTongueMaterial);
    return person;
}

} // namespace facegen
