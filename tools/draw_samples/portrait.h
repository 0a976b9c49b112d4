// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace draw_samples {

// Portraits are described on a plane: x to the right, y down, the picture from -1 to 1 both ways.
// The head stands around the origin.

struct Colour {
    double red, green, blue; // 0 to 1, as displayed
};

// What stays the same in every picture of a person.
struct Person {
    std::string name;
    Colour skin;
    Colour hair;
    Colour iris;
    Colour lips;
    double headWidth;   // half of it
    double headHeight;  // half of it
    double jawTaper;    // 0: as wide as the skull
    double eyeDistance; // from the middle to each
    double eyeHeight;   // y of the eyes
    double eyeWidth;    // half of it
    double eyeTilt;     // outer corners up
    double browHeight;  // above the eyes
    double browWidth;   // half its thickness
    double browArch;    // how far its middle rises
    double noseLength;  // from the eyes
    double noseWidth;   // of the tip, half of it
    double mouthHeight; // y of the mouth
    double mouthWidth;  // half of it
    double lipFullness; // of the lower lip
    double hairLine;    // y of the hair's edge above the forehead
    double hairLength;  // y down to which hair falls behind the cheeks
    double hairVolume;  // how far hair stands off the skull
    double fringe;      // 0: straight; above 0: the hair line is parted, rising to one side
    double beard;       // 0 to 1
    bool hasGlasses;
};

// What differs from picture to picture.
struct Shot {
    double lightX, lightY; // where the light comes from; the rest of its direction is to the front
    double ambient;        // the part of the light that comes from everywhere
    double exposure;
    double turn;  // to the right, about -0.4 to 0.4
    double nod;   // downwards
    double tilt;  // in the plane, radians
    double scale; // of the head
    double moveX, moveY;
    double smile;     // -1 to 1
    double mouthOpen; // 0 to 1
    double eyeOpen;   // 0 to 1
    double gazeX;
    double noise; // standard deviation in grey levels
    Colour background;
    Colour shirt;
};

struct Portrait {
    Person person;
    Shot shot;
    std::string fileName;
};

// All portraits of samples/.
std::vector<Portrait> AllPortraits();

} // namespace draw_samples
