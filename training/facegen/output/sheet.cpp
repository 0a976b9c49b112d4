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

void Outline(Picture& picture, const FaceBox& box) {
    const int left = static_cast<int>(box.left), top = static_cast<int>(box.top);
    const int size = static_cast<int>(box.size);
    const auto dot = [&](int x, int y) {
        if (x >= 0 && y >= 0 && x < picture.width && y < picture.height) {
            *picture.At(x, y) = (x + y) % 6 < 3 ? 255 : 0;
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
PhotoPlan Simplified(const PhotoPlan& plan, const Job& job, std::uint64_t picture) {
    if (job.plain) {
        return PlainPhoto(plan, 30.0f * (static_cast<float>(picture % 3) - 1.0f), 0);
    }
    PhotoPlan clean = plan;
    if (job.clean) {
        clean.degradation = Degradation{};
    }
    return clean;
}

std::string Numbered(const char* format, std::uint64_t number) {
    char text[32];
    std::snprintf(text, sizeof text, format, static_cast<unsigned long long>(number));
    return text;
}

} // namespace

void RenderSheet(const Studio& studio, const Job& job) {
    const int size = PictureSize(job.view);
    constexpr int gap = 2;
    Picture sheet(static_cast<int>(job.pictures) * (size + gap),
                  static_cast<int>(job.people) * (size + gap), 1);
    Photographer photographer(studio);
    Picture one(size, size, 1);
    for (std::uint64_t p = 0; p < job.people; ++p) {
        const Person person = MakePerson(studio, job.seed, job.firstPerson + p);
        for (std::uint64_t i = 0; i < job.pictures; ++i) {
            const PhotoPlan plan = Simplified(PlanPhoto(studio, person, job.view, i), job, i);
            photographer.Take(person, plan, i, one.pixels.data());
            if (job.view == View::kFrame) {
                Outline(one, plan.box);
            }
            for (int y = 0; y < size; ++y) {
                std::copy_n(one.At(0, y), size,
                            sheet.At(static_cast<int>(i) * (size + gap),
                                     static_cast<int>(p) * (size + gap) + y));
            }
        }
    }
    WritePng(job.out, sheet);
}

void RenderPeople(const Studio& studio, const Job& job) {
    nlohmann::ordered_json boxes;
    Photographer photographer(studio);
    Picture one(kFrameSize, kFrameSize, 1);
    for (std::uint64_t p = 0; p < job.people; ++p) {
        const Person person = MakePerson(studio, job.seed, job.firstPerson + p);
        const std::string folder = Numbered("person-%05llu", job.firstPerson + p);
        std::filesystem::create_directories(job.out / folder);
        for (std::uint64_t i = 0; i < job.pictures; ++i) {
            const PhotoPlan plan = PlanPhoto(studio, person, View::kFrame, i);
            photographer.Take(person, plan, i, one.pixels.data());
            const std::string file = folder + "/" + Numbered("%03llu.png", i);
            WritePng(job.out / file, one);
            boxes[file] = {{"left", plan.box.left},
                           {"top", plan.box.top},
                           {"size", plan.box.size},
                           {"labels", LabelsOf(person, plan)}};
        }
    }
    std::ofstream out(job.out / "boxes.json");
    out << boxes.dump(1) << '\n';
    if (!out) {
        throw std::runtime_error((job.out / "boxes.json").string() + ": cannot be written");
    }
}

} // namespace facegen
