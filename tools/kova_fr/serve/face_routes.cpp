// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>

#include "faces/face.h"
#include "files/failure.h"
#include "serve/fields.h"
#include "serve/refusal.h"
#include "serve/routes.h"
#include "terminal/json_line.h"

namespace kova_cli {
namespace {

constexpr int32_t kMostFaces = 100;

int32_t Whole(const std::optional<double>& number, const char* key, int32_t least, int32_t most,
              int32_t otherwise) {
    const double value = number.value_or(otherwise);
    if (!(value >= least && value <= most) || value != std::floor(value)) {
        throw Refusal{400, std::string(key) + " is no whole number from " + std::to_string(least) +
                               " to " + std::to_string(most) + "; give one"};
    }
    return static_cast<int32_t>(value);
}

std::optional<double> Threshold(const Fields& fields) {
    if (fields.threshold && !(std::abs(*fields.threshold) <= 1)) {
        throw Refusal{400, "threshold is no number from -1 to 1; give one"};
    }
    return fields.threshold;
}

class AtTheGate {
  public:
    explicit AtTheGate(Service& service) : gate_(service.pictures) {
        if (!gate_.Enter(Clock::now() + service.settings.timeout)) {
            throw Refusal{
                503, "too many pictures wait to be looked at; try again in a second", {}, 1};
        }
    }
    ~AtTheGate() { gate_.Leave(); }
    AtTheGate(const AtTheGate&) = delete;
    AtTheGate& operator=(const AtTheGate&) = delete;

  private:
    Gate& gate_;
};

GreyPicture Decoded(const std::string& bytes) {
    try {
        return DecodePicture({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
    } catch (const UnknownPicture& failure) {
        throw Refusal{415, failure.what()};
    } catch (const TooManyPixels& failure) {
        throw Refusal{413, failure.what()};
    } catch (const Failure& failure) {
        throw Refusal{400, failure.what()};
    }
}

// By `find` or `look`. The caller is at the gate.
template <typename Function>
auto See(const Function& function, const std::string& bytes, const Fields& fields) {
    Looking looking{fields.crop.value_or(false), std::nullopt, kMostFaces};
    if (fields.smallest) {
        looking.smallest = Whole(fields.smallest, "smallest", 1, 8192, 1);
    }
    const GreyPicture picture = Decoded(bytes);
    try {
        return function(picture, looking);
    } catch (const Failure& failure) {
        throw Refusal{422, std::string("the picture ") + failure.what()};
    }
}

[[noreturn]] void FailPoor(const Service& service, const OrvoFindFace& face, int32_t least) {
    throw Refusal{422,
                  "the face's quality is " + std::to_string(face.quality) + ", " +
                      std::to_string(least) +
                      " is needed; take a better picture, or lower least_quality",
                  service.engine.reasonWords(face.reasons)};
}

// A crop is the only one.
Face Largest(const std::vector<Face>& faces) {
    return *std::max_element(faces.begin(), faces.end(), [](const Face& a, const Face& b) {
        return a.found->side < b.found->side;
    });
}

void Choose(const Service& service, std::vector<Face> seen, const Fields& fields,
            std::vector<FaceOfRequest>& faces) {
    const int32_t least =
        Whole(fields.leastQuality, "least_quality", 0, 100, service.engine.leastQuality);
    if (seen.empty()) {
        throw Refusal{422,
                      "no face was found; give a larger or sharper picture of one, or say that "
                      "a face fills it (crop)"};
    }
    const Face largest = Largest(seen);
    std::erase_if(seen,
                  [least](const Face& face) { return face.found && face.found->quality < least; });
    if (seen.empty()) {
        FailPoor(service, *largest.found, least);
    }
    if (!fields.most) {
        seen = {Largest(seen)};
    }
    const auto most = static_cast<size_t>(Whole(fields.most, "most", 1, kMostFaces, 1));
    for (size_t i = 0; i < std::min(most, seen.size()); ++i) {
        faces.push_back({seen[i].found, seen[i].feature});
    }
}

nlohmann::ordered_json FaceJson(const Service& service, const FaceOfRequest& face) {
    return face.found ? service.engine.describe(*face.found) : nlohmann::ordered_json::object();
}

const Fields& NeedFaces(const Fields& fields) {
    if (fields.faces.empty()) {
        throw Refusal{400, "there is neither a picture nor a feature; send one"};
    }
    return fields;
}

} // namespace

std::vector<FaceOfRequest> FacesOfRequest(Service& service, const Fields& fields) {
    std::vector<FaceOfRequest> faces;
    for (const GivenFace& given : NeedFaces(fields).faces) {
        if (const auto* const feature = std::get_if<Feature>(&given)) {
            faces.push_back({std::nullopt, *feature});
            continue;
        }
        const AtTheGate inside(service);
        const size_t known = faces.size();
        Choose(service, See(service.engine.look, std::get<std::string>(given), fields), fields,
               faces);
        service.metrics.CountFaces(faces.size() - known);
    }
    return faces;
}

Answer AnswerFind(Service& service, const Query& query) {
    const Fields fields = ParseFields(query.contentType, query.body);
    if (fields.faces.size() != 1 || fields.crop ||
        !std::holds_alternative<std::string>(fields.faces.front())) {
        throw Refusal{400, "faces are found in one picture; send one, without crop"};
    }
    const auto most = static_cast<size_t>(Whole(fields.most, "most", 1, kMostFaces, kMostFaces));
    nlohmann::ordered_json json;
    json["faces"] = nlohmann::ordered_json::array();
    const AtTheGate inside(service);
    const auto& picture = std::get<std::string>(fields.faces.front());
    for (const OrvoFindFace& face : See(service.engine.find, picture, fields)) {
        if (json["faces"].size() < most) {
            json["faces"].push_back(service.engine.describe(face));
        }
    }
    return {JsonLine(json)};
}

Answer AnswerExtract(Service& service, const Query& query) {
    const Fields fields = ParseFields(query.contentType, query.body);
    nlohmann::ordered_json json;
    json["faces"] = nlohmann::ordered_json::array();
    for (const FaceOfRequest& face : FacesOfRequest(service, fields)) {
        nlohmann::ordered_json one = FaceJson(service, face);
        one["feature"] = face.feature;
        json["faces"].push_back(std::move(one));
    }
    return {JsonLine(json)};
}

Answer AnswerCompare(Service& service, const Query& query) {
    Fields fields = ParseFields(query.contentType, query.body);
    if (fields.faces.size() != 2 || fields.most) {
        throw Refusal{400, "two faces are compared; send two pictures or features, without most"};
    }
    const std::optional<double> threshold = Threshold(fields);
    const std::vector<FaceOfRequest> faces = FacesOfRequest(service, fields);
    const float distance = OrvoFrGetDistance(faces[0].feature.data(), sizeof(Feature),
                                             faces[1].feature.data(), sizeof(Feature));
    nlohmann::ordered_json json = {{"distance", distance}};
    if (threshold) {
        json["reached"] = distance >= static_cast<float>(*threshold);
    }
    json["faces"] = {FaceJson(service, faces[0]), FaceJson(service, faces[1])};
    return {JsonLine(json)};
}

Answer AnswerIdentify(Service& service, const Query& query) {
    const People& people = GalleryOf(service, query);
    const Fields fields = ParseFields(query.contentType, query.body);
    const std::optional<double> threshold = Threshold(fields);
    const auto top = static_cast<size_t>(Whole(fields.top, "top", 1, 1000, 5));
    const std::vector<FaceOfRequest> faces = FacesOfRequest(service, fields);
    std::vector<Feature> features;
    for (const FaceOfRequest& face : faces) {
        features.push_back(face.feature);
    }
    const People::Looked looked = people.LookUp(features, top);
    nlohmann::ordered_json json = {{"features", looked.features}};
    json["faces"] = nlohmann::ordered_json::array();
    for (size_t i = 0; i < faces.size(); ++i) {
        nlohmann::ordered_json one = FaceJson(service, faces[i]);
        one["matches"] = nlohmann::ordered_json::array();
        for (const Match& match : looked.matches[i]) {
            if (!threshold || match.score >= static_cast<float>(*threshold)) {
                one["matches"].push_back(
                    {{"name", match.name}, {"distance", match.distance}, {"entry", match.entry}});
            }
        }
        json["faces"].push_back(std::move(one));
    }
    return {JsonLine(json)};
}

} // namespace kova_cli
