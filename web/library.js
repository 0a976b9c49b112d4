// SPDX-License-Identifier: MIT
// The library as a page uses it. `orvoOpen(bytes)` compiles the module and opens the models; the object
// it promises takes pictures and answers features. Nothing here touches the page or the network.
"use strict";

const ORVO_FEATURE = 128, ORVO_FRAME = 256, ORVO_CROP = 96;
const NO_STRUCTURE = -2; // of OrvoWebExtract()

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

    // A picture as a canvas gives it (width, height, data: red, green, blue, alpha), of which `part`
    // (left, top, width, height) is the frame; the whole picture without. Null where it shows no
    // structure, as a wall does.
    function extract(picture, part = { left: 0, top: 0, width: picture.width, height: picture.height }) {
        const place = module.OrvoWebPicture(picture.width * picture.height);
        new Uint8Array(memory.buffer, place, picture.data.length).set(picture.data);
        const begin = performance.now();
        const failed = module.OrvoWebExtract(
            picture.width, picture.height, part.left, part.top, part.width, part.height);
        if (failed === NO_STRUCTURE) {
            return null;
        }
        if (failed !== 0) {
            throw new RangeError("a face needs at least " + smallest.width + " x " + smallest.height +
                " pixels inside the picture");
        }
        const milliseconds = performance.now() - begin;
        let at = module.OrvoWebResult();
        const take = (Kind, count) => {
            const values = new Kind(memory.buffer, at, count).slice();
            at += values.byteLength;
            return values;
        };
        return {
            feature: take(Float32Array, ORVO_FEATURE),
            box: Array.from(take(Int32Array, 4)), // left, top, right, bottom in the frame
            frame: take(Uint8Array, ORVO_FRAME * ORVO_FRAME),
            crop: take(Uint8Array, ORVO_CROP * ORVO_CROP),
            milliseconds,
        };
    }

    // 1 for identical faces; the larger, the more alike.
    function distance(a, b) {
        const pair = new Float32Array(memory.buffer, module.OrvoWebPair(), 2 * ORVO_FEATURE);
        pair.set(a, 0);
        pair.set(b, ORVO_FEATURE);
        return module.OrvoWebDistance();
    }

    return { extract, distance, smallest };
}

if (typeof module === "object") {
    module.exports = { orvoOpen };
}
