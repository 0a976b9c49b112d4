// SPDX-License-Identifier: MIT
// The library as JavaScript uses it. `orvoOpen(bytes)` compiles the module and opens the models; the
// object it promises takes pictures and answers faces and features. Nothing here touches a page, a disk
// or the network. orvo_fr.d.ts says what each call takes and gives.
"use strict";

const ORVO_FEATURE = 128, ORVO_FRAME = 256, ORVO_CROP = 96;
const ORVO_LEAST_SIDE = 24, ORVO_MOST_SIDE = 8192, ORVO_MOST_FACES = 64;
// Below this a found face is not worth comparing: it would be like too many others, or not even like
// itself.
const ORVO_LEAST_QUALITY = 30;
// Why a face is not good to be recognised, in the order of the library's bits.
const ORVO_REASONS = [
    "small", "blurred", "dark", "overexposed", "turned", "tilted", "covered", "cut off", "grimacing",
];

const FACE_NUMBERS = 19; // of a face's record, four bytes each
const NO_STRUCTURE = -2, NO_MEMORY = -3, TOO_NARROW = -4; // the module's answers, see orvo_web.cpp

// What the module asks of the outside: diagnostics go to the console, there is no environment, and
// ending the program is an error.
function orvoImports(memory) {
    const text = new TextDecoder();
    return {
        env: { emscripten_notify_memory_growth() {} },
        wasi_snapshot_preview1: {
            environ_sizes_get(count, size) {
                new Uint32Array(memory().buffer, count, 1)[0] = 0;
                new Uint32Array(memory().buffer, size, 1)[0] = 0;
                return 0;
            },
            environ_get: () => 0,
            fd_write(stream, parts, count, written) {
                const numbers = new Uint32Array(memory().buffer, parts, 2 * count);
                let line = "", bytes = 0;
                for (let i = 0; i < count; ++i) {
                    line += text.decode(new Uint8Array(memory().buffer, numbers[2 * i], numbers[2 * i + 1]));
                    bytes += numbers[2 * i + 1];
                }
                console.warn(line);
                new Uint32Array(memory().buffer, written, 1)[0] = bytes;
                return 0;
            },
            fd_close: () => 0,
            fd_seek: () => 70, // streams of text cannot be searched
            proc_exit(status) { throw new Error("the library ended with status " + status); },
        },
    };
}

// How many bytes of a picture make a pixel.
function orvoChannels(picture) {
    const { width, height, data } = picture ?? {};
    const isSide = (side) => Number.isInteger(side) && side >= 1 && side <= ORVO_MOST_SIDE;
    if (!isSide(width) || !isSide(height)) {
        throw new RangeError("a picture needs a width and a height of 1 to " + ORVO_MOST_SIDE +
            " pixels, not " + width + " x " + height);
    }
    if (!(data instanceof Uint8Array || data instanceof Uint8ClampedArray)) {
        throw new TypeError("a picture's data must be a Uint8Array or a Uint8ClampedArray");
    }
    const channels = data.length / (width * height);
    if (channels !== 1 && channels !== 3 && channels !== 4) {
        throw new RangeError("a picture of " + width + " x " + height + " pixels needs 1, 3 or 4 bytes for " +
            "each (grey; red, green, blue; and alpha), not " + data.length + " in all");
    }
    return channels;
}

function orvoWhole(name, value, least, most) {
    if (!Number.isInteger(value) || value < least || value > most) {
        throw new RangeError(name + " must be a whole number, " + least + " to " + most + ", not " + value);
    }
    return value;
}

async function orvoOpen(bytes) {
    let memory = null;
    const { instance } = await WebAssembly.instantiate(bytes, orvoImports(() => memory));
    const module = instance.exports;
    memory = module.memory;
    module._initialize();
    const status = module.OrvoWebInit();
    if (status !== 0) {
        throw new Error("the models could not be opened (status " + status + ")");
    }

    const sizes = module.OrvoWebSmallest();
    const smallest = { width: sizes >>> 16, height: sizes & 0xffff };
    const copy = (Kind, at, count) => new Kind(memory.buffer, at, count).slice();

    // Hands a picture to the module, where it stays until the next one.
    function take(picture) {
        const channels = orvoChannels(picture);
        const { width, height, data } = picture;
        const place = module.OrvoWebPixels(width, height, channels);
        if (place === 0) {
            throw new RangeError("there is not enough memory for a picture of " + width + " x " + height);
        }
        new Uint8Array(memory.buffer, place, data.length).set(data);
        module.OrvoWebTake(width, height, channels);
    }

    function face(number, withFeature) {
        const at = module.OrvoWebFaces() + 4 * FACE_NUMBERS * number;
        const floats = copy(Float32Array, at, FACE_NUMBERS - 2);
        const [quality, reasons] = copy(Int32Array, at + 4 * (FACE_NUMBERS - 2), 2);
        const points = [];
        for (let i = 4; i < 14; i += 2) {
            points.push({ x: floats[i], y: floats[i + 1] });
        }
        const crop = module.OrvoWebUpright(number);
        return {
            left: floats[0], top: floats[1], side: floats[2], score: floats[3], points,
            yaw: floats[14], roll: floats[15], covered: floats[16], quality,
            reasons: ORVO_REASONS.filter((reason, bit) => reasons >> bit & 1),
            isGood: quality >= ORVO_LEAST_QUALITY,
            crop: copy(Uint8Array, crop, ORVO_CROP * ORVO_CROP),
            feature: withFeature
                ? copy(Float32Array, module.OrvoWebFeatures() + 4 * ORVO_FEATURE * number, ORVO_FEATURE) : null,
        };
    }

    function search(picture, options, withFeatures) {
        const side = orvoWhole("smallest", options.smallest ?? 0, 0, 1 << 20);
        const most = orvoWhole("most", options.most ?? ORVO_MOST_FACES, 1, ORVO_MOST_FACES);
        take(picture);
        if (picture.width < ORVO_LEAST_SIDE || picture.height < ORVO_LEAST_SIDE) {
            throw new RangeError("a picture in which faces are looked for needs at least " + ORVO_LEAST_SIDE +
                " x " + ORVO_LEAST_SIDE + " pixels, not " + picture.width + " x " + picture.height);
        }
        const count = module.OrvoWebFind(side, most, withFeatures ? 1 : 0);
        if (count === TOO_NARROW) {
            throw new RangeError("faces" + (side ? " of " + side + " pixels" : "") + " cannot be found in a " +
                "picture of " + picture.width + " x " + picture.height +
                ": look for larger ones, or in parts of it");
        }
        if (count < 0) {
            throw new Error(count === NO_MEMORY ? "there is not enough memory to look for faces"
                : "faces could not be looked for (status " + count + ")");
        }
        return Array.from({ length: count }, (unused, number) => face(number, withFeatures));
    }

    // The faces in a whole picture, best first.
    const find = (picture, options = {}) => search(picture, options, false);
    // The same, each with its feature.
    const faces = (picture, options = {}) => search(picture, options, true);

    // The feature of a picture that one face fills, or a part (left, top, width, height) of it. Null where
    // it shows no structure, as a wall does.
    function extract(picture, part = { left: 0, top: 0, width: picture.width, height: picture.height }) {
        take(picture);
        const failed = module.OrvoWebExtract(part.left, part.top, part.width, part.height);
        if (failed === NO_STRUCTURE) {
            return null;
        }
        if (failed !== 0) {
            throw new RangeError("a face needs at least " + smallest.width + " x " + smallest.height +
                " pixels inside the picture");
        }
        const at = module.OrvoWebWhole();
        const [left, top, right, bottom] = copy(Int32Array, at + 4 * ORVO_FEATURE, 4);
        // From the frame, which is the part stretched to a square, to the picture.
        const across = (x) => part.left + x * part.width / ORVO_FRAME;
        const down = (y) => part.top + y * part.height / ORVO_FRAME;
        return {
            feature: copy(Float32Array, at, ORVO_FEATURE),
            box: { left: across(left), top: down(top), right: across(right), bottom: down(bottom) },
            crop: copy(Uint8Array, at + 4 * ORVO_FEATURE + 16, ORVO_CROP * ORVO_CROP),
        };
    }

    // 1 for identical faces; the larger, the more alike.
    function distance(a, b) {
        for (const feature of [a, b]) {
            if (feature?.length !== ORVO_FEATURE) {
                throw new RangeError("a feature has " + ORVO_FEATURE + " numbers, not " + feature?.length);
            }
        }
        const pair = new Float32Array(memory.buffer, module.OrvoWebPair(), 2 * ORVO_FEATURE);
        pair.set(a, 0);
        pair.set(b, ORVO_FEATURE);
        return module.OrvoWebDistance();
    }

    return { find, faces, extract, distance, smallest };
}
