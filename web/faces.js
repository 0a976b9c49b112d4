// SPDX-License-Identifier: MIT
// The faces of a picture: which one is taken, what is said of it, how they are drawn.
"use strict";

const REASON_WORDS = {
    "small": "too small", "blurred": "blurred", "dark": "too dark", "overexposed": "too bright",
    "turned": "turned to the side", "tilted": "tilted up or down", "covered": "partly covered",
    "cut off": "cut off by the border", "grimacing": "mouth not at rest",
};

// The number of the largest face among those that are good enough, of all where none is.
function largestGood(faces) {
    const isBetter = (a, b) => a.isGood === b.isGood ? a.side > b.side : a.isGood;
    return faces.reduce((best, face, i) => best < 0 || isBetter(face, faces[best]) ? i : best, -1);
}

// "blurred, turned to the side"
function whyNot(face) {
    return face.reasons.map((reason) => REASON_WORDS[reason]).join(", ") || "hardly to be seen as a face";
}

function qualityWords(face) {
    const quality = "quality " + face.quality + " of 100";
    return face.isGood ? "Good enough: " + quality + "."
        : "Not good enough: " + whyNot(face) + " (" + quality + ").";
}

// What is said of a picture's faces, of which number `chosen` is taken.
function facesWords(faces, chosen) {
    if (faces.length === 0) {
        return "No face was found.";
    }
    const which = faces.length === 1 ? "" : "Face " + (chosen + 1) + " of " + faces.length +
        " is taken; choose another by its box. ";
    return which + qualityWords(faces[chosen]);
}

// Boxes and landmarks over a picture that is `scale` times as large as the one they were found in.
function drawFaces(context, faces, chosen, scale, thickness) {
    context.clearRect(0, 0, context.canvas.width, context.canvas.height);
    const order = faces.map((face, i) => i).filter((i) => i !== chosen);
    for (const i of chosen >= 0 ? [...order, chosen] : order) {
        drawFace(context, faces[i], i === chosen, scale, thickness);
    }
}

function drawFace(context, face, isChosen, scale, thickness) {
    const colour = isChosen ? "#ffb000" : "#ffffff";
    const left = face.left * scale, top = face.top * scale;
    const width = (face.side ?? face.right - face.left) * scale;
    const height = (face.side ?? face.bottom - face.top) * scale;
    context.setLineDash(face.isGood ? [] : [4 * thickness, 3 * thickness]);
    // Dark beneath, so that it is seen on white, too.
    for (const [style, line] of [["rgb(0 0 0 / .65)", thickness + 2], [colour, thickness]]) {
        context.strokeStyle = style;
        context.lineWidth = line;
        context.strokeRect(left, top, width, height);
    }
    for (const { x, y } of face.points ?? []) {
        for (const [style, radius] of [["rgb(0 0 0 / .65)", thickness + 1], [colour, thickness]]) {
            context.fillStyle = style;
            context.beginPath();
            context.arc(x * scale, y * scale, radius, 0, 2 * Math.PI);
            context.fill();
        }
    }
}
