// SPDX-License-Identifier: MIT
#include "bench/path_table.h"

#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "bench/naive_layers.h"
#include "bench/peak.h"
#include "timing/child.h"
#include "timing/machine.h"

namespace orvo_bench {
namespace {

using Json = nlohmann::ordered_json;

struct Row {
    std::string name;
    double nanoseconds;
    double products; // multiply-adds, or 0
    double perFace;  // how often the layer comes in a face, or 0

    double rate() const { return products / nanoseconds; } // in thousands of millions a second
};

std::vector<Row> Measure(const std::string& path, const std::string& filter) {
    std::vector<std::string> arguments = {"--benchmark_format=json"};
    if (!filter.empty()) {
        arguments.push_back("--benchmark_filter=" + std::string(kPeakRow) + "|" + filter);
    }
    std::vector<Row> rows;
    const std::string text = orvo_timing::RunThisProgram(path, arguments);
    if (text.empty() && path == kNaivePath) {
        return rows; // nothing of what was asked for has naive loops
    }
    const Json output = Json::parse(text);
    for (const Json& run : output["benchmarks"]) {
        if (run["aggregate_name"] == "least") {
            std::string name = run["run_name"];
            name.resize(name.find('/')); // the rest repeats how often it ran
            rows.push_back(
                {name, run["real_time"], run.value("products", 0.0), run.value("per_face", 0.0)});
        }
    }
    if (rows.empty()) {
        throw std::runtime_error("no result for " + path);
    }
    return rows;
}

const Row* Find(const std::vector<Row>& rows, const std::string& name) {
    for (const Row& row : rows) {
        if (row.name == name) {
            return &row;
        }
    }
    return nullptr;
}

using Results = std::vector<std::pair<std::string, std::vector<Row>>>;

void PrintJson(const TableOptions& options, const Results& results) {
    Json all = {{"cpu", orvo_timing::CpuName()},
                {"compiler", orvo_timing::CompilerName()},
                {"commit", options.commit}};
    for (const auto& [path, rows] : results) {
        const Row* peak = Find(rows, kPeakRow);
        for (const Row& row : rows) {
            Json& entry = all["paths"][path][row.name];
            entry["ns"] = row.nanoseconds;
            if (row.products > 0) {
                entry["gmac_per_s"] = row.rate();
            }
            if (row.products > 0 && peak != nullptr) {
                entry["share_of_peak"] = row.rate() / peak->rate();
            }
            if (row.perFace > 0) {
                entry["per_face"] = row.perFace;
            }
        }
    }
    std::printf("%s\n", all.dump(2).c_str());
}

void PrintCell(const Row* row, const Row* peak) {
    if (row == nullptr) {
        std::printf(" |%27s", "");
        return;
    }
    std::printf(" | %9.3f", row->nanoseconds / 1000);
    if (row->products > 0) {
        std::printf(" %8.1f", row->rate());
    } else {
        std::printf(" %8s", "");
    }
    if (row->products > 0 && peak != nullptr) {
        std::printf(" %5.1f %%", 100 * row->rate() / peak->rate());
    } else {
        std::printf(" %7s", "");
    }
}

// The time of both networks, or 0 if they were not measured.
double FaceTime(const std::vector<Row>& rows) {
    const Row* align = Find(rows, kAlignRow);
    const Row* recognition = Find(rows, kRecognitionRow);
    return align != nullptr && recognition != nullptr
               ? align->nanoseconds + recognition->nanoseconds
               : 0;
}

void PrintGains(const Results& results) {
    const double naive = FaceTime(results.back().second);
    if (results.back().first != kNaivePath || naive <= 0) {
        return;
    }
    std::printf("\nBoth networks, times as fast as naive loops compiled with -O2 (%.3f ms):\n",
                naive / 1e6);
    for (const auto& [path, rows] : results) {
        if (path != kNaivePath) {
            std::printf("  %-12s %8.3f ms %8.1f\n", path.c_str(), FaceTime(rows) / 1e6,
                        naive / FaceTime(rows));
        }
    }
}

void PrintTable(const TableOptions& options, const Results& results) {
    std::printf("CPU       %s\ncompiler  %s\ncommit    %s\n", orvo_timing::CpuName().c_str(),
                orvo_timing::CompilerName().c_str(), options.commit.c_str());
    for (const auto& [path, rows] : results) {
        const Row* peak = Find(rows, kPeakRow);
        const char* note = &path == &results[0].first ? ", chosen here" : "";
        std::printf("path      %s%s", path.c_str(),
                    path == kNaivePath ? ": no path, but textbook loops compiled with -O2" : note);
        if (peak != nullptr) {
            std::printf("; peak %.1f GMAC/s (%s)", peak->rate(), PeakOf(path)->instructions);
        }
        std::printf("\n");
    }

    std::printf("\n%-20s %6s", "", "a face");
    for (const auto& [path, rows] : results) {
        std::printf(" | %-26s", path.c_str());
    }
    std::printf("\n%-20s %6s", "", "");
    for (size_t i = 0; i < results.size(); ++i) {
        std::printf(" | %9s %8s %7s", "us", "GMAC/s", "of peak");
    }
    std::printf("\n");
    for (const Row& first : results[0].second) {
        std::printf("%-20s ", first.name.c_str());
        first.perFace > 0 ? std::printf("%6.0f", first.perFace) : std::printf("%6s", "");
        for (const auto& [path, rows] : results) {
            PrintCell(Find(rows, first.name), Find(rows, kPeakRow));
        }
        std::printf("\n");
    }
    PrintGains(results);
}

} // namespace

void PrintPathTable(const TableOptions& options) {
    Results results;
    for (const std::string& path : options.paths) {
        results.emplace_back(path, Measure(path, options.filter));
    }
    options.json ? PrintJson(options, results) : PrintTable(options, results);
}

} // namespace orvo_bench
