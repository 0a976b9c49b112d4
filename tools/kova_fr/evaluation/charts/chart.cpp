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
constexpr double kPlotTop = 106;
constexpr double kPlotBottom = kHeight - 62;
constexpr double kLegendMiddle = 70; // of its first line
constexpr double kLegendLine = 20;
constexpr double kLetterWidth = 6.9; // of a label of 12.5 pixels, on average
constexpr double kLabelLine = 15;

// Light and dark, as the reader's system is. Blue, orange and green can be told apart by people who
// see colours differently as well.
constexpr const char* kStyle = R"(<style>
text{fill:#1f2933;font-size:12.5px;font-family:system-ui,'DejaVu Sans',Arial,sans-serif}
.title{font-size:17px;font-weight:600}.soft{fill:#52606d;font-size:13px}.axis{font-size:14px}
.paper{fill:#fff}.grid{stroke:#d9dfe5}.fine{stroke:#eef1f4}.frame{fill:none;stroke:#9aa5b1}
.dash{fill:none;stroke:#52606d;stroke-width:1.2px;stroke-dasharray:5 4}
.line{fill:none;stroke-width:2.4px;stroke-linejoin:round}.band{opacity:.18}
.area{fill-opacity:.28;stroke-width:1.6px;stroke-linejoin:round}
.dot{stroke:#fff;stroke-width:1.5px}
.halo{paint-order:stroke;stroke:#fff;stroke-width:4px;stroke-linejoin:round}
.stroke-blue{stroke:#0072b2}.stroke-orange{stroke:#d55e00}.stroke-green{stroke:#00815a}
.fill-blue{fill:#0072b2}.fill-orange{fill:#d55e00}.fill-green{fill:#00815a}
@media(prefers-color-scheme:dark){
text{fill:#e4e9ee}.soft{fill:#a9b6c3}.paper{fill:#12171d}.grid{stroke:#323d48}.fine{stroke:#1f272f}
.frame{stroke:#62707d}.dash{stroke:#a9b6c3}.dot,.halo{stroke:#12171d}
.stroke-blue{stroke:#56b4e9}.stroke-orange{stroke:#f0914f}.stroke-green{stroke:#3cc79d}
.fill-blue{fill:#56b4e9}.fill-orange{fill:#f0914f}.fill-green{fill:#3cc79d}}
</style>
)";

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
    const std::string style = "class=\"band fill-" + colour + "\"/>";
    clipped_ += "<path d=\"" + Path(outline) + "Z\" " + style + "\n";
    legend_.push_back({"<rect x=\"0\" y=\"-6\" width=\"26\" height=\"12\" " + style, label});
}

void Chart::AddLine(const std::vector<Point>& points, const std::string& colour,
                    const std::string& label) {
    const std::string style = "class=\"line stroke-" + colour + "\"";
    clipped_ += "<path d=\"" + Path(points) + "\" " + style + "/>\n";
    legend_.push_back({"<path d=\"M0 0L26 0\" " + style + "/>", label});
}

void Chart::AddDashes(const std::vector<Point>& points, const std::string& label) {
    const std::string style = "class=\"dash\"";
    clipped_ += "<path d=\"" + Path(points) + "\" " + style + "/>\n";
    legend_.push_back({"<path d=\"M0 0L26 0\" " + style + "/>", label});
}

void Chart::AddArea(const std::vector<Point>& points, const std::string& colour,
                    const std::string& label) {
    if (points.empty()) {
        return;
    }
    const std::string style = "class=\"area fill-" + colour + " stroke-" + colour + "\"/>";
    std::vector<Point> outline = {{points.front().x, y_.low}};
    outline.insert(outline.end(), points.begin(), points.end());
    outline.push_back({points.back().x, y_.low});
    clipped_ += "<path d=\"" + Path(outline) + "Z\" " + style + "\n";
    legend_.push_back({"<rect x=\"0\" y=\"-6\" width=\"26\" height=\"12\" " + style, label});
}

// Labels may not lie upon one another: one that finds no room at its place goes to the next one.
bool Chart::Takes(const Room& room) {
    const bool isInside = room.left >= kPlotLeft && room.right <= kPlotRight &&
                          room.top >= kPlotTop && room.bottom <= kPlotBottom;
    const bool isFree = std::ranges::none_of(rooms_, [&room](const Room& other) {
        return room.left < other.right && other.left < room.right && room.top < other.bottom &&
               other.top < room.bottom;
    });
    if (isInside && isFree) {
        rooms_.push_back(room);
    }
    return isInside && isFree;
}

void Chart::AddDot(const Point& point, const std::string& colour, const std::string& text,
                   Side side) {
    const double left = std::clamp(Left(point.x), kPlotLeft, kPlotRight);
    const double top = std::clamp(Top(point.y), kPlotTop, kPlotBottom);
    marks_ += Print("<circle cx=\"%.1f\" cy=\"%.1f\" r=\"4.5\" class=\"dot fill-%s\"/>\n", left,
                    top, colour.c_str());
    const double length = kLetterWidth * static_cast<double>(text.size());
    const bool isLeft = side == Side::kUpperLeft;
    const auto writes = [&](double begin, double line) {
        const bool takes = Takes({begin, line - 11, begin + length, line + 3});
        marks_ += takes ? Text(begin, line, "class=\"halo\"", text) : "";
        return takes;
    };
    for (double away = 0; away < kPlotBottom - kPlotTop; away += kLabelLine) {
        for (const double line : {top - 7 - away, top + kLabelLine + away}) {
            for (const bool atLeft : {isLeft, !isLeft}) {
                if (writes(atLeft ? left - 9 - length : left + 9, line)) {
                    return;
                }
            }
        }
    }
}

void Chart::AddUpright(double x, const std::string& text) {
    const double left = Left(x);
    marks_ += Line(left, kPlotTop, left, kPlotBottom, "class=\"dash\"");
    const double length = kLetterWidth * static_cast<double>(text.size());
    const auto writes = [&](double foot) {
        for (double top = kPlotTop + 8; top + length < kPlotBottom; top += 12) {
            if (Takes({foot - 11, top, foot + 3, top + length})) {
                marks_ += Print("<g transform=\"translate(%.1f %.1f) rotate(-90)\">", foot,
                                top + length) +
                          Text(0, 0, "class=\"halo\"", text) + "</g>\n";
                return true;
            }
        }
        return false;
    };
    for (double away = 0; away < kPlotRight - kPlotLeft; away += kLabelLine) {
        if (writes(left - 5 - away) || writes(left + kLabelLine + away)) {
            return;
        }
    }
}

std::string Chart::Grid() const {
    std::string svg;
    double labelled = 0; // where the last label below ends
    for (const Tick& tick : x_.ticks) {
        const double left = Left(tick.at);
        svg += Line(left, kPlotTop, left, kPlotBottom,
                    tick.label.empty() ? "class=\"fine\"" : "class=\"grid\"");
        const double half = kLetterWidth / 2 * static_cast<double>(tick.label.size());
        if (!tick.label.empty() && left - half > labelled) {
            svg += Text(left, kPlotBottom + 19, "text-anchor=\"middle\"", tick.label);
            labelled = left + half + kLetterWidth;
        }
    }
    for (const Tick& tick : y_.ticks) {
        const double top = Top(tick.at);
        svg += Line(kPlotLeft, top, kPlotRight, top,
                    tick.label.empty() ? "class=\"fine\"" : "class=\"grid\"");
        svg += Text(kPlotLeft - 8, top + 4.5, "text-anchor=\"end\"", tick.label);
    }
    return svg;
}

std::string Chart::Legend() const {
    std::string svg;
    double left = kPlotLeft;
    double middle = kLegendMiddle;
    for (const LegendEntry& entry : legend_) {
        const double length = 33 + kLetterWidth * static_cast<double>(entry.label.size());
        if (left > kPlotLeft && left + length > kPlotRight) {
            left = kPlotLeft;
            middle += kLegendLine;
        }
        svg +=
            Print("<g transform=\"translate(%.1f %.1f)\">", left, middle) + entry.sample + "</g>\n";
        svg += Text(left + 33, middle + 4.5, "", entry.label);
        left += length + 25;
    }
    return svg;
}

std::string Chart::Svg() const {
    std::string svg = Print(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %.0f %.0f\" width=\"%.0f\" "
        "height=\"%.0f\">\n",
        kWidth, kHeight, kWidth, kHeight);
    svg += kStyle;
    svg += Print(
        "<clipPath id=\"plot\"><rect x=\"%.0f\" y=\"%.0f\" width=\"%.0f\" "
        "height=\"%.0f\"/></clipPath>\n",
        kPlotLeft, kPlotTop, kPlotRight - kPlotLeft, kPlotBottom - kPlotTop);
    svg += "<rect width=\"100%\" height=\"100%\" class=\"paper\"/>\n";
    svg += Text(kPlotLeft, 27, "class=\"title\"", title_);
    svg += Text(kPlotLeft, 48, "class=\"soft\"", subtitle_);
    svg += Grid();
    svg += "<g clip-path=\"url(#plot)\">\n" + clipped_ + "</g>\n";
    svg += Print("<rect x=\"%.0f\" y=\"%.0f\" width=\"%.0f\" height=\"%.0f\" class=\"frame\"/>\n",
                 kPlotLeft, kPlotTop, kPlotRight - kPlotLeft, kPlotBottom - kPlotTop);
    svg += Text((kPlotLeft + kPlotRight) / 2, kHeight - 18, "text-anchor=\"middle\" class=\"axis\"",
                x_.title);
    svg += Print("<g transform=\"translate(20 %.0f) rotate(-90)\">", (kPlotTop + kPlotBottom) / 2) +
           Text(0, 0, "text-anchor=\"middle\" class=\"axis\"", y_.title) + "</g>\n";
    svg += Legend() + marks_ + "</svg>\n";
    return svg;
}

} // namespace kova_cli
