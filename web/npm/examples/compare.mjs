// SPDX-License-Identifier: MIT
// node compare.mjs ONE OTHER: whether two photographs show the same person.
import { open, thresholds } from "orvo-fr";
import { readPicture } from "./read_picture.mjs";

// The largest face among those that are good enough.
function bestFace(path, faces) {
    const good = faces.filter((face) => face.isGood).sort((a, b) => b.side - a.side);
    if (good.length === 0) {
        const why = faces.map((face) => face.reasons.join(", ") || "hardly a face").join("; ");
        throw new Error(path + ": no face is good enough" + (why ? " (" + why + ")" : ""));
    }
    return good[0];
}

// What the score is worth where strangers were measured.
function inWords(score) {
    if (thresholds === null) {
        return "";
    }
    const percent = ({ false_accept_rate: rate }) => 100 * rate + " % of the pairs of strangers";
    const reached = thresholds.at.filter((one) => score >= one.threshold).at(-1);
    return reached ? ": at most " + percent(reached) + " are as alike"
        : ": more than " + percent(thresholds.at[0]) + " are as alike";
}

async function main(paths) {
    if (paths.length !== 2) {
        throw new Error("usage: node compare.mjs ONE OTHER");
    }
    const library = await open();
    const features = [];
    for (const path of paths) {
        const picture = await readPicture(path).catch((error) => {
            throw new Error(path + ": " + error.message);
        });
        const faces = library.faces(picture);
        const face = bestFace(path, faces);
        console.log(path + ": " + faces.length + " face(s), taken: " + Math.round(face.side) + " pixels at " +
            Math.round(face.left) + ", " + Math.round(face.top) + ", quality " + face.quality);
        features.push(face.feature);
    }
    const score = library.distance(...features);
    console.log("score " + score.toFixed(4) + inWords(score));
}

main(process.argv.slice(2)).catch((error) => {
    console.error(error.message);
    process.exitCode = 1;
});
