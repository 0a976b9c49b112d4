// SPDX-License-Identifier: MIT
#include "face_shape.h"

#include <algorithm>
#include <cmath>

namespace draw_samples {
namespace {

double Nose(const Person& p, double x, double y) {
    const double tip = p.eyeHeight + p.noseLength;
    const double along = Step(p.eyeHeight - 0.02, tip - 0.02, y) * (1 - Step(tip, tip + 0.07, y));
    const double width = Mix(0.045, p.noseWidth, Step(p.eyeHeight, tip, y));
    const double wings = Bump(std::abs(x) - p.noseWidth, 0.035) * Bump(y - tip + 0.015, 0.04);
    return 0.15 * along * Bump(x, width) + 0.035 * wings;
}

double Lips(const Person& p, double x, double y) {
    const double across = Bump(x, p.mouthWidth);
    const double below = Bump(y - p.mouthHeight - 0.6 * p.lipFullness, 0.7 * p.lipFullness);
    const double above = Bump(y - p.mouthHeight + 0.45 * p.lipFullness, 0.5 * p.lipFullness);
    return across * (0.035 * below + 0.022 * above);
}

} // namespace

double Clamp(double value, double low, double high) { return std::min(std::max(value, low), high); }

double Mix(double a, double b, double amount) { return a + (b - a) * amount; }

double Step(double from, double to, double at) {
    const double t = Clamp((at - from) / (to - from), 0, 1);
    return t * t * (3 - 2 * t);
}

double Bump(double x, double width) { return std::exp(-x * x / (width * width)); }

double Outline(const Person& p, double x, double y) {
    const double v = y / p.headHeight;
    const double below = std::max(0.0, v);
    const double width = p.headWidth * (1 - p.jawTaper * below * below);
    return std::pow(std::abs(x) / width, 2.2) + std::pow(std::abs(v), v > 0 ? 2.5 : 2.1);
}

double Dome(const Person& person, double x, double y) {
    const double outline = Outline(person, x, y);
    return 0.62 * std::sqrt(std::max(0.0, 1 - outline));
}

double Relief(const Person& p, const Shot& shot, double x, double y) {
    const double side = std::abs(x);
    const double socket = Bump(side - p.eyeDistance, 0.12) * Bump(y - p.eyeHeight, 0.075);
    const double brow = Bump(side - p.eyeDistance, 0.17) * Bump(y - p.eyeHeight + 0.12, 0.05);
    const double cheek = Bump(side - 0.30, 0.14) * Bump(y - 0.20, 0.13);
    const double fold =
        Bump(side - p.noseWidth - 0.09 - 0.5 * (y - 0.28), 0.025) * Bump(y - 0.30, 0.09);
    const double chin = Bump(x, 0.15) * Bump(y - 0.83 * p.headHeight, 0.09);
    const double groove = Bump(x, 0.025) * Bump(y - p.mouthHeight + 0.10, 0.035);
    return Nose(p, x, y) + Lips(p, x, y) - 0.055 * socket + 0.025 * brow +
           (0.03 + 0.02 * shot.smile) * cheek - (0.004 + 0.010 * std::max(0.0, shot.smile)) * fold +
           0.035 * chin - 0.008 * groove;
}

} // namespace draw_samples
