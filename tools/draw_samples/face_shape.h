// SPDX-License-Identifier: MIT
#pragma once

#include "portrait.h"

namespace draw_samples {

// Smooth steps and bumps, of which everything is made.
double Clamp(double value, double low, double high);
double Mix(double a, double b, double amount);
double Step(double from, double to, double at); // 0 at `from`, 1 at `to`, smooth between
double Bump(double x, double width);            // 1 at 0, falling off like a bell

// 0 in the middle of the head's outline, 1 on it, more outside.
double Outline(const Person& person, double x, double y);

// How far the head stands out towards the viewer, and what the features of the face add to that.
double Dome(const Person& person, double x, double y);
double Relief(const Person& person, const Shot& shot, double x, double y);

} // namespace draw_samples
