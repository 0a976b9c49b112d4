// SPDX-License-Identifier: MIT
#include "render.h"

#include <algorithm>
#include <cmath>

#include "face_shape.h"

namespace draw_samples {
namespace {

constexpr int kSamplesAcross = 4; // of a pixel; their mean smooths all edges

struct Point {
    double x, y;
};

Colour operator*(const Colour& c, double f) { return {c.red * f, c.green * f, c.blue * f}; }

Colour operator+(const Colour& a, const Colour& b) {
    return {a.red + b.red, a.green + b.green, a.blue + b.blue};
}

Colour Mix(const Colour& a, const Colour& b, double amount) {
    return a * (1 - amount) + b * amount;
}

struct Light {
    double x, y, z;
    double ambient;
};

Light LightOf(const Shot& shot) {
    const double length = std::sqrt(shot.lightX * shot.lightX + shot.lightY * shot.lightY + 1);
    return {shot.lightX / length, shot.lightY / length, 1 / length, shot.ambient};
}

// Light reaches a little round the edge, as it does from a window or a lamp with a shade.
double Shade(const Light& light, double slopeX, double slopeY) {
    constexpr double kWrap = 0.35;
    const double length = std::sqrt(slopeX * slopeX + slopeY * slopeY + 1);
    const double facing = (-slopeX * light.x - slopeY * light.y + light.z) / length;
    const double lit = std::pow(std::max(0.0, (facing + kWrap) / (1 + kWrap)), 1.4);
    return light.ambient + (1 - light.ambient) * lit * 1.15;
}

// From the picture to the upright head.
Point ToHead(const Shot& shot, Point at) {
    const double x = (at.x - shot.moveX) / shot.scale;
    const double y = (at.y - shot.moveY) / shot.scale;
    const double c = std::cos(shot.tilt);
    const double s = std::sin(shot.tilt);
    return {c * x + s * y, -s * x + c * y};
}

// From the upright head to the face on it: what stands out more moves more as the head turns.
Point ToFace(const Person& person, const Shot& shot, Point head) {
    const double depth = std::sqrt(std::max(0.0, 1 - Outline(person, head.x, head.y)));
    return {head.x - shot.turn * 0.55 * depth, head.y - shot.nod * 0.55 * depth};
}

// A slow wave of a few frequencies that stands in for the irregularity of hair.
double Strands(double x, double y) {
    return 0.5 * std::sin(61 * x + 9 * y) + 0.3 * std::sin(127 * x - 17 * y + 1.3) +
           0.1 * std::sin(223 * x + 31 * y + 0.4);
}

Colour HairAt(const Person& person, const Light& light, Point p) {
    const double radius = std::hypot(p.x, p.y + 0.1) + 1e-6;
    const double angle = std::atan2(p.x, -p.y + 0.35);
    const double gloss =
        Bump(radius - 0.62 - 0.05 * light.y, 0.13) * Bump(angle - 0.9 * light.x, 0.7);
    const double shade = Shade(light, -0.9 * p.x, -0.7 * p.y);
    return person.hair * (shade * (0.9 + 0.10 * Strands(angle, radius * 0.5))) +
           Colour{0.22, 0.21, 0.20} * gloss;
}

bool IsHairShort(const Person& person) { return person.hairLength < 0.2; }

bool IsHairBehind(const Person& person, Point p) {
    const double width = person.headWidth + 0.10 + person.hairVolume;
    const double top = person.headHeight + 0.04 + person.hairVolume;
    const double end = person.hairLength - 0.9 * std::pow(std::abs(p.x), 4.0);
    if (IsHairShort(person) || p.y > end + 0.01 * Strands(p.x, 0.0)) {
        return false;
    }
    const double y = p.y < 0 ? p.y / top : 0.35 * p.y;
    return p.x * p.x / (width * width) + y * y < 1;
}

bool IsHairInFront(const Person& person, Point p) {
    // Short hair ends in sideburns close to the head.
    const double close = IsHairShort(person) ? 1 - Step(-0.45, 0.05, p.y) : 1;
    const double cap = Outline(person, p.x / (1 + 0.6 * person.hairVolume * close),
                               p.y / (1 + 0.8 * person.hairVolume));
    const double side = std::abs(p.x) / person.headWidth;
    const double parting = person.fringe * (p.x + 0.12) * (p.x > -0.12 ? 0.55 : -0.9);
    const double line =
        person.hairLine + 0.55 * std::pow(side, 5.0) - parting + 0.012 * Strands(p.x * 0.8, 0.0);
    return cap < 1 + 0.06 * close && p.y < std::min(line, 0.10);
}

Colour Background(const Shot& shot, Point at) {
    const double fade = 1.05 - 0.22 * std::hypot(at.x - 0.4 * shot.lightX, at.y + 0.4);
    return shot.background * fade;
}

bool IsShirt(Point at) { return at.y > 0.80 + 0.42 * at.x * at.x; }

Colour Shirt(const Shot& shot, const Light& light, Point at) {
    const double collar = Bump(std::abs(at.x) - 0.34 + 0.5 * (at.y - 0.8), 0.02);
    return shot.shirt * (Shade(light, 0.8 * at.x, 0.1) * (1 - 0.25 * collar));
}

bool IsNeck(const Person& person, Point p) {
    return p.y > 0.35 && std::abs(p.x) < 0.56 * person.headWidth + 0.25 * std::pow(p.y - 0.55, 2);
}

Colour Neck(const Person& person, const Light& light, Point p) {
    const double s = p.x / (0.62 * person.headWidth);
    const double underChin = 1 - 0.5 * (1 - Step(0.66, 1.02, p.y));
    return person.skin * (Shade(light, 0.8 * s, 0.1) * underChin * 0.95);
}

bool IsEar(const Person& person, Point p) {
    const double x = (std::abs(p.x) - person.headWidth * 1.0) / 0.075;
    const double y = (p.y - 0.06) / 0.16;
    return x * x + y * y < 1;
}

Colour Ear(const Person& person, const Light& light, Point p) {
    const double x = (std::abs(p.x) - person.headWidth) / 0.075;
    const double shade = Shade(light, p.x > 0 ? 0.7 : -0.7, 0);
    const double hollow = Bump(x - 0.1, 0.35) * Bump((p.y - 0.05) / 0.1, 0.7);
    return Mix(person.skin, {0.75, 0.35, 0.3}, 0.15) * (shade * (1 - 0.3 * hollow));
}

// Eyes: `dx` from the eye's middle outwards, `dy` from its line downwards.
struct EyePoint {
    double dx, dy;
    double upper, lower; // the lids at dx
};

EyePoint ToEye(const Person& person, const Shot& shot, Point f) {
    EyePoint eye;
    const double outwards = std::abs(f.x) - person.eyeDistance;
    eye.dx = outwards / person.eyeWidth;
    eye.dy = f.y - person.eyeHeight + person.eyeTilt * outwards;
    const double lid = std::max(0.0, 1 - eye.dx * eye.dx);
    const double cheekRaise = 0.15 * std::max(0.0, shot.smile);
    eye.upper = -0.50 * person.eyeWidth * std::pow(lid, 0.8) * shot.eyeOpen;
    eye.lower = 0.34 * person.eyeWidth * lid * (0.4 + 0.6 * shot.eyeOpen - cheekRaise);
    return eye;
}

Colour Eyeball(const Person& person, const Shot& shot, Point f, const EyePoint& eye) {
    const double side = f.x < 0 ? -1 : 1;
    const double x = f.x - side * person.eyeDistance - shot.gazeX * person.eyeWidth;
    const double y = eye.dy + 0.06 * person.eyeWidth;
    const double radius = std::hypot(x, y) / person.eyeWidth;
    const double lidShadow = 1 - 0.35 * (1 - Step(0.0, 0.30 * person.eyeWidth, eye.dy - eye.upper));
    Colour colour = Colour{0.90, 0.88, 0.86} * (1 - 0.18 * eye.dx * eye.dx);
    const Colour iris = person.iris * (0.75 + 0.5 * Step(0.15, 0.42, radius));
    colour = Mix(colour, iris, 1 - Step(0.43, 0.47, radius));
    colour = Mix(colour, person.iris * 0.3, Bump(radius - 0.45, 0.035));
    colour = Mix(colour, {0.03, 0.03, 0.03}, 1 - Step(0.19, 0.23, radius));
    const double glint = std::hypot(x - 0.14 * person.eyeWidth * (shot.lightX < 0 ? -1 : 1),
                                    y + 0.16 * person.eyeWidth);
    colour = colour * lidShadow;
    return Mix(colour, {1, 1, 1}, 0.9 * (1 - Step(0.06, 0.11, glint / person.eyeWidth)));
}

void PaintEyes(const Person& person, const Shot& shot, Point f, Colour& colour) {
    const EyePoint eye = ToEye(person, shot, f);
    if (std::abs(eye.dx) < 1.25) {
        const double crease = Bump(eye.dy - 1.35 * eye.upper + 0.028, 0.010);
        colour = colour * (1 - 0.22 * crease * Bump(eye.dx, 0.9));
    }
    if (std::abs(eye.dx) >= 1) {
        return;
    }
    if (eye.dy > eye.upper && eye.dy < eye.lower) {
        colour = Eyeball(person, shot, f, eye);
    }
    const double lash = Bump(eye.dy - eye.upper, 0.010 + 0.003 * eye.dx);
    colour = Mix(colour, person.hair * 0.35, 0.85 * lash);
    colour = Mix(colour, person.skin * 0.55, 0.4 * Bump(eye.dy - eye.lower, 0.007));
}

void PaintBrows(const Person& person, Point f, Colour& colour) {
    const double x = (std::abs(f.x) - person.eyeDistance - 0.01) / (1.35 * person.eyeWidth);
    if (std::abs(x) > 1.2) {
        return;
    }
    const double middle =
        person.eyeHeight - person.browHeight - person.browArch * (1 - x * x) - 0.02 * x;
    const double width = person.browWidth * (1 - 0.55 * Step(-0.2, 1.1, x)) + 1e-4;
    const double hairs = 0.85 + 0.15 * std::sin(260 * f.x + 120 * f.y);
    const double amount = Bump((f.y - middle) / width, 1.0) * (1 - Step(0.85, 1.1, std::abs(x)));
    colour = Mix(colour, person.hair * 0.6, Clamp(1.25 * amount * hairs, 0, 0.95));
}

double MouthLine(const Person& person, const Shot& shot, double across) {
    return person.mouthHeight - 0.055 * shot.smile * across * across + 0.012 * Bump(across, 0.22) -
           0.008 * Bump(std::abs(across) - 0.3, 0.2);
}

void PaintMouth(const Person& person, const Shot& shot, Point f, Colour& colour) {
    const double width = person.mouthWidth * (1 + 0.16 * shot.smile - 0.08 * shot.mouthOpen);
    const double across = f.x / width;
    if (std::abs(across) > 1.15) {
        return;
    }
    const double lid = std::max(0.0, 1 - across * across);
    const double line = MouthLine(person, shot, across);
    const double gap = 0.080 * shot.mouthOpen * std::pow(lid, 0.7);
    const double up = line - f.y;
    const double down = f.y - line - gap;
    const double upperLip =
        0.72 * person.lipFullness * std::pow(lid, 0.8) * (1 - 0.22 * Bump(across, 0.10));
    const double lowerLip = person.lipFullness * std::pow(lid, 0.6);
    const double soft = 0.012;
    const double upper = Step(-soft, 0, up) * (1 - Step(upperLip - soft, upperLip + soft, up));
    const double lower = Step(-soft, 0, down) * (1 - Step(lowerLip - soft, lowerLip + soft, down));
    const Colour shaded = person.lips * (colour.red / person.skin.red);
    colour = Mix(colour, shaded * 0.86, 0.9 * upper * Step(0.0, 0.25, lid));
    colour = Mix(colour, shaded * 1.05, 0.9 * lower * Step(0.0, 0.25, lid));
    if (f.y > line && f.y < line + gap) {
        const double teeth = 1 - Step(0.45, 0.65, (f.y - line) / 0.085);
        colour = Mix({0.22, 0.07, 0.07}, {0.88, 0.86, 0.82}, teeth * Step(0.0, 0.35, lid));
    }
    const double edge = Bump(f.y - line, 0.009) + Bump(f.y - line - gap, 0.009);
    colour = Mix(colour, person.lips * 0.35, Clamp(0.75 * edge * Step(-0.05, 0.15, lid), 0, 0.8));
}

void PaintNostrils(const Person& person, Point f, Colour& colour) {
    const double x = (std::abs(f.x) - 0.55 * person.noseWidth) / (0.34 * person.noseWidth);
    const double y = (f.y - person.eyeHeight - person.noseLength - 0.032) / 0.014;
    colour = Mix(colour, person.skin * 0.25, 0.75 * Bump(std::hypot(x, y), 0.95));
}

void PaintBeard(const Person& person, Point f, Colour& colour) {
    if (person.beard <= 0) {
        return;
    }
    const double mouth = Bump(f.x, 1.05 * person.mouthWidth) *
                         Bump(f.y - person.mouthHeight - 0.01, 1.15 * person.lipFullness);
    const double cheekLine =
        0.20 + 0.16 * Bump(f.x, 0.22) - 0.35 * Step(0.26, person.headWidth, std::abs(f.x));
    const double grain = 0.88 + 0.12 * std::sin(310 * f.x) * std::sin(290 * f.y + 40 * f.x);
    const double amount = Step(cheekLine - 0.04, cheekLine + 0.13, f.y) * (1 - mouth) * grain;
    colour = Mix(colour, person.hair * (0.35 + 0.75 * colour.red), person.beard * amount);
}

void PaintGlasses(const Person& person, const Light& light, Point f, Colour& colour) {
    if (!person.hasGlasses) {
        return;
    }
    const double x = (std::abs(f.x) - person.eyeDistance) / (1.62 * person.eyeWidth);
    const double y = (f.y - person.eyeHeight - 0.01) / (1.18 * person.eyeWidth);
    const double radius =
        std::pow(std::pow(std::abs(x), 3.0) + std::pow(std::abs(y), 3.0), 1 / 3.0);
    const double rim = Bump(radius - 1, 0.075);
    const double bridge = std::abs(f.x) < person.eyeDistance - 1.55 * person.eyeWidth
                              ? Bump(f.y - person.eyeHeight + 0.02, 0.014)
                              : 0;
    const double temple = x > 0.95 ? Bump(f.y - person.eyeHeight + 0.03, 0.013) : 0;
    const double glare = radius < 0.95 ? 0.12 * Bump(x - y - 1.1 * light.x - 0.2, 0.18) : 0;
    colour = Mix(colour, {1, 1, 1}, glare);
    colour = Mix(colour, {0.09, 0.08, 0.09}, Clamp(std::max({rim, bridge, temple}), 0, 0.95));
}

Colour Face(const Portrait& portrait, const Light& light, Point head) {
    const Person& person = portrait.person;
    const Shot& shot = portrait.shot;
    const Point f = ToFace(person, shot, head);
    constexpr double kReach = 0.006;
    const auto relief = [&](double x, double y) {
        const Point on = {head.x + x, head.y + y};
        const Point at = ToFace(person, shot, on);
        return Dome(person, on.x, on.y) + Relief(person, shot, at.x, at.y);
    };
    const double slopeX = (relief(kReach, 0) - relief(-kReach, 0)) / (2 * kReach);
    const double slopeY = (relief(0, kReach) - relief(0, -kReach)) / (2 * kReach);
    const double limit = 2.2;
    const double shade = Shade(light, Clamp(slopeX, -limit, limit), Clamp(slopeY, -limit, limit));
    const double blush = Bump(std::abs(f.x) - 0.30, 0.13) * Bump(f.y - 0.20, 0.11);
    Colour colour = Mix(person.skin, {0.80, 0.36, 0.30}, 0.14 * blush) * shade;
    colour = colour + Colour{0.10, 0.09, 0.08} * (std::pow(Clamp(shade, 0, 1.1), 8) * 0.6);
    PaintBeard(person, f, colour);
    PaintNostrils(person, f, colour);
    PaintMouth(person, shot, f, colour);
    PaintEyes(person, shot, f, colour);
    PaintBrows(person, f, colour);
    PaintGlasses(person, light, f, colour);
    // Hair and the hair line throw a soft shadow on the forehead.
    const double shadow = 1 - Step(0.0, 0.10, f.y - person.hairLine);
    return colour * (1 - 0.25 * shadow);
}

Colour PointColour(const Portrait& portrait, const Light& light, Point at) {
    const Person& person = portrait.person;
    const Shot& shot = portrait.shot;
    const Point head = ToHead(shot, at);
    if (IsHairInFront(person, head)) {
        return HairAt(person, light, head);
    }
    if (Outline(person, head.x, head.y) < 1) {
        return Face(portrait, light, head);
    }
    if (IsEar(person, head) && IsHairShort(person)) {
        return Ear(person, light, head);
    }
    const Point body = {(at.x - 0.6 * shot.moveX) / shot.scale, (at.y - shot.moveY) / shot.scale};
    if (IsShirt(body)) {
        return Shirt(shot, light, body);
    }
    if (IsNeck(person, body)) {
        return Neck(person, light, body);
    }
    if (IsHairBehind(person, head)) {
        return HairAt(person, light, head) * 0.75;
    }
    return Background(shot, at);
}

Colour PixelColour(const Portrait& portrait, const Light& light, int size, int column, int row) {
    Colour sum = {0, 0, 0};
    for (int i = 0; i < kSamplesAcross; ++i) {
        for (int j = 0; j < kSamplesAcross; ++j) {
            const double x = column + (j + 0.5) / kSamplesAcross;
            const double y = row + (i + 0.5) / kSamplesAcross;
            const Colour colour =
                PointColour(portrait, light, {2 * x / size - 1, 2 * y / size - 1});
            sum = sum + Colour{Clamp(colour.red, 0, 1), Clamp(colour.green, 0, 1),
                               Clamp(colour.blue, 0, 1)};
        }
    }
    return sum * (1.0 / (kSamplesAcross * kSamplesAcross));
}

// SplitMix64: the same numbers everywhere.
class Noise {
  public:
    explicit Noise(uint64_t seed) : state_(seed) {}

    // About normal, with standard deviation 1: the sum of four uniform numbers.
    double Next() {
        const uint64_t bits = Bits();
        double sum = 0;
        for (int shift = 0; shift < 64; shift += 16) {
            sum += static_cast<double>((bits >> shift) & 0xFFFF) / 65535.0 - 0.5;
        }
        return sum * std::sqrt(3.0);
    }

  private:
    uint64_t Bits() {
        uint64_t z = state_ += 0x9E3779B97F4A7C15u;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
        return z ^ (z >> 31);
    }

    uint64_t state_;
};

uint8_t ToByte(double value, double noise) {
    return static_cast<uint8_t>(std::lround(Clamp(value * 255 + noise, 0, 255)));
}

} // namespace

std::vector<uint8_t> Render(const Portrait& portrait, int size, uint64_t seed) {
    const Light light = LightOf(portrait.shot);
    Noise noise(seed);
    std::vector<uint8_t> pixels;
    for (int row = 0; row < size; ++row) {
        for (int column = 0; column < size; ++column) {
            const Colour colour =
                PixelColour(portrait, light, size, column, row) * portrait.shot.exposure;
            const double grain = portrait.shot.noise * noise.Next();
            pixels.push_back(ToByte(colour.red, grain));
            pixels.push_back(ToByte(colour.green, grain));
            pixels.push_back(ToByte(colour.blue, grain));
        }
    }
    return pixels;
}

} // namespace draw_samples
