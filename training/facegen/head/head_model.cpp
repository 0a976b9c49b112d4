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

constexpr std::uint32_t dropped = 0xffffffffU;
constexpr const char* ethnicity_names[] = {"african", "asian", "caucasian"};
constexpr const char* sex_names[] = {"female", "male"};
constexpr const char* age_names[] = {"child", "young", "old"};

// Files in a fixed order, since a folder's own order differs between machines.
std::vector<fs::path> files_in(const fs::path& folder, const std::string& ending) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.path().filename().string().ends_with(ending)) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<fs::path> folders_in(const fs::path& folder) {
    std::vector<fs::path> folders;
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.is_directory()) {
            folders.push_back(entry.path());
        }
    }
    std::sort(folders.begin(), folders.end());
    return folders;
}

ObjFile read_obj(const fs::path& file) { return parse_obj(read_text(file), file.string()); }
Fitting read_fitting(const fs::path& file) { return parse_fitting(read_text(file), file.string()); }

Target read_target(const fs::path& file) {
    return parse_target(read_gzipped_text(file), file.string());
}

// Texture coordinates 0 to 1 (v upwards) to texels of a tile.
void place_in_tile(Surface& surface, const atlas::Tile& tile) {
    for (std::size_t i = 0; i < surface.point.size(); ++i) {
        surface.u[i] =
            static_cast<float>(tile.x) + std::clamp(surface.u[i] * static_cast<float>(tile.width),
                                                    0.5F, static_cast<float>(tile.width) - 1.5F);
        surface.v[i] = static_cast<float>(tile.y) +
                       std::clamp((1.0F - surface.v[i]) * static_cast<float>(tile.height), 0.5F,
                                  static_cast<float>(tile.height) - 1.5F);
    }
}

// What lies outside the head's window of the sheet takes a texel of plain skin on the neck.
void place_skin(Surface& surface, const std::vector<Vec3>& base) {
    constexpr float sheet = static_cast<float>(atlas::skin_sheet);
    const auto u_of = [&](std::size_t i) {
        return surface.u[i] * sheet - static_cast<float>(atlas::skin_left) - 0.5F;
    };
    const auto v_of = [&](std::size_t i) {
        return (1.0F - surface.v[i]) * sheet - static_cast<float>(atlas::skin_top) - 0.5F;
    };
    std::vector<float> u(surface.point.size()), v(surface.point.size());
    std::size_t neck = 0;
    float nearest = 1e9F;
    for (std::size_t i = 0; i < u.size(); ++i) {
        u[i] = u_of(i);
        v[i] = v_of(i);
        const float distance = length(base[surface.point[i]] - Vec3{0.25F, 6.05F, 0.72F});
        if (distance < nearest) {
            nearest = distance;
            neck = i;
        }
    }
    for (std::size_t i = 0; i < u.size(); ++i) {
        const bool inside = u[i] > 1.0F && u[i] < static_cast<float>(atlas::skin.width) - 2.0F &&
                            v[i] > 1.0F && v[i] < static_cast<float>(atlas::skin.height) - 2.0F &&
                            base[surface.point[i]].y > 5.0F;
        surface.u[i] = inside ? u[i] : u[neck];
        surface.v[i] = inside ? v[i] : v[neck];
    }
}

void one_texel(Surface& surface, const atlas::Tile& tile) {
    std::fill(surface.u.begin(), surface.u.end(), static_cast<float>(tile.x + 2));
    std::fill(surface.v.begin(), surface.v.end(), static_cast<float>(tile.y + 2));
}

// Keeps the points that anything uses and renumbers them.
class PointFilter {
  public:
    explicit PointFilter(std::size_t points) : new_index_(points, dropped) {}

    void want(std::uint32_t point) {
        if (point >= new_index_.size()) {
            throw std::runtime_error("a fitting names a point that the base mesh does not have");
        }
        new_index_[point] = 0;
    }
    void want(const Surface& surface) {
        for (const std::uint32_t point : surface.point) {
            want(point);
        }
    }
    void want(const Fitting& fitting) {
        for (const auto& point : fitting.points) {
            for (const std::uint32_t base : point.base) {
                want(base);
            }
        }
        for (const auto& scale : fitting.scale) {
            want(scale.from);
            want(scale.to);
        }
    }

    std::vector<Vec3> apply(const std::vector<Vec3>& points) {
        std::vector<Vec3> kept;
        for (std::size_t i = 0; i < points.size(); ++i) {
            if (new_index_[i] != dropped) {
                new_index_[i] = static_cast<std::uint32_t>(kept.size());
                kept.push_back(points[i]);
            }
        }
        return kept;
    }

    // The numbers of the points that were kept, in their order.
    std::vector<std::uint32_t> kept() const {
        std::vector<std::uint32_t> numbers;
        for (std::size_t i = 0; i < new_index_.size(); ++i) {
            if (new_index_[i] != dropped) {
                numbers.push_back(static_cast<std::uint32_t>(i));
            }
        }
        return numbers;
    }

    std::uint32_t operator()(std::uint32_t point) const { return new_index_.at(point); }
    void renumber(Surface& surface) const {
        for (std::uint32_t& point : surface.point) {
            point = new_index_[point];
        }
    }
    void renumber(Fitting& fitting) const {
        for (auto& point : fitting.points) {
            for (std::uint32_t& base : point.base) {
                base = new_index_[base];
            }
        }
        for (auto& scale : fitting.scale) {
            scale.from = new_index_[scale.from];
            scale.to = new_index_[scale.to];
        }
    }
    Target renumbered(const Target& target) const {
        Target kept;
        for (std::size_t i = 0; i < target.point.size(); ++i) {
            const std::uint32_t index = new_index_.at(target.point[i]);
            if (index != dropped) {
                kept.point.push_back(index);
                kept.shift.push_back(target.shift[i]);
            }
        }
        return kept;
    }

  private:
    std::vector<std::uint32_t> new_index_;
};

Fitted read_fitted(const fs::path& folder, const std::string& name, const atlas::Tile& tile) {
    Fitted fitted;
    fitted.name = name;
    const ObjFile obj = read_obj(folder / (name + ".obj"));
    fitted.fitting = read_fitting(folder / (name + ".mhclo"));
    if (obj.points.size() != fitted.fitting.points.size()) {
        throw std::runtime_error(name + ": its mesh and its fitting differ in their points");
    }
    SurfaceBuilder builder(obj);
    for (const ObjFace& face : obj.faces) {
        builder.add(face);
    }
    fitted.surface = builder.take();
    place_in_tile(fitted.surface, tile);
    return fitted;
}

void add_skin(HeadModel& model, const ObjFile& obj) {
    const auto body = std::find(obj.groups.begin(), obj.groups.end(), "body") - obj.groups.begin();
    SurfaceBuilder builder(obj);
    std::size_t close_faces = 0;
    for (const bool close : {true, false}) {
        for (const ObjFace& face : obj.faces) {
            if (face.group != body) {
                continue;
            }
            float lowest = 1e9F, widest = 0;
            for (int i = 0; i < face.corners; ++i) {
                const Vec3 p = obj.points[face.corner[i].point];
                lowest = std::min(lowest, p.y);
                widest = std::max(widest, std::fabs(p.x));
            }
            const bool is_close = lowest > 4.9F && widest < 2.4F;
            if (is_close == close && lowest > 2.0F && widest < 3.2F) {
                builder.add(face);
                close_faces += close ? 1 : 0;
            }
        }
    }
    model.skin = builder.take();
    model.close_triangles = 2 * close_faces; // the base mesh has faces of four corners only
}

Surface groups_of(const ObjFile& obj, const std::set<std::string>& names) {
    SurfaceBuilder builder(obj);
    for (const ObjFace& face : obj.faces) {
        if (names.count(obj.groups[static_cast<std::size_t>(face.group)]) > 0) {
            builder.add(face);
        }
    }
    return builder.take();
}

std::vector<std::uint32_t> points_of_group(const ObjFile& obj, const std::string& name) {
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

fs::path hair_picture(const fs::path& assets, const std::string& name) {
    return assets / "hair" / name / (name + "_diffuse.png");
}

// "l-eye-scale-incr" is the way up of the axis "eye-scale" on the left.
void add_detail(HeadModel& model, std::map<std::string, std::size_t>& known,
                const std::string& name, Target target) {
    static const std::vector<std::pair<std::string, std::string>> ways{
        {"-incr", "-decr"},        {"-up", "-down"},        {"-out", "-in"},
        {"-forward", "-backward"}, {"-convex", "-concave"}, {"-uncompress", "-compress"}};
    std::string stem = name;
    bool more = true;
    for (const auto& [up, down] : ways) {
        for (const bool is_up : {true, false}) {
            const std::string& ending = is_up ? up : down;
            // "-compress" also ends in what "-uncompress" does not, since that has no dash before.
            if (stem == name && name.ends_with(ending)) {
                stem = name.substr(0, name.size() - ending.size());
                more = is_up;
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

std::string target_name(const fs::path& file) {
    std::string name = file.filename().string();
    return name.substr(0, name.size() - std::string(".target.gz").size());
}

void read_targets(HeadModel& model, const fs::path& folder, const PointFilter& filter) {
    for (int e = 0; e < ethnicities; ++e) {
        for (int s = 0; s < sexes; ++s) {
            for (int a = 0; a < ages; ++a) {
                const std::string name = std::string(ethnicity_names[e]) + "-" + sex_names[s] +
                                         "-" + age_names[a] + ".target.gz";
                model.macro[e][s][a] = filter.renumbered(read_target(folder / "macro" / name));
            }
        }
    }
    std::map<std::string, std::size_t> known;
    for (const char* part :
         {"head", "eyes", "nose", "mouth", "ears", "chin", "cheek", "forehead", "neck", "asym"}) {
        for (const fs::path& file : files_in(folder / part, ".target.gz")) {
            const std::string name = target_name(file);
            if (name.starts_with("asymm-")) {
                continue; // those of the trunk
            }
            add_detail(model, known, name, filter.renumbered(read_target(file)));
        }
    }
    for (const fs::path& file :
         files_in(folder / "expression/units" / ethnicity_names[0], ".target.gz")) {
        ExpressionUnit unit;
        unit.name = target_name(file);
        for (int e = 0; e < ethnicities; ++e) {
            unit.target[e] = filter.renumbered(
                read_target(folder / "expression/units" / ethnicity_names[e] / file.filename()));
        }
        model.units.push_back(std::move(unit));
    }
}

void read_textures(HeadModel& model, const fs::path& assets) {
    for (const Fitted& hair : model.hairs) {
        model.hair_textures.push_back(hair_texture(read_png(hair_picture(assets, hair.name))));
    }
    for (const Fitted& lashes : model.lashes) {
        const Picture picture =
            read_png(assets / "eyelashes" / lashes.name / (lashes.name + ".png"));
        model.lash_alpha.push_back(reduced_channel(picture, 3, atlas::hair.width));
    }
    for (const fs::path& file : files_in(assets / "eyes/materials", ".png")) {
        model.eye_tones.push_back(reduced_channel(read_png(file), 1, atlas::eyes.width));
    }
    for (const fs::path& file : files_in(assets / "skins", ".jpg")) {
        model.skins.push_back(skin_detail(read_jpeg(file), model));
        model.skin_names.push_back(file.stem().string());
    }
}

void bake_brows(HeadModel& model, const fs::path& assets, const PointFilter& filter) {
    for (const fs::path& folder : folders_in(assets / "eyebrows")) {
        const std::string name = folder.filename().string();
        Fitted brow = read_fitted(folder, name, atlas::Tile{0, 0, 512, 512});
        filter.renumber(brow.fitting);
        model.brows.push_back(brow_coverage(brow, read_png(folder / (name + ".png")), model));
    }
}

} // namespace

std::vector<Vec3> fit(const Fitting& fitting, const std::vector<Vec3>& points) {
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

HeadModel load_head_model(const fs::path& assets) {
    HeadModel model;
    const ObjFile obj = read_obj(assets / "base" / "base.obj");
    add_skin(model, obj);
    model.teeth = groups_of(obj, {"helper-upper-teeth", "helper-lower-teeth"});
    model.tongue = groups_of(obj, {"helper-tongue"});
    one_texel(model.teeth, atlas::teeth);
    one_texel(model.tongue, atlas::tongue);
    place_skin(model.skin, obj.points);

    model.eyes = read_fitted(assets / "eyes", "low-poly", atlas::eyes);
    for (const fs::path& folder : folders_in(assets / "eyelashes")) {
        model.lashes.push_back(read_fitted(folder, folder.filename().string(), atlas::hair));
    }
    for (const fs::path& folder : folders_in(assets / "hair")) {
        if (!fs::exists(hair_picture(assets, folder.filename().string()))) {
            continue; // some styles come without their texture and would look like helmets
        }
        model.hairs.push_back(read_fitted(folder, folder.filename().string(), atlas::hair));
    }

    PointFilter filter(obj.points.size());
    model.left_eye = points_of_group(obj, "helper-l-eye");
    model.right_eye = points_of_group(obj, "helper-r-eye");
    for (const Surface* surface : {&model.skin, &model.teeth, &model.tongue}) {
        filter.want(*surface);
    }
    filter.want(model.eyes.fitting);
    for (const auto* group : {&model.lashes, &model.hairs}) {
        for (const Fitted& fitted : *group) {
            filter.want(fitted.fitting);
        }
    }
    for (const auto* group : {&model.left_eye, &model.right_eye}) {
        for (const std::uint32_t point : *group) {
            filter.want(point);
        }
    }
    model.base = filter.apply(obj.points);
    model.number = filter.kept();
    for (Surface* surface : {&model.skin, &model.teeth, &model.tongue}) {
        filter.renumber(*surface);
    }
    filter.renumber(model.eyes.fitting);
    for (auto* group : {&model.lashes, &model.hairs}) {
        for (Fitted& fitted : *group) {
            filter.renumber(fitted.fitting);
        }
    }
    for (auto* group : {&model.left_eye, &model.right_eye}) {
        for (std::uint32_t& point : *group) {
            point = filter(point);
        }
    }
    // The upper edge of the upper lip on the midline, by its place in the base mesh.
    constexpr std::uint32_t lip_edge_point = 455;
    model.lip_edge = filter(lip_edge_point);

    read_targets(model, assets / "targets", filter);
    for (const Vec3& point : model.base) {
        model.head_weight.push_back(follows_head(point));
    }
    bake_occlusion(model);
    bake_texel_base(model);
    read_textures(model, assets);
    bake_brows(model, assets, filter);
    return model;
}

} // namespace facegen
