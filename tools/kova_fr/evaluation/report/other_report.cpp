// SPDX-License-Identifier: MIT
#include "evaluation/report/other_report.h"

#include <filesystem>
#include <nlohmann/json.hpp>

#include "files/failure.h"
#include "files/input_file.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

using nlohmann::json;

constexpr uint64_t kLongestReport = uint64_t{64} << 20;
constexpr size_t kLongestName = 24;

kova_statistics::CurvePoint PointOf(const json& point) {
    const double falseAccepts = point.at("false_accepts").get<double>();
    const double trueAccepts = point.at("true_accepts").get<double>();
    const auto isShare = [](double value) { return value >= 0 && value <= 1; };
    if (!isShare(falseAccepts) || !isShare(trueAccepts)) {
        throw Failure("has a share outside 0 to 1");
    }
    return {falseAccepts, trueAccepts, std::nullopt};
}

} // namespace

OtherCurve ReadOtherCurve(const std::string& path) {
    if (path.empty()) {
        return {};
    }
    return Naming(path, [&path] {
        const std::filesystem::path whole(path);
        OtherCurve other;
        other.name = ShortenLabel(
            OneLine(whole.has_parent_path() ? whole.parent_path().filename().string() : path),
            kLongestName);
        const std::vector<uint8_t> bytes = ReadWholeFile(path, kLongestReport);
        try {
            const json report = json::parse(bytes);
            for (const json& point : report.at("curve").get_ref<const json::array_t&>()) {
                other.curve.push_back(PointOf(point));
            }
        } catch (const json::exception&) {
            throw Failure("is no report of kova-fr eval; name a report.json");
        }
        return other;
    });
}

} // namespace kova_cli
