// SPDX-License-Identifier: MIT
#include "serve/routes.h"

#include <algorithm>

#include "serve/refusal.h"

namespace kova_cli {
namespace {

constexpr std::string_view kName = "{name}";

// Whether the path is the route's, and what it names.
bool IsPath(std::string_view pattern, const std::string& path, std::string& name) {
    if (!pattern.ends_with(kName)) {
        return path == pattern;
    }
    pattern.remove_suffix(kName.size());
    if (!path.starts_with(pattern) || path.size() == pattern.size()) {
        return false;
    }
    name = path.substr(pattern.size());
    return true;
}

} // namespace

const std::vector<Route>& Routes() {
    static const std::vector<Route> routes = {
        {"GET", "/health", true, false, AnswerHealth},
        {"GET", "/openapi.json", true, false, AnswerDescription},
        {"GET", "/metrics", false, false, AnswerMetrics},
        {"GET", "/v1/info", false, false, AnswerInfo},
        {"POST", "/v1/find", false, true, AnswerFind},
        {"POST", "/v1/extract", false, true, AnswerExtract},
        {"POST", "/v1/compare", false, true, AnswerCompare},
        {"POST", "/v1/identify", false, true, AnswerIdentify},
        {"GET", "/v1/people", false, false, AnswerPeople},
        {"POST", "/v1/people", false, true, AnswerEnrol},
        {"DELETE", "/v1/people/{name}", false, false, AnswerRemove},
    };
    return routes;
}

FoundRoute FindRoute(const std::string& method, const std::string& path, std::string& allowed) {
    const std::string asked = method == "HEAD" ? "GET" : method;
    std::string name;
    for (const Route& route : Routes()) {
        if (IsPath(route.path, path, name)) {
            if (asked == route.method) {
                return {&route, name};
            }
            allowed += (allowed.empty() ? "" : ", ") + std::string(route.method) +
                       (asked != "GET" && std::string_view(route.method) == "GET" ? ", HEAD" : "");
        }
    }
    if (allowed.empty()) {
        throw Refusal{404, "there is nothing at this path; see /openapi.json for those there are"};
    }
    throw Refusal{405, "this path is asked by " + allowed + "; see /openapi.json"};
}

const People& GalleryOf(const Service& service, const Query& query) {
    if (query.gallery.empty()) {
        if (service.galleries.size() == 1) {
            return service.galleries.begin()->second;
        }
        throw Refusal{400, service.galleries.empty()
                               ? "the service has no gallery; start it with --gallery FILE"
                               : "the service has several galleries; name one with ?gallery="};
    }
    const auto found = service.galleries.find(query.gallery);
    if (found == service.galleries.end()) {
        throw Refusal{404, "the service has no such gallery; see /v1/info for those it has"};
    }
    return found->second;
}

} // namespace kova_cli
