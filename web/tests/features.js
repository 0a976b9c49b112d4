// SPDX-License-Identifier: MIT
// node features.js MODULE.wasm FRAMES FEATURES: the features of 256 x 256 frames of grey levels, one
// behind the other, as 128 floats each.
"use strict";
const fs = require("fs");
const path = require("path");
const { orvoOpen } = require(path.join(__dirname, "..", "library.js"));

const PIXELS = 256 * 256;
const [modulePath, framesPath, featuresPath] = process.argv.slice(2);

async function main() {
    const library = await orvoOpen(fs.readFileSync(modulePath));
    const frames = fs.readFileSync(framesPath);
    const features = [];
    for (let at = 0; at + PIXELS <= frames.length; at += PIXELS) {
        const data = new Uint8ClampedArray(4 * PIXELS).fill(255);
        for (let i = 0; i < PIXELS; ++i) {
            data.fill(frames[at + i], 4 * i, 4 * i + 3);
        }
        const { feature } = library.extract({ width: 256, height: 256, data });
        features.push(Buffer.from(feature.buffer));
    }
    fs.writeFileSync(featuresPath, Buffer.concat(features));
}

main().catch((error) => {
    console.error(error);
    process.exit(1);
});
