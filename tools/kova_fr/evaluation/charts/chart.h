// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace kova_cli {

// Charts as SVG: sharp at any size, small, and text stays text. They are light or dark as the
// reader's system is. A colour is "blue", "orange" or "green".

struct Point {
    double x;
    double y;
};

struct Tick {
    double at;
    std::string label; // empty: a fine line only
};

// `at` and all points are in the axis's own measure: a logarithm where the axis is logarithmic.
struct Axis {
    std::string title;
    double low;
    double high;
    std::vector<Tick> ticks;
};

// About `count` ticks at round numbers, with `unit` behind each.
std::vector<Tick> RoundTicks(double low, double high, int count, const std::string& unit);

class Chart {
  public:
    Chart(std::string title, std::string subtitle, Axis x, Axis y);

    // Things drawn later lie above. Those with a label are named above the axes.
    void AddBand(const std::vector<Point>& upper, const std::vector<Point>& lower,
                 const std::string& colour, const std::string& label);
    void AddLine(const std::vector<Point>& points, const std::string& colour,
                 const std::string& label);
    void AddDashes(const std::vector<Point>& points, const std::string& label);
    // Filled down to the axis.
    void AddArea(const std::vector<Point>& points, const std::string& colour,
                 const std::string& label);
    // A dot, at the border where it lies beyond, and its text on that side of it or where there is room.
    enum class Side { kUpperLeft, kUpperRight };
    void AddDot(const Point& point, const std::string& colour, const std::string& text, Side side);
    // A line across the whole height with text along it.
    void AddUpright(double x, const std::string& text);

    std::string Svg() const;

  private:
    struct LegendEntry {
        std::string sample; // SVG, around 0, 0
        std::string label;
    };

    struct Room {
        double left, top, right, bottom;
    };

    bool Takes(const Room& room);
    double Left(double x) const;
    double Top(double y) const;
    std::string Path(const std::vector<Point>& points) const;
    std::string Grid() const;
    std::string Legend() const;

    std::string title_;
    std::string subtitle_;
    Axis x_;
    Axis y_;
    std::string clipped_; // SVG inside the axes
    std::string marks_;   // and above that
    std::vector<LegendEntry> legend_;
    std::vector<Room> rooms_; // of labels
};

} // namespace kova_cli
