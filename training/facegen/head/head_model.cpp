// SPDX-License-Identifier: MIT
#include "head/head_model.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>

#include "head/head_regions.h"
#include "head/occlusion_bake.h"
#include "output/picture_files.h"
#include "skin/atlas.h"
#include "skin/texture_bake.h"

namespace facegen {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kDropped = 0xffffffffU;
constexpr const char* kEthnicityNames[] = {"african", "asian", "caucasian"};
constexpr const char* kSexNames[] = {"female", "male"};
constexpr const char* kAgeNames[] = {"child", "young", "old"};

// Files in a fixed order, since a folder's own order differs between machines.
std::vector<fs::path> FilesIn(const fs::path& folder, const std::string& ending) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.path().filename().string().ends_with(ending)) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<fs::path> FoldersIn(const fs::path& folder) {
    std::vector<fs::path> folders;
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.is_directory()) {
            folders.push_back(entry.path());
        }
    }
    std::sort(folders.begin(), folders.end());
    return folders;
}

ObjFile ReadObj(const fs::path& file) { return ParseObj(ReadText(file), file.string()); }
Fitting ReadFitting(const fs::path& file) { return ParseFitting(ReadText(file), file.string()); }

Target ReadTarget(const fs::path& file) {
    return ParseTarget(ReadGzippedText(file), file.string());
}

// Texture coordinates 0 to 1 (v upwards) to texels of a tile.
void PlaceInTile(Surface& surface, const atlas::Tile& tile) {
    for (std::size_t i = 0; i < surface.point.size(); ++i) {
        surface.u[i] =
            static_cast<float>(tile.x) + std::clamp(surface.u[i] * static_cast<float>(tile.width),
                                                    0.5f, static_cast<float>(tile.width) - 1.5f);
        surface.v[i] = static_cast<float>(tile.y) +
                       std::clamp((1.0f - surface.v[i]) * static_cast<float>(tile.height), 0.5f,
                                  static_cast<float>(tile.height) - 1.5f);
    }
}

// What lies outside the head's window of the sheet takes a texel of plain skin on the neck.
void PlaceSkin(Surface& surface, const std::vector<Vec3>& base) {
    constexpr float sheet = static_cast<float>(atlas::kSkinSheet);
    const auto uOf = [&](std::size_t i) {
        return surface.u[i] * sheet - static_cast<float>(atlas::kSkinLeft) - 0.5f;
    };
    const auto vOf = [&](std::size_t i) {
        return (1.0f - surface.v[i]) * sheet - static_cast<float>(atlas::kSkinTop) - 0.5f;
    };
    std::vector<float> u(surface.point.size()), v(surface.point.size());
    std::size_t neck = 0;
    float nearest = 1e9f;
    for (std::size_t i = 0; i < u.size(); ++i) {
        u[i] = uOf(i);
        v[i] = vOf(i);
        const float distance = Length(base[surface.point[i]] - Vec3{0.25f, 6.05f, 0.72f});
        if (distance < nearest) {
            nearest = distance;
            neck = i;
        }
    }
    for (std::size_t i = 0; i < u.size(); ++i) {
        const bool inside = u[i] > 1.0f && u[i] < static_cast<float>(atlas::kSkin.width) - 2.0f &&
                            v[i] > 1.0f && v[i] < static_cast<float>(atlas::kSkin.height) - 2.0f &&
                            base[surface.point[i]].y > 5.0f;
        surface.u[i] = inside ? u[i] : u[neck];
        surface.v[i] = inside ? v[i] : v[neck];
    }
}

void OneTexel(Surface& surface, const atlas::Tile& tile) {
    std::fill(surface.u.begin(), surface.u.end(), static_cast<float>(tile.x + 2));
    std::fill(surface.v.begin(), surface.v.end(), static_cast<float>(tile.y + 2));
}

// Keeps the points that anything uses and renumbers them.
class PointFilter {
  public:
    explicit PointFilter(std::size_t points) : newIndex_(points, kDropped) {}

    void Want(std::uint32_t point) {
        if (point >= newIndex_.size()) {
            throw std::runtime_error("a fitting names a point that the base mesh does not have");
        }
        newIndex_[point] = 0;
    }
    void Want(const Surface& surface) {
        for (const std::uint32_t point : surface.point) {
            Want(point);
        }
    }
    void Want(const Fitting& fitting) {
        for (const auto& point : fitting.points) {
            for (const std::uint32_t base : point.base) {
                Want(base);
            }
        }
        for (const auto& scale : fitting.scale) {
            Want(scale.from);
            Want(scale.to);
        }
    }

    std::vector<Vec3> Apply(const std::vector<Vec3>& points) {
        std::vector<Vec3> kept;
        for (std::size_t i = 0; i < points.size(); ++i) {
            if (newIndex_[i] != kDropped) {
                newIndex_[i] = static_cast<std::uint32_t>(kept.size());
                kept.push_back(points[i]);
            }
        }
        return kept;
    }

    // The numbers of the points that were kept, in their order.
    std::vector<std::uint32_t> Kept() const {
        std::vector<std::uint32_t> numbers;
        for (std::size_t i = 0; i < newIndex_.size(); ++i) {
            if (newIndex_[i] != kDropped) {
                numbers.push_back(static_cast<std::uint32_t>(i));
            }
        }
        return numbers;
    }

    std::uint32_t operator()(std::uint32_t point) const { return newIndex_.at(point); }
    void Renumber(Surface& surface) const {
        for (std::uint32_t& point : surface.point) {
            point = newIndex_[point];
        }
    }
    void Renumber(Fitting& fitting) const {
        for (auto& point : fitting.points) {
            for (std::uint32_t& base : point.base) {
                base = newIndex_[base];
            }
        }
        for (auto& scale : fitting.scale) {
            scale.from = newIndex_[scale.from];
            scale.to = newIndex_[scale.to];
        }
    }
    Target Renumbered(const Target& target) const {
        Target kept;
        for (std::size_t i = 0; i < target.point.size(); ++i) {
            const std::uint32_t index = newIndex_.at(target.point[i]);
            if (index != kDropped) {
                kept.point.push_back(index);
                kept.shift.push_back(target.shift[i]);
            }
        }
        return kept;
    }

  private:
    std::vector<std::uint32_t> newIndex_;
};

Fitted ReadFitted(const fs::path& folder, const std::string& name, const atlas::Tile& tile) {
    Fitted fitted;
    fitted.name = name;
    const ObjFile obj = ReadObj(folder / (name + ".obj"));
    fitted.fitting = ReadFitting(folder / (name + ".mhclo"));
    if (obj.points.size() != fitted.fitting.points.size()) {
        throw std::runtime_error(name + ": its mesh and its fitting differ in their points");
    }
    SurfaceBuilder builder(obj);
    for (const ObjFace& face : obj.faces) {
        builder.Add(face);
    }
    fitted.surface = builder.Take();
    PlaceInTile(fitted.surface, tile);
    return fitted;
}

void AddSkin(HeadModel& model, const ObjFile& obj) {
    const auto body = std::find(obj.groups.begin(), obj.groups.end(), "body") - obj.groups.begin();
    SurfaceBuilder builder(obj);
    std::size_t closeFaces = 0;
    for (const bool close : {true, false}) {
        for (const ObjFace& face : obj.faces) {
            if (face.group != body) {
                continue;
            }
            float lowest = 1e9f, widest = 0;
            for (int i = 0; i < face.corners; ++i) {
                const Vec3 p = obj.points[face.corner[i].point];
                lowest = std::min(lowest, p.y);
                widest = std::max(widest, std::fabs(p.x));
            }
            const bool isClose = lowest > 4.9f && widest < 2.4f;
            if (isClose == close && lowest > 2.0f && widest < 3.2f) {
                builder.Add(face);
                closeFaces += close ? 1 : 0;
            }
        }
    }
    model.skin = builder.Take();
    model.closeTriangles = 2 * closeFaces; // the base mesh has faces of four corners only
}

Surface GroupsOf(const ObjFile& obj, const std::set<std::string>& names) {
    SurfaceBuilder builder(obj);
    for (const ObjFace& face : obj.faces) {
        if (names.count(obj.groups[static_cast<std::size_t>(face.group)]) > 0) {
            builder.Add(face);
        }
    }
    return builder.Take();
}

std::vector<std::uint32_t> PointsOfGroup(const ObjFile& obj, const std::string& name) {
    std::set<std::uint32_t> points;
    for (const ObjFace& face : obj.faces) {
        if (obj.groups[static_cast<std::size_t>(face.group)] == name) {
            for (int i = 0; i < face.corners; ++i) {
                points.insert(face.corner[i].point);
            }
        }
    }
    if (points.empty()) {
        throw std::runtime_error("the base mesh has no group " + name);
    }
    return {points.begin(), points.end()};
}

fs::path HairPicture(const fs::path& assets, const std::string& name) {
    return assets / "hair" / name / (name + "_diffuse.png");
}

// "l-eye-scale-incr" is the way up of the axis "eye-scale" on the left.
void AddDetail(HeadModel& model, std::map<std::string, std::size_t>& known, const std::string& name,
               Target target) {
    static const std::vector<std::pair<std::string, std::string>> kWays{
        {"-incr", "-decr"},        {"-up", "-down"},        {"-out", "-in"},
        {"-forward", "-backward"}, {"-convex", "-concave"}, {"-uncompress", "-compress"}};
    std::string stem = name;
    bool more = true;
    for (const auto& [up, down] : kWays) {
        for (const bool isUp : {true, false}) {
            const std::string& ending = isUp ? up : down;
            // "-compress" also ends in what "-uncompress" does not, since that has no dash before.
            if (stem == name && name.ends_with(ending)) {
                stem = name.substr(0, name.size() - ending.size());
                more = isUp;
            }
        }
    }
    int side = 0;
    std::string key = stem;
    if (stem.starts_with("l-") || stem.starts_with("r-")) {
        side = stem.starts_with("l-") ? 1 : -1;
        stem = stem.substr(2);
    }
    const auto [at, is_new] = known.try_emplace(key, model.axes.size());
    if (is_new) {
        model.axes.push_back({stem, side, -1, -1});
    }
    (more ? model.axes[at->second].more : model.axes[at->second].less) =
        static_cast<int>(model.details.size());
    model.details.push_back(std::move(target));
}

std::string TargetName(const fs::path& file) {
    std::string name = file.filename().string();
    return name.substr(0, name.size() - std::string(".target.gz").size());
}

void ReadTargets(HeadModel& model, const fs::path& folder, const PointFilter& filter) {
    for (int e = 0; e < kEthnicities; ++e) {
        for (int s = 0; s < kSexes; ++s) {
            for (int a = 0; a < kAges; ++a) {
                const std::string name = std::string(kEthnicityNames[e]) + "-" + kSexNames[s] +
                                         "-" + kAgeNames[a] + ".target.gz";
                model.macro[e][s][a] = filter.Renumbered(ReadTarget(folder / "macro" / name));
            }
        }
    }
    std::map<std::string, std::size_t> known;
    for (const char* part :
         {"head", "eyes", "nose", "mouth", "ears", "chin", "cheek", "forehead", "neck", "asym"}) {
        for (const fs::path& file : FilesIn(folder / part, ".target.gz")) {
            const std::string name = TargetName(file);
            if (name.starts_with("asymm-")) {
                continue; // those of the trunk
            }
            AddDetail(model, known, name, filter.Renumbered(ReadTarget(file)));
        }
    }
    for (const fs::path& file :
         FilesIn(folder / "expression/units" / kEthnicityNames[0], ".target.gz")) {
        ExpressionUnit unit;
        unit.name = TargetName(file);
        for (int e = 0; e < kEthnicities; ++e) {
            unit.target[e] = filter.Renumbered(
                ReadTarget(folder / "expression/units" / kEthnicityNames[e] / file.filename()));
        }
        model.units.push_back(std::move(unit));
    }
}

void ReadTextures(HeadModel& model, const fs::path& assets) {
    for (const Fitted& hair : model.hairs) {
        model.hairTextures.push_back(BakeHairTexture(ReadPng(HairPicture(assets, hair.name))));
    }
    for (const Fitted& lashes : model.lashes) {
        const Picture picture =
            ReadPng(assets / "eyelashes" / lashes.name / (lashes.name + ".png"));
        model.lashAlpha.push_back(ReducedChannel(picture, 3, atlas::kHair.width));
    }
    for (const fs::path& file : FilesIn(assets / "eyes/materials", ".png")) {
        model.eyeTones.push_back(ReducedChannel(ReadPng(file), 1, atlas::kEyes.width));
    }
    for (const fs::path& file : FilesIn(assets / "skins", ".jpg")) {
        model.skins.push_back(SkinDetail(ReadJpeg(file), model));
        model.skinNames.push_back(file.stem().string());
    }
}

void BakeBrows(HeadModel& model, const fs::path& assets, const PointFilter& filter) {
    for (const fs::path& folder : FoldersIn(assets / "eyebrows")) {
        const std::string name = folder.filename().string();
        Fitted brow = ReadFitted(folder, name, atlas::Tile{0, 0, 512, 512});
        filter.Renumber(brow.fitting);
        model.brows.push_back(BrowCoverage(brow, ReadPng(folder / (name + ".png")), model));
    }
}

} // namespace

std::vector<Vec3> Fit(const Fitting& fitting, const std::vector<Vec3>& points) {
    const auto along = [](Vec3 v, std::size_t axis) {
        return axis == 0 ? v.x : axis == 1 ? v.y : v.z;
    };
    float scale[3] = {1, 1, 1};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const Fitting::Scale& s = fitting.scale[axis];
        if (s.length > 0) {
            scale[axis] = std::fabs(along(points[s.from] - points[s.to], axis)) / s.length;
        }
    }
    std::vector<Vec3> fitted;
    fitted.reserve(fitting.points.size());
    for (const Fitting::Point& p : fitting.points) {
        Vec3 at{p.offset.x * scale[0], p.offset.y * scale[1], p.offset.z * scale[2]};
        for (std::size_t i = 0; i < 3; ++i) {
            at += points[p.base[i]] * p.weight[i];
        }
        fitted.push_back(at);
    }
    return fitted;
}

namespace {

// All points that may be the nose's tip on some head.
void AddNose(HeadModel& model, std::uint32_t tip) {
    constexpr float kReach = 0.11f;
    for (const std::uint32_t point : model.skin.point) {
        if (Length(model.base[point] - model.base[tip]) < kReach) {
            model.nose.push_back(point);
        }
    }
    std::sort(model.nose.begin(), model.nose.end());
    model.nose.erase(std::unique(model.nose.begin(), model.nose.end()), model.nose.end());
}

// The base mesh's eyes look straight ahead.
void AddPupils(HeadModel& model) {
    const std::vector<Vec3> eyes = Fit(model.eyes.fitting, model.base);
    float furthest = eyes.front().z;
    for (const Vec3& p : eyes) {
        furthest = std::max(furthest, p.z);
    }
    for (std::uint32_t i = 0; i < eyes.size(); ++i) {
        if (eyes[i].z > furthest - 0.002f) {
            (eyes[i].x > 0 ? model.leftPupil : model.rightPupil).push_back(i);
        }
    }
}

} // namespace

HeadModel LoadHeadModel(const fs::path& assets) {
    HeadModel model;
    const ObjFile obj = ReadObj(assets / "base" / "base.obj");
    AddSkin(model, obj);
    model.teeth = GroupsOf(obj, {"helper-upper-teeth", "helper-lower-teeth"});
    model.tongue = GroupsOf(obj, {"helper-tongue"});
    OneTexel(model.teeth, atlas::kTeeth);
    OneTexel(model.tongue, atlas::kTongue);
    PlaceSkin(model.skin, obj.points);

    model.eyes = ReadFitted(assets / "eyes", "low-poly", atlas::kEyes);
    for (const fs::path& folder : FoldersIn(assets / "eyelashes")) {
        model.lashes.push_back(ReadFitted(folder, folder.filename().string(), atlas::kHair));
    }
    for (const fs::path& folder : FoldersIn(assets / "hair")) {
        if (!fs::exists(HairPicture(assets, folder.filename().string()))) {
            continue; // some styles come without their texture and would look like helmets
        }
        model.hairs.push_back(ReadFitted(folder, folder.filename().string(), atlas::kHair));
    }

    PointFilter filter(obj.points.size());
    model.leftEye = PointsOfGroup(obj, "helper-l-eye");
    model.rightEye = PointsOfGroup(obj, "helper-r-eye");
    for (const Surface* surface : {&model.skin, &model.teeth, &model.tongue}) {
        filter.Want(*surface);
    }
    filter.Want(model.eyes.fitting);
    for (const auto* group : {&model.lashes, &model.hairs}) {
        for (const Fitted& fitted : *group) {
            filter.Want(fitted.fitting);
        }
    }
    for (const auto* group : {&model.leftEye, &model.rightEye}) {
        for (const std::uint32_t point : *group) {
            filter.Want(point);
        }
    }
    model.base = filter.Apply(obj.points);
    model.number = filter.Kept();
    for (Surface* surface : {&model.skin, &model.teeth, &model.tongue}) {
        filter.Renumber(*surface);
    }
    filter.Renumber(model.eyes.fitting);
    for (auto* group : {&model.lashes, &model.hairs}) {
        for (Fitted& fitted : *group) {
            filter.Renumber(fitted.fitting);
        }
    }
    for (auto* group : {&model.leftEye, &model.rightEye}) {
        for (std::uint32_t& point : *group) {
            point = filter(point);
        }
    }
    // By their places in the base mesh: the upper edge of the upper lip on the midline, and the nose.
    constexpr std::uint32_t lipEdgePoint = 455, nosePoint = 5054;
    model.lipEdge = filter(lipEdgePoint);
    AddNose(model, filter(nosePoint));
    AddPupils(model);

    ReadTargets(model, assets / "targets", filter);
    for (const Vec3& point : model.base) {
        model.headWeight.push_back(FollowsHead(point));
    }
    BakeOcclusion(model);
    BakeTexelBase(model);
    ReadTextures(model, assets);
    BakeBrows(model, assets, filter);
    return model;
}

} // namespace facegen
