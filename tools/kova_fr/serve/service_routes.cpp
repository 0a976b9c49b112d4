// SPDX-License-Identifier: MIT
#include "openapi_text.h"
#include "serve/routes.h"
#include "terminal/json_line.h"

namespace kova_cli {

Answer AnswerHealth(Service& /*service*/, const Query& /*query*/) {
    return {JsonLine({{"status", "ok"}})};
}

Answer AnswerInfo(Service& service, const Query& /*query*/) {
    nlohmann::ordered_json json = service.engine.about;
    const ServeSettings& settings = service.settings;
    json["galleries"] = nlohmann::ordered_json::array();
    for (const auto& [name, people] : service.galleries) {
        json["galleries"].push_back({{"name", name}, {"features", people.Features()}});
    }
    json["least_quality"] = service.engine.leastQuality;
    json["limits"] = {{"body_bytes", settings.bodyBytes},
                      {"pixels", settings.pixels},
                      {"requests_a_second", settings.rate},
                      {"requests_a_second_of_an_address", settings.ratePerAddress},
                      {"connections", settings.connections},
                      {"connections_of_an_address", settings.connectionsPerAddress},
                      {"timeout_ms", settings.timeout.count()}};
    return {JsonLine(json)};
}

Answer AnswerMetrics(Service& service, const Query& /*query*/) {
    std::vector<Gauge> gauges = {
        {"kova_fr_connections", "Connections that are open.", "",
         static_cast<double>(service.connections.Open())},
        {"kova_fr_waiting_requests", "Requests that wait to look at a picture.", "",
         static_cast<double>(service.pictures.Waiting())},
        {"process_resident_memory_bytes", "Memory of the process.", "",
         static_cast<double>(ResidentBytes())}};
    for (const auto& [name, people] : service.galleries) {
        gauges.push_back({"kova_fr_gallery_features", "Features in a gallery.",
                          "gallery=\"" + name + "\"", static_cast<double>(people.Features())});
    }
    return {service.metrics.Text(gauges), "text/plain; version=0.0.4; charset=utf-8"};
}

Answer AnswerDescription(Service& /*service*/, const Query& /*query*/) { return {kOpenApiText}; }

} // namespace kova_cli
