// SPDX-License-Identifier: MIT
// node frame_time.mjs [--rounds N] PACKAGE: milliseconds of what JavaScript does with a picture of 640 x 480 with
// two faces, such as a camera's frame, by the package for npm in that folder: the least and the median of many
// rounds, in each of which everything runs once.
import { resolve } from "node:path";
import { pathToFileURL } from "node:url";

const words = process.argv.slice(2);
const rounds = words[0] === "--rounds" ? Number(words.splice(0, 2)[1]) : 200;
if (words.length !== 1 || !(rounds >= 1)) {
    console.error("usage: node frame_time.mjs [--rounds N] PACKAGE");
    process.exit(1);
}
const part = (name) => import(pathToFileURL(resolve(words[0], name)));
const { open } = await part("node.mjs");
const { readPicture } = await part("examples/read_picture.mjs");

const WIDTH = 640, HEIGHT = 480;
const face = await readPicture(new URL("../samples/portraits/sami-1.png", import.meta.url));

const grey = { width: WIDTH, height: HEIGHT, data: new Uint8Array(WIDTH * HEIGHT).fill(120) };
for (const left of [20, 340]) {
    for (let y = 0; y < face.height; ++y) {
        const row = face.data.subarray(y * face.width, (y + 1) * face.width);
        grey.data.set(row, (100 + y) * WIDTH + left);
    }
}
// As a canvas has it.
const coloured = { ...grey, data: new Uint8ClampedArray(4 * WIDTH * HEIGHT).fill(255) };
grey.data.forEach((level, i) => coloured.data.fill(level, 4 * i, 4 * i + 3));

const library = await open();
const count = library.faces(grey).length;
if (count !== 2) {
    console.error("two faces should have been found, not " + count);
    process.exit(1);
}
const kinds = {
    "find, faces from 20 pixels": () => library.find(grey),
    "find, from 40 (halved)": () => library.find(grey, { smallest: 40 }),
    "find, from 80": () => library.find(grey, { smallest: 80 }),
    "faces, from 40, two features": () => library.faces(grey, { smallest: 40 }),
    "the same of a canvas' pixels": () => library.faces(coloured, { smallest: 40 }),
    "extract": () => library.extract(grey),
};
const times = Object.keys(kinds).map(() => []);
for (let round = 0; round < rounds; ++round) {
    Object.values(kinds).forEach((call, i) => {
        const begin = performance.now();
        call();
        times[i].push(performance.now() - begin);
    });
}
console.log("milliseconds, 640 x 480".padEnd(32) + "least".padStart(8) + "median".padStart(8));
Object.keys(kinds).forEach((kind, i) => {
    const sorted = times[i].sort((a, b) => a - b);
    console.log(kind.padEnd(32) + sorted[0].toFixed(2).padStart(8) + sorted[rounds >> 1].toFixed(2).padStart(8));
});
