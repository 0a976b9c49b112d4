// SPDX-License-Identifier: MIT
#include "chart.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace kova_cli {
namespace {

constexpr double kWidth = 720, kHeight = 480;
constexpr double kLeft = 72, kRight = 24, kTop = 64, kBottom = 56;

std::string Fixed(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}

std::string Escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

// 0 to 1 along the axis; what lies outside is drawn at its end.
double Share(const Axis& axis, double value) {
    const auto scale = [&axis](double v) {
        return axis.isLogarithmic ? std::log10(std::max(v, axis.from)) : v;
    };
    const double share = (scale(value) - scale(axis.from)) / (scale(axis.to) - scale(axis.from));
    return std::clamp(share, 0.0, 1.0);
}

double X(const Chart& chart, double value) {
    return kLeft + Share(chart.x, value) * (kWidth - kLeft - kRight);
}

double Y(const Chart& chart, double value) {
    return kHeight - kBottom - Share(chart.y, value) * (kHeight - kTop - kBottom);
}

std::vector<double> Ticks(const Axis& axis) {
    std::vector<double> ticks;
    if (axis.isLogarithmic) {
        for (double tick = axis.from; tick <= axis.to * 1.001; tick *= 10) {
            ticks.push_back(tick);
        }
        return ticks;
    }
    for (int i = 0; i <= axis.steps; ++i) {
        ticks.push_back(axis.from + (axis.to - axis.from) * i / axis.steps);
    }
    return ticks;
}

std::string TickText(const Axis& axis, double value) {
    char text[32];
    std::snprintf(text, sizeof text, axis.isPercent ? "%.3g %%" : "%.3g",
                  axis.isPercent ? 100 * value : value);
    return text;
}

std::string Text(double x, double y, const std::string& attributes, const std::string& text) {
    return "<text x=\"" + Fixed(x) + "\" y=\"" + Fixed(y) + "\" " + attributes + ">" +
           Escaped(text) + "</text>\n";
}

std::string Line(double x1, double y1, double x2, double y2) {
    return "<line class=\"grid\" x1=\"" + Fixed(x1) + "\" y1=\"" + Fixed(y1) + "\" x2=\"" +
           Fixed(x2) + "\" y2=\"" + Fixed(y2) + "\"/>\n";
}

std::string Frame(const Chart& chart) {
    std::string svg = Text(kLeft, 28, "class=\"title\"", chart.title) +
                      Text(kLeft, 48, "class=\"note\"", chart.subtitle);
    const double floor = kHeight - kBottom;
    for (const double tick : Ticks(chart.x)) {
        const double x = X(chart, tick);
        svg += Line(x, kTop, x, floor);
        svg += Text(x, floor + 18, "text-anchor=\"middle\"", TickText(chart.x, tick));
    }
    for (const double tick : Ticks(chart.y)) {
        const double y = Y(chart, tick);
        svg += Line(kLeft, y, kWidth - kRight, y);
        svg += Text(kLeft - 8, y + 4, "text-anchor=\"end\"", TickText(chart.y, tick));
    }
    svg +=
        Text((kLeft + kWidth - kRight) / 2, kHeight - 14, "text-anchor=\"middle\"", chart.x.title);
    const std::string middle = Fixed((kTop + floor) / 2);
    return svg + Text(16, (kTop + floor) / 2,
                      "text-anchor=\"middle\" transform=\"rotate(-90 16 " + middle + ")\"",
                      chart.y.title);
}

std::string Curve(const Chart& chart, const Series& series) {
    std::string svg =
        "<polyline fill=\"none\" stroke-width=\"2.5\" stroke-linejoin=\"round\" "
        "stroke=\"" +
        series.colour + "\" points=\"";
    for (const auto& [x, y] : series.points) {
        svg += Fixed(X(chart, x)) + "," + Fixed(Y(chart, y)) + " ";
    }
    svg.back() = '"';
    return svg + "/>\n";
}

std::string Bars(const Chart& chart, const Series& series) {
    std::string svg = "<path fill-opacity=\"0.55\" fill=\"" + series.colour + "\" d=\"";
    const std::string floor = Fixed(kHeight - kBottom);
    for (size_t i = 0; i + 1 < series.points.size(); ++i) {
        const auto& [x, y] = series.points[i];
        svg += "M" + Fixed(X(chart, x)) + " " + floor + "V" + Fixed(Y(chart, y)) + "H" +
               Fixed(X(chart, series.points[i + 1].first)) + "V" + floor + "Z";
    }
    return svg + "\"/>\n";
}

std::string Legend(const Chart& chart) {
    std::string svg;
    double y = 28;
    for (const Series& series : chart.series) {
        svg += "<rect x=\"" + Fixed(kWidth - kRight - 190) + "\" y=\"" + Fixed(y - 10) +
               "\" width=\"14\" height=\"10\" fill=\"" + series.colour + "\"/>\n" +
               Text(kWidth - kRight - 170, y, "", series.name);
        y += 18;
    }
    return svg;
}

std::string Marks(const Chart& chart) {
    std::string svg;
    for (const Mark& mark : chart.marks) {
        const double x = X(chart, mark.x), y = Y(chart, mark.y);
        svg += "<circle class=\"mark\" r=\"4\" cx=\"" + Fixed(x) + "\" cy=\"" + Fixed(y) + "\"/>\n";
        // To the side on which there is room.
        const bool isRight = x < 0.75 * kWidth;
        svg += Text(x + (isRight ? 8 : -8), y + 16,
                    isRight ? "class=\"note\"" : "class=\"note\" text-anchor=\"end\"", mark.label);
    }
    return svg;
}

} // namespace

std::vector<uint8_t> Svg(const Chart& chart) {
    const std::string size = "width=\"" + Fixed(kWidth) + "\" height=\"" + Fixed(kHeight) +
                             "\" viewBox=\"0 0 " + Fixed(kWidth) + " " + Fixed(kHeight) + "\"";
    std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" " + size +
                      " role=\"img\" aria-label=\"" + Escaped(chart.title) +
                      "\" font-family=\"sans-serif\" font-size=\"13\" fill=\"#222\">\n"
                      "<style>.grid{stroke:#ddd}.title{font-size:17px;font-weight:bold}"
                      ".note{fill:#555;font-size:12px}.mark{fill:#222}</style>\n"
                      "<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n" +
                      Frame(chart);
    for (const Series& series : chart.series) {
        svg += series.isBars ? Bars(chart, series) : Curve(chart, series);
    }
    svg += (chart.series.size() > 1 ? Legend(chart) : "") + Marks(chart) + "</svg>\n";
    return {svg.begin(), svg.end()};
}

} // namespace kova_cli
