// SPDX-License-Identifier: MIT
// A file of grey levels or colours as { width, height, data }: PNG and PGM by themselves, JPEG with the
// package jpeg-js.
import { readFile } from "node:fs/promises";
import { inflateSync } from "node:zlib";

const CHANNELS = { 0: 1, 2: 3, 3: 1, 4: 2, 6: 4 }; // by PNG's type of colour

export async function readPicture(path) {
    const bytes = await readFile(path);
    if (bytes.subarray(0, 8).equals(Buffer.from("\x89PNG\r\n\x1a\n", "latin1"))) {
        return readPng(bytes);
    }
    if (bytes.subarray(0, 2).toString("latin1") === "P5") {
        return readPgm(bytes);
    }
    if (bytes[0] === 0xff && bytes[1] === 0xd8) {
        const { default: jpeg } = await import("jpeg-js").catch(() => {
            throw new Error("to read JPEG, install a decoder: npm install jpeg-js");
        });
        return jpeg.decode(bytes, { useTArray: true, maxMemoryUsageInMB: 2048 });
    }
    throw new Error("is neither PNG, nor JPEG, nor binary PGM");
}

function readPgm(bytes) {
    const head = /^P5(?:\s+|#.*\n)*?\s+(\d+)(?:\s+|#.*\n)+(\d+)(?:\s+|#.*\n)+(\d+)\s/.exec(
        bytes.subarray(0, 1000).toString("latin1"));
    if (head === null || Number(head[3]) !== 255) {
        throw new Error("is a PGM without 8-bit levels");
    }
    const [width, height] = head.slice(1, 3).map(Number);
    const data = new Uint8Array(bytes.subarray(head[0].length, head[0].length + width * height));
    if (data.length < width * height) {
        throw new Error("is cut off");
    }
    return { width, height, data };
}

function readPng(bytes) {
    let head = null, palette = null;
    const packed = [];
    for (let at = 8; at + 8 <= bytes.length;) {
        const length = bytes.readUInt32BE(at), kind = bytes.toString("latin1", at + 4, at + 8);
        const body = bytes.subarray(at + 8, at + 8 + length);
        if (kind === "IHDR") {
            head = { width: body.readUInt32BE(0), height: body.readUInt32BE(4), depth: body[8],
                     colour: body[9], interlaced: body[12] !== 0 };
        } else if (kind === "PLTE") {
            palette = body;
        } else if (kind === "IDAT") {
            packed.push(body);
        }
        at += 12 + length;
    }
    if (head === null || head.depth !== 8 || head.interlaced || !(head.colour in CHANNELS)) {
        throw new Error("is a PNG that this example cannot read: it needs 8 bits a channel, not interlaced");
    }
    const { width, height, colour } = head, channels = CHANNELS[colour];
    const rows = inflateSync(Buffer.concat(packed));
    if (rows.length < height * (1 + width * channels)) {
        throw new Error("is cut off");
    }
    const pixels = unfiltered(rows, width * channels, height, channels);
    const of = (count, level) => Uint8Array.from({ length: width * height * count },
        (unused, i) => level(Math.floor(i / count), i % count));
    if (colour === 3) {
        return { width, height, data: of(3, (pixel, channel) => palette[3 * pixels[pixel] + channel]) };
    }
    if (colour === 4) {
        return { width, height, data: of(4, (pixel, channel) => pixels[2 * pixel + (channel === 3 ? 1 : 0)]) };
    }
    return { width, height, data: pixels };
}

// PNG keeps each row as differences from what is left of it, above it, or both.
function unfiltered(rows, stride, height, channels) {
    const pixels = new Uint8Array(stride * height);
    for (let y = 0; y < height; ++y) {
        const filter = rows[y * (stride + 1)];
        for (let x = 0; x < stride; ++x) {
            const at = y * stride + x;
            const left = x < channels ? 0 : pixels[at - channels];
            const above = y === 0 ? 0 : pixels[at - stride];
            const corner = x < channels || y === 0 ? 0 : pixels[at - stride - channels];
            const guess = [0, left, above, (left + above) >> 1, nearest(left, above, corner)][filter];
            pixels[at] = rows[y * (stride + 1) + 1 + x] + guess;
        }
    }
    return pixels;
}

function nearest(left, above, corner) {
    const guess = left + above - corner;
    const [toLeft, toAbove, toCorner] = [left, above, corner].map((level) => Math.abs(guess - level));
    return toLeft <= toAbove && toLeft <= toCorner ? left : toAbove <= toCorner ? above : corner;
}
