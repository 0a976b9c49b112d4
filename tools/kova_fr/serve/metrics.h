// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace kova_cli {

// A value of the moment, with its labels as they stand in braces; none for an empty text.
struct Gauge {
    std::string name;
    std::string help;
    std::string labels;
    double value;
};

// What was done since the start, in the text form that Prometheus reads. Labels are routes and
// statuses, of which there are few, and never what a client wrote.
class Metrics {
  public:
    void CountRequest(const std::string& route, int status, double seconds);
    void CountRefusedConnection();
    void CountFaces(size_t faces); // that became features

    // With these beside what was counted; those of one name stand together.
    std::string Text(const std::vector<Gauge>& gauges) const;

  private:
    static constexpr std::array<double, 12> kBounds = {0.001, 0.002, 0.005, 0.01, 0.02, 0.05,
                                                       0.1,   0.2,   0.5,   1,    2,    5};
    struct Times {
        std::array<uint64_t, kBounds.size() + 1> counts = {}; // the last: longer than all bounds
        double sum = 0;
    };

    mutable std::mutex mutex_;
    std::map<std::pair<std::string, int>, uint64_t> requests_; // by route and status
    std::map<std::string, Times> times_;
    uint64_t refusedConnections_ = 0;
    uint64_t faces_ = 0;
};

// Of this process, as the kernel counts it; 0 where it does not say.
uint64_t ResidentBytes();

} // namespace kova_cli
