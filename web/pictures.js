// SPDX-License-Identifier: MIT
// From a file to pixels, however large the picture is.
"use strict";

class SentenceError extends Error {} // whose message is for the visitor

// Pictures of more pixels are made smaller: browsers of phones have no larger canvas.
const MOST_PIXELS = 1 << 24;

const NOT_A_PICTURE = "This file is not a picture that this browser can read. JPEG, PNG and WebP always work.";

// The size that a picture is looked at in.
function workingSize(width, height) {
    const factor = Math.min(1, Math.sqrt(MOST_PIXELS / (width * height)),
        ORVO_MOST_SIDE / Math.max(width, height));
    const side = (length) => Math.max(1, Math.floor(length * factor));
    return factor === 1 ? { width, height } : { width: side(width), height: side(height) };
}

// An image element knows its size before it is decoded.
function imageAt(address) {
    return new Promise((resolve, reject) => {
        const image = new Image();
        image.onload = () => resolve(image);
        image.onerror = () => reject(new SentenceError(NOT_A_PICTURE));
        image.src = address;
    });
}

function canvasOf(width, height) {
    const canvas = document.createElement("canvas");
    canvas.width = width;
    canvas.height = height;
    return canvas;
}

function drawn(source, { width, height }) {
    const canvas = canvasOf(width, height);
    const context = canvas.getContext("2d", { willReadFrequently: true });
    context.imageSmoothingQuality = "high";
    context.drawImage(source, 0, 0, width, height);
    return canvas;
}

// The picture of a file, turned as its EXIF record says. One that need not be reduced has the file's own
// levels: no colours are converted. A larger one is drawn smaller at once, so that its pixels need not all
// be kept.
async function canvasOfFile(file) {
    const address = URL.createObjectURL(file);
    try {
        const image = await imageAt(address);
        const { naturalWidth: width, naturalHeight: height } = image;
        if (width === 0 || height === 0) {
            throw new SentenceError(NOT_A_PICTURE);
        }
        const size = workingSize(width, height);
        if (size.width !== width) {
            return { canvas: drawn(image, size), width, height };
        }
        // A picture that lacks its last bytes is refused there, and drawn as far as it goes by the element.
        const bitmap = await createImageBitmap(file, { premultiplyAlpha: "none", colorSpaceConversion: "none" })
            .catch(() => null);
        const canvas = drawn(bitmap ?? image, size);
        bitmap?.close();
        return { canvas, width, height };
    } finally {
        URL.revokeObjectURL(address);
    }
}

function pixelsOf(canvas) {
    const context = canvas.getContext("2d", { willReadFrequently: true });
    return context.getImageData(0, 0, canvas.width, canvas.height);
}
