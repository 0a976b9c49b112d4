// SPDX-License-Identifier: MIT
#include "layer_times/path_times.h"

#include <iterator>

namespace kova_cli {
namespace {

using nlohmann::ordered_json;

ordered_json TimesJson(const Times& times) {
    return {{"least_ms", times.least}, {"median_ms", times.median}};
}

Times TimesOf(const ordered_json& json) { return {json.at("least_ms"), json.at("median_ms")}; }

} // namespace

ordered_json PathJson(const PathTimes& times) {
    ordered_json kinds;
    for (size_t i = 0; i < times.kinds.size(); ++i) {
        kinds[kKinds[i].name] = TimesJson(times.kinds[i]);
    }
    kinds["rest"] = TimesJson(times.rest);
    return {{"instruction_set", times.path},
            {"rounds", times.rounds},
            {"opening_ms", times.opening},
            {"working_memory_bytes", times.memory},
            {"face", TimesJson(times.face)},
            {"faces_per_second", 1000 / times.face.median},
            {"kinds", kinds}};
}

PathTimes PathOf(const ordered_json& json) {
    PathTimes times;
    times.path = json.at("instruction_set");
    times.rounds = json.at("rounds");
    times.opening = json.at("opening_ms");
    times.memory = json.at("working_memory_bytes");
    times.face = TimesOf(json.at("face"));
    for (const Kind& kind : kKinds) {
        times.kinds.push_back(TimesOf(json.at("kinds").at(kind.name)));
    }
    times.rest = TimesOf(json.at("kinds").at("rest"));
    return times;
}

} // namespace kova_cli
