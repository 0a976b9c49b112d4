// SPDX-License-Identifier: MIT
#include "evaluation/charts/chart.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace kova_cli {
namespace {

constexpr double kWidth = 720;
constexpr double kHeight = 520;
constexpr double kPlotLeft = 78;
constexpr double kPlotRight = kWidth - 28;
constexpr double kPlotTop = 96;
constexpr double kPlotBottom = kHeight - 62;
constexpr double kLegendMiddle = 78;
constexpr double kLabelSize = 12.5;
constexpr double kLetterWidth = 6.9; // of a label, on average

constexpr const char* kInk = "#1f2933";
constexpr const char* kSoftInk = "#52606d";

__attribute__((format(printf, 1, 2))) std::string Print(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char text[1024];
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

std::string Escape(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

std::string Text(double x, double y, const char* attributes, const std::string& text) {
    return Print("<text x=\"%.1f\" y=\"%.1f\" %s>", x, y, attributes) + Escape(text) + "</text>\n";
}

std::string Line(double x1, double y1, double x2, double y2, const char* attributes) {
    return Print("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" %s/>\n", x1, y1, x2, y2,
                 attributes);
}

} // namespace

std::vector<Tick> RoundTicks(double low, double high, int count, const std::string& unit) {
    const double rough = (high - low) / count;
    const double power = std::pow(10, std::floor(std::log10(rough)));
    double step = 10 * power;
    for (const double factor : {5.0, 2.0, 1.0}) {
        step = rough <= factor * power ? factor * power : step;
    }
    std::vector<Tick> ticks;
    for (double number = std::ceil(low / step - 1e-9); number * step <= high + 1e-9 * step;
         ++number) {
        ticks.push_back({number * step, Print("%.6g", number * step + 0.0) + unit});
    }
    return ticks;
}

Chart::Chart(std::string title, std::string subtitle, Axis x, Axis y)
    : title_(std::move(title)),
      subtitle_(std::move(subtitle)),
      x_(std::move(x)),
      y_(std::move(y)) {}

double Chart::Left(double x) const {
    return kPlotLeft + (x - x_.low) / (x_.high - x_.low) * (kPlotRight - kPlotLeft);
}

double Chart::Top(double y) const {
    return kPlotBottom - (y - y_.low) / (y_.high - y_.low) * (kPlotBottom - kPlotTop);
}

std::string Chart::Path(const std::vector<Point>& points) const {
    std::string path;
    for (const Point& point : points) {
        path += Print("%s%.1f %.1f", path.empty() ? "M" : "L", Left(point.x), Top(point.y));
    }
    return path;
}

void Chart::AddBand(const std::vector<Point>& upper, const std::vector<Point>& lower,
                    const std::string& colour, const std::string& label) {
    std::vector<Point> outline = upper;
    outline.insert(outline.end(), lower.rbegin(), lower.rend());
    clipped_ += "<path d=\"" + Path(outline) + "Z\" fill=\"" + colour + "\" opacity=\"0.18\"/>\n";
    legend_.push_back({"<rect x=\"0\" y=\"-6\" width=\"26\" height=\"12\" fill=\"" + colour +
                           "\" opacity=\"0.18\"/>",
                       label});
}

void Chart::AddLine(const std::vector<Point>& points, const std::string& colour,
                    const std::string& label) {
    const std::string style =
        "fill=\"none\" stroke=\"" + colour + "\" stroke-width=\"2.4\" stroke-linejoin=\"round\"";
    clipped_ += "<path d=\"" + Path(points) + "\" " + style + "/>\n";
    legend_.push_back({"<path d=\"M0 0L26 0\" " + style + "/>", label});
}

void Chart::AddDashes(const std::vector<Point>& points, const std::string& label) {
    const std::string style = std::string("fill=\"none\" stroke=\"") + kSoftInk +
                              "\" stroke-width=\"1.2\" stroke-dasharray=\"5 4\"";
    clipped_ += "<path d=\"" + Path(points) + "\" " + style + "/>\n";
    legend_.push_back({"<path d=\"M0 0L26 0\" " + style + "/>", label});
}

void Chart::AddArea(const std::vector<Point>& points, const std::string& colour,
                    const std::string& label) {
    if (points.empty()) {
        return;
    }
    const std::string fill = "fill=\"" + colour + "\" fill-opacity=\"0.28\" ";
    std::vector<Point> outline = {{points.front().x, y_.low}};
    outline.insert(outline.end(), points.begin(), points.end());
    outline.push_back({points.back().x, y_.low});
    clipped_ += "<path d=\"" + Path(outline) + "Z\" " + fill + "stroke=\"" + colour +
                "\" stroke-width=\"1.6\" stroke-linejoin=\"round\"/>\n";
    legend_.push_back({"<rect x=\"0\" y=\"-6\" width=\"26\" height=\"12\" " + fill + "stroke=\"" +
                           colour + "\" stroke-width=\"1.6\"/>",
                       label});
}

void Chart::AddDot(const Point& point, const std::string& colour, const std::string& text,
                   Side side) {
    const double left = Left(point.x);
    const double top = Top(point.y);
    if (left < kPlotLeft || left > kPlotRight || top < kPlotTop || top > kPlotBottom) {
        return;
    }
    marks_ += Print(
        "<circle cx=\"%.1f\" cy=\"%.1f\" r=\"4.5\" fill=\"%s\" stroke=\"#fff\" "
        "stroke-width=\"1.5\"/>\n",
        left, top, colour.c_str());
    const bool isLeft = side == Side::kUpperLeft;
    marks_ += Text(left + (isLeft ? -9 : 9), top - 7,
                   isLeft ? "class=\"halo\" text-anchor=\"end\"" : "class=\"halo\"", text);
}

void Chart::AddUpright(double x, const std::string& text) {
    const double left = Left(x);
    marks_ += Line(left, kPlotTop, left, kPlotBottom,
                   "stroke=\"#1f2933\" stroke-width=\"1.2\" stroke-dasharray=\"5 4\"");
    marks_ += Print("<g transform=\"translate(%.1f %.1f) rotate(-90)\">", left - 6, kPlotTop + 10) +
              Text(0, 0, "class=\"halo\" text-anchor=\"end\"", text) + "</g>\n";
}

std::string Chart::Grid() const {
    std::string svg;
    double labelled = 0; // where the last label below ends
    for (const Tick& tick : x_.ticks) {
        const double left = Left(tick.at);
        svg += Line(left, kPlotTop, left, kPlotBottom,
                    tick.label.empty() ? "stroke=\"#eef1f4\"" : "stroke=\"#d9dfe5\"");
        const double half = kLetterWidth / 2 * static_cast<double>(tick.label.size());
        if (!tick.label.empty() && left - half > labelled) {
            svg += Text(left, kPlotBottom + 19, "text-anchor=\"middle\"", tick.label);
            labelled = left + half + kLetterWidth;
        }
    }
    for (const Tick& tick : y_.ticks) {
        const double top = Top(tick.at);
        svg += Line(kPlotLeft, top, kPlotRight, top,
                    tick.label.empty() ? "stroke=\"#eef1f4\"" : "stroke=\"#d9dfe5\"");
        svg += Text(kPlotLeft - 8, top + 4.5, "text-anchor=\"end\"", tick.label);
    }
    return svg;
}

std::string Chart::Legend() const {
    std::string svg;
    double left = kPlotLeft;
    for (const LegendEntry& entry : legend_) {
        svg += Print("<g transform=\"translate(%.1f %.1f)\">", left, kLegendMiddle) + entry.sample +
               "</g>\n";
        svg += Text(left + 33, kLegendMiddle + 4.5, "", entry.label);
        left += 58 + kLetterWidth * static_cast<double>(entry.label.size());
    }
    return svg;
}

std::string Chart::Svg() const {
    std::string svg = Print(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %.0f %.0f\" width=\"%.0f\" "
        "height=\"%.0f\" fill=\"%s\" font-size=\"%.1f\" font-family=\"system-ui, 'DejaVu Sans', "
        "Arial, "
        "sans-serif\">\n",
        kWidth, kHeight, kWidth, kHeight, kInk, kLabelSize);
    svg +=
        "<style>.halo{paint-order:stroke;stroke:#fff;stroke-width:4px;stroke-linejoin:round}"
        "</style>\n";
    svg += Print(
        "<clipPath id=\"plot\"><rect x=\"%.0f\" y=\"%.0f\" width=\"%.0f\" "
        "height=\"%.0f\"/></clipPath>\n",
        kPlotLeft, kPlotTop, kPlotRight - kPlotLeft, kPlotBottom - kPlotTop);
    svg += "<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n";
    svg += Text(kPlotLeft, 30, "font-size=\"18\" font-weight=\"600\"", title_);
    svg += Text(kPlotLeft, 52, "font-size=\"13\" fill=\"#52606d\"", subtitle_);
    svg += Grid();
    svg += "<g clip-path=\"url(#plot)\">\n" + clipped_ + "</g>\n";
    svg += Print(
        "<rect x=\"%.0f\" y=\"%.0f\" width=\"%.0f\" height=\"%.0f\" fill=\"none\" "
        "stroke=\"#9aa5b1\"/>\n",
        kPlotLeft, kPlotTop, kPlotRight - kPlotLeft, kPlotBottom - kPlotTop);
    svg += Text((kPlotLeft + kPlotRight) / 2, kHeight - 18,
                "text-anchor=\"middle\" font-size=\"14\"", x_.title);
    svg += Print("<g transform=\"translate(20 %.0f) rotate(-90)\">", (kPlotTop + kPlotBottom) / 2) +
           Text(0, 0, "text-anchor=\"middle\" font-size=\"14\"", y_.title) + "</g>\n";
    svg += Legend() + marks_ + "</svg>\n";
    return svg;
}

} // namespace kova_cli
