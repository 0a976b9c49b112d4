// SPDX-License-Identifier: MIT
#include "portrait.h"

namespace draw_samples {
namespace {

std::vector<Person> People() {
    Person ada{};
    ada.name = "ada";
    ada.skin = {0.90, 0.71, 0.60};
    ada.hair = {0.42, 0.22, 0.10};
    ada.iris = {0.28, 0.45, 0.38};
    ada.lips = {0.74, 0.33, 0.33};
    ada.headWidth = 0.50;
    ada.headHeight = 0.70;
    ada.jawTaper = 0.36;
    ada.eyeDistance = 0.205;
    ada.eyeHeight = -0.04;
    ada.eyeWidth = 0.100;
    ada.eyeTilt = 0.12;
    ada.browHeight = 0.105;
    ada.browWidth = 0.018;
    ada.browArch = 0.035;
    ada.noseLength = 0.24;
    ada.noseWidth = 0.070;
    ada.mouthHeight = 0.395;
    ada.mouthWidth = 0.150;
    ada.lipFullness = 0.062;
    ada.hairLine = -0.42;
    ada.hairLength = 0.85;
    ada.hairVolume = 0.08;
    ada.fringe = 0.5;

    Person ben{};
    ben.name = "ben";
    ben.skin = {0.83, 0.62, 0.49};
    ben.hair = {0.13, 0.10, 0.09};
    ben.iris = {0.30, 0.19, 0.10};
    ben.lips = {0.66, 0.38, 0.34};
    ben.headWidth = 0.56;
    ben.headHeight = 0.71;
    ben.jawTaper = 0.20;
    ben.eyeDistance = 0.220;
    ben.eyeHeight = -0.06;
    ben.eyeWidth = 0.088;
    ben.eyeTilt = 0.02;
    ben.browHeight = 0.085;
    ben.browWidth = 0.034;
    ben.browArch = 0.012;
    ben.noseLength = 0.27;
    ben.noseWidth = 0.095;
    ben.mouthHeight = 0.405;
    ben.mouthWidth = 0.175;
    ben.lipFullness = 0.048;
    ben.hairLine = -0.40;
    ben.hairLength = -0.1;
    ben.hairVolume = 0.03;
    ben.fringe = 0.0;
    ben.beard = 0.75;

    Person cleo{};
    cleo.name = "cleo";
    cleo.skin = {0.52, 0.34, 0.24};
    cleo.hair = {0.09, 0.07, 0.06};
    cleo.iris = {0.22, 0.13, 0.07};
    cleo.lips = {0.52, 0.22, 0.22};
    cleo.headWidth = 0.53;
    cleo.headHeight = 0.66;
    cleo.jawTaper = 0.30;
    cleo.eyeDistance = 0.228;
    cleo.eyeHeight = -0.01;
    cleo.eyeWidth = 0.112;
    cleo.eyeTilt = 0.05;
    cleo.browHeight = 0.130;
    cleo.browWidth = 0.021;
    cleo.browArch = 0.045;
    cleo.noseLength = 0.20;
    cleo.noseWidth = 0.092;
    cleo.mouthHeight = 0.370;
    cleo.mouthWidth = 0.165;
    cleo.lipFullness = 0.085;
    cleo.hairLine = -0.33;
    cleo.hairLength = 0.45;
    cleo.hairVolume = 0.20;
    cleo.fringe = 0.0;

    Person dan{};
    dan.name = "dan";
    dan.skin = {0.88, 0.69, 0.59};
    dan.hair = {0.62, 0.60, 0.58};
    dan.iris = {0.35, 0.48, 0.62};
    dan.lips = {0.72, 0.46, 0.42};
    dan.headWidth = 0.47;
    dan.headHeight = 0.74;
    dan.jawTaper = 0.27;
    dan.eyeDistance = 0.190;
    dan.eyeHeight = -0.08;
    dan.eyeWidth = 0.082;
    dan.eyeTilt = -0.10;
    dan.browHeight = 0.120;
    dan.browWidth = 0.024;
    dan.browArch = 0.020;
    dan.noseLength = 0.31;
    dan.noseWidth = 0.080;
    dan.mouthHeight = 0.440;
    dan.mouthWidth = 0.140;
    dan.lipFullness = 0.036;
    dan.hairLine = -0.56;
    dan.hairLength = -0.1;
    dan.hairVolume = 0.02;
    dan.fringe = 0.3;
    dan.hasGlasses = true;

    return {ada, ben, cleo, dan};
}

// Three pictures: an even one from the front, one in side light, one with another face.
std::vector<Shot> Shots() {
    Shot front{};
    front.lightX = -0.25;
    front.lightY = -0.45;
    front.ambient = 0.42;
    front.exposure = 1.0;
    front.scale = 0.98;
    front.moveY = 0.02;
    front.smile = 0.15;
    front.eyeOpen = 0.95;
    front.noise = 0.2;
    front.background = {0.62, 0.68, 0.74};
    front.shirt = {0.25, 0.32, 0.45};

    Shot side = front;
    side.lightX = 1.0;
    side.lightY = -0.30;
    side.ambient = 0.34;
    side.exposure = 0.92;
    side.turn = 0.16;
    side.tilt = 0.06;
    side.scale = 0.95;
    side.moveX = 0.03;
    side.smile = -0.15;
    side.eyeOpen = 0.80;
    side.gazeX = 0.12;
    side.noise = 0.3;
    side.background = {0.40, 0.38, 0.36};
    side.shirt = {0.45, 0.24, 0.22};

    Shot laugh = front;
    laugh.lightX = -0.70;
    laugh.lightY = -0.60;
    laugh.ambient = 0.48;
    laugh.exposure = 1.06;
    laugh.turn = -0.14;
    laugh.nod = 0.05;
    laugh.tilt = -0.07;
    laugh.scale = 1.02;
    laugh.moveX = -0.03;
    laugh.smile = 0.9;
    laugh.mouthOpen = 0.6;
    laugh.eyeOpen = 0.72;
    laugh.gazeX = -0.08;
    laugh.background = {0.72, 0.74, 0.66};
    laugh.shirt = {0.32, 0.42, 0.30};

    return {front, side, laugh};
}

// No two people stand in quite the same place and light.
Shot Vary(Shot shot, int person) {
    const double lean[] = {0.0, 1.0, -1.0, 0.5};
    shot.lightX += 0.12 * lean[person];
    shot.turn += 0.03 * lean[person];
    shot.tilt -= 0.02 * lean[person];
    shot.moveX += 0.02 * lean[person];
    shot.background.red += 0.05 * lean[person];
    shot.background.blue -= 0.06 * lean[person];
    return shot;
}

} // namespace

std::vector<Portrait> AllPortraits() {
    std::vector<Portrait> portraits;
    const std::vector<Person> people = People();
    for (size_t i = 0; i < people.size(); ++i) {
        int number = 0;
        for (const Shot& shot : Shots()) {
            const std::string name = people[i].name + "-" + std::to_string(++number) + ".png";
            portraits.push_back({people[i], Vary(shot, static_cast<int>(i)), name});
        }
    }
    return portraits;
}

} // namespace draw_samples
