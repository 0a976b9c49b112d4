// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "serve/service.h"

namespace kova_cli {

// A request, whole.
struct Query {
    std::string name;    // what stands for {name} in the path
    std::string gallery; // empty: not given
    std::string contentType;
    std::string body;
};

struct Answer {
    std::string body;
    std::string contentType = "application/json";
};

// The one list of what can be asked; the description in openapi.json is held to it by a test.
struct Route {
    const char* method;
    const char* path; // "/v1/people/{name}"
    bool isOpen;      // answered without a token
    bool takesBody;
    Answer (*answer)(Service& service, const Query& query);
};
const std::vector<Route>& Routes();

// The route of a request and what its path names. HEAD is answered like GET. A Refusal where there
// is none; `allowed` receives the methods of a path that has others.
struct FoundRoute {
    const Route* route;
    std::string name;
};
FoundRoute FindRoute(const std::string& method, const std::string& path, std::string& allowed);

// With pictures and features.
Answer AnswerFind(Service& service, const Query& query);
Answer AnswerExtract(Service& service, const Query& query);
Answer AnswerCompare(Service& service, const Query& query);
Answer AnswerIdentify(Service& service, const Query& query);
// With who is enrolled.
Answer AnswerEnrol(Service& service, const Query& query);
Answer AnswerPeople(Service& service, const Query& query);
Answer AnswerRemove(Service& service, const Query& query);
// About the service.
Answer AnswerHealth(Service& service, const Query& query);
Answer AnswerInfo(Service& service, const Query& query);
Answer AnswerMetrics(Service& service, const Query& query);
Answer AnswerDescription(Service& service, const Query& query);

// The gallery that a request means; the only one where it names none.
const People& GalleryOf(const Service& service, const Query& query);

// The faces that a request gives: those of its pictures, and features as they are. Of a picture the
// largest one that is good enough, or with `most` all that are, best first.
struct FaceOfRequest {
    std::optional<OrvoFindFace> found; // none: a feature was given
    Feature feature;
};
std::vector<FaceOfRequest> FacesOfRequest(Service& service, const struct Fields& fields);

} // namespace kova_cli
