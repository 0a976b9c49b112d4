// SPDX-License-Identifier: MIT
#include "serve/metrics.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace kova_cli {
namespace {

std::string Number(double value) {
    char text[64];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return {text, result.ptr};
}

std::string Head(const std::string& name, const std::string& help, const std::string& type) {
    return "# HELP " + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

std::string Sample(const std::string& name, const std::string& labels, double value) {
    return name + (labels.empty() ? "" : "{" + labels + "}") + " " + Number(value) + "\n";
}

} // namespace

void Metrics::CountRequest(const std::string& route, int status, double seconds) {
    const std::lock_guard lock(mutex_);
    ++requests_[{route, status}];
    Times& times = times_[route];
    const auto bound = std::lower_bound(kBounds.begin(), kBounds.end(), seconds);
    ++times.counts[static_cast<size_t>(bound - kBounds.begin())];
    times.sum += seconds;
}

void Metrics::CountRefusedConnection() {
    const std::lock_guard lock(mutex_);
    ++refusedConnections_;
}

void Metrics::CountFaces(size_t faces) {
    const std::lock_guard lock(mutex_);
    faces_ += faces;
}

std::string Metrics::Text(const std::vector<Gauge>& gauges) const {
    const std::lock_guard lock(mutex_);
    std::string text = Head("kova_fr_requests_total", "Requests answered.", "counter");
    for (const auto& [key, count] : requests_) {
        text += Sample("kova_fr_requests_total",
                       "route=\"" + key.first + "\",status=\"" + std::to_string(key.second) + "\"",
                       static_cast<double>(count));
    }
    text += Head("kova_fr_request_seconds", "From a whole request to its answer.", "histogram");
    for (const auto& [route, times] : times_) {
        const std::string label = "route=\"" + route + "\"";
        uint64_t count = 0;
        for (size_t i = 0; i <= kBounds.size(); ++i) {
            count += times.counts[i];
            const std::string bound = i < kBounds.size() ? Number(kBounds[i]) : "+Inf";
            text += Sample("kova_fr_request_seconds_bucket", label + ",le=\"" + bound + "\"",
                           static_cast<double>(count));
        }
        text += Sample("kova_fr_request_seconds_sum", label, times.sum);
        text += Sample("kova_fr_request_seconds_count", label, static_cast<double>(count));
    }
    text +=
        Head("kova_fr_refused_connections_total", "Connections beyond the limits.", "counter") +
        Sample("kova_fr_refused_connections_total", "", static_cast<double>(refusedConnections_));
    text += Head("kova_fr_faces_total", "Faces of pictures that became features.", "counter") +
            Sample("kova_fr_faces_total", "", static_cast<double>(faces_));
    std::string last;
    for (const Gauge& gauge : gauges) {
        text += gauge.name == last ? "" : Head(gauge.name, gauge.help, "gauge");
        text += Sample(gauge.name, gauge.labels, gauge.value);
        last = gauge.name;
    }
    return text;
}

uint64_t ResidentBytes() {
    unsigned long long whole = 0;
    unsigned long long resident = 0;
    if (std::FILE* const file = std::fopen("/proc/self/statm", "re"); file != nullptr) {
        if (std::fscanf(file, "%llu %llu", &whole, &resident) != 2) {
            resident = 0;
        }
        std::fclose(file);
    }
    return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

} // namespace kova_cli
