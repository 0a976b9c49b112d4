// SPDX-License-Identifier: MIT
#include "gallery/gallery.h"
#include "serve/fields.h"
#include "serve/refusal.h"
#include "serve/routes.h"
#include "terminal/json_line.h"

namespace kova_cli {
namespace {

std::string CheckedName(const Fields& fields) {
    const std::string name = fields.name.value_or("");
    if (const std::string wrong = WrongWithName(name); !wrong.empty()) {
        throw Refusal{400, wrong + "; say in the field name whose faces these are"};
    }
    return name;
}

} // namespace

// One face of each picture; all of them or none.
Answer AnswerEnrol(Service& service, const Query& query) {
    const People& people = GalleryOf(service, query);
    const Fields fields = ParseFields(query.contentType, query.body);
    const std::string name = CheckedName(fields);
    if (fields.most) {
        throw Refusal{400, "of each picture one face is enrolled; leave most out"};
    }
    std::vector<Feature> features;
    for (const FaceOfRequest& face : FacesOfRequest(service, fields)) {
        features.push_back(face.feature);
    }
    const uint64_t all = people.Add(name, features);
    return {JsonLine({{"name", name}, {"added", features.size()}, {"features", all}})};
}

Answer AnswerPeople(Service& service, const Query& query) {
    nlohmann::ordered_json json;
    json["names"] = nlohmann::ordered_json::array();
    for (const auto& [name, count] : GalleryOf(service, query).Names()) {
        json["names"].push_back({{"name", name}, {"features", count}});
    }
    return {JsonLine(json)};
}

Answer AnswerRemove(Service& service, const Query& query) {
    const uint64_t removed = GalleryOf(service, query).Remove(query.name);
    if (removed == 0) {
        throw Refusal{404, "there is nobody of that name; see /v1/people for the names"};
    }
    return {JsonLine({{"name", query.name}, {"removed", removed}})};
}

} // namespace kova_cli
