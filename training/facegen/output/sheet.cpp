// SPDX-License-Identifier: MIT
#include "output/sheet.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "output/labels.h"
#include "output/picture_files.h"

namespace facegen {
namespace {

void outline(Picture& picture, const FaceBox& box) {
    const int left = static_cast<int>(box.left), top = static_cast<int>(box.top);
    const int size = static_cast<int>(box.size);
    const auto dot = [&](int x, int y) {
        if (x >= 0 && y >= 0 && x < picture.width && y < picture.height) {
            *picture.at(x, y) = (x + y) % 6 < 3 ? 255 : 0;
        }
    };
    for (int i = 0; i <= size; ++i) {
        dot(left + i, top);
        dot(left + i, top + size);
        dot(left, top + i);
        dot(left + size, top + i);
    }
}

// For looking at the faces themselves.
PhotoPlan simplified(const PhotoPlan& plan, const Job& job, std::uint64_t picture) {
    if (job.plain) {
        return plain_photo(plan, 30.0F * (static_cast<float>(picture % 3) - 1.0F), 0);
    }
    PhotoPlan clean = plan;
    if (job.clean) {
        clean.degradation = Degradation{};
    }
    return clean;
}

std::string numbered(const char* format, std::uint64_t number) {
    char text[32];
    std::snprintf(text, sizeof text, format, static_cast<unsigned long long>(number));
    return text;
}

} // namespace

void render_sheet(const Studio& studio, const Job& job) {
    const int size = picture_size(job.view);
    constexpr int gap = 2;
    Picture sheet(static_cast<int>(job.pictures) * (size + gap),
                  static_cast<int>(job.people) * (size + gap), 1);
    Photographer photographer(studio);
    Picture one(size, size, 1);
    for (std::uint64_t p = 0; p < job.people; ++p) {
        const Person person = make_person(studio, job.seed, job.first_person + p);
        for (std::uint64_t i = 0; i < job.pictures; ++i) {
            const PhotoPlan plan = simplified(plan_photo(studio, person, job.view, i), job, i);
            photographer.take(person, plan, i, one.pixels.data());
            if (job.view == View::frame) {
                outline(one, plan.box);
            }
            for (int y = 0; y < size; ++y) {
                std::copy_n(one.at(0, y), size,
                            sheet.at(static_cast<int>(i) * (size + gap),
                                     static_cast<int>(p) * (size + gap) + y));
            }
        }
    }
    write_png(job.out, sheet);
}

void render_people(const Studio& studio, const Job& job) {
    nlohmann::ordered_json boxes;
    Photographer photographer(studio);
    Picture one(frame_size, frame_size, 1);
    for (std::uint64_t p = 0; p < job.people; ++p) {
        const Person person = make_person(studio, job.seed, job.first_person + p);
        const std::string folder = numbered("person-%05llu", job.first_person + p);
        std::filesystem::create_directories(job.out / folder);
        for (std::uint64_t i = 0; i < job.pictures; ++i) {
            const PhotoPlan plan = plan_photo(studio, person, View::frame, i);
            photographer.take(person, plan, i, one.pixels.data());
            const std::string file = folder + "/" + numbered("%03llu.png", i);
            write_png(job.out / file, one);
            boxes[file] = {{"left", plan.box.left},
                           {"top", plan.box.top},
                           {"size", plan.box.size},
                           {"labels", labels_of(person, plan)}};
        }
    }
    std::ofstream out(job.out / "boxes.json");
    out << boxes.dump(1) << '\n';
    if (!out) {
        throw std::runtime_error((job.out / "boxes.json").string() + ": cannot be written");
    }
}

} // namespace facegen
