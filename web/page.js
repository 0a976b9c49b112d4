// SPDX-License-Identifier: MIT
// The page: pictures go in by a file, by dropping, pasting, or from the camera; the result is shown.
"use strict";

// From which distance a pair counts as the same person: one in a hundred, or in a thousand, pairs of
// strangers reached it where real faces were measured (ORVO_THRESHOLDS of module.js). Null where nobody
// measured the models of this build; then there is a number and no verdict.
const THRESHOLDS = ORVO_THRESHOLDS && { perhaps: measuredFor(0.01), likely: measuredFor(0.001) };

function measuredFor(rate) {
    return ORVO_THRESHOLDS.at.find((one) => Math.abs(one.false_accept_rate - rate) < 1e-9);
}

const MOST_PIXELS = 24e6;
const LIVE_PAUSE = 250; // milliseconds

const slots = {};
let library = null;

const byId = (id) => document.getElementById(id);

class SentenceError extends Error {} // whose message is for the visitor

function makeSlot(name) {
    const root = byId("slot-" + name);
    const slot = {
        root,
        title: root.querySelector("h2").textContent,
        stage: root.querySelector(".stage"),
        canvas: root.querySelector("canvas"),
        message: root.querySelector(".message"),
        face: null,
    };
    const input = root.querySelector("input");
    input.addEventListener("change", () => {
        if (input.files.length > 0) {
            takeFile(slot, input.files[0]);
        }
        input.value = "";
    });
    slot.stage.addEventListener("dragover", (event) => {
        event.preventDefault();
        slot.stage.classList.add("over");
    });
    slot.stage.addEventListener("dragleave", () => slot.stage.classList.remove("over"));
    slot.stage.addEventListener("drop", (event) => {
        event.preventDefault();
        slot.stage.classList.remove("over");
        if (event.dataTransfer.files.length > 0) {
            takeFile(slot, event.dataTransfer.files[0]);
        }
    });
    root.querySelector(".camera").addEventListener("click", () => openCamera(slot));
    root.querySelector(".sample").addEventListener("click", () => takeSample(slot, name));
    slots[name] = slot;
}

// Says what went wrong in the slot; the earlier face stays.
async function guarded(slot, action) {
    slot.message.textContent = "";
    try {
        await action();
    } catch (error) {
        console.error(error);
        slot.message.textContent = error instanceof SentenceError
            ? error.message : "This picture could not be used: " + error.message + ".";
    }
}

function takeFile(slot, file) {
    return guarded(slot, async () => {
        let bitmap;
        try {
            bitmap = await createImageBitmap(file, { premultiplyAlpha: "none", colorSpaceConversion: "none" });
        } catch (error) {
            throw new SentenceError("This file is not a picture that the browser can read.");
        }
        showFace(slot, look(bitmap, null));
        bitmap.close();
    });
}

function takeSample(slot, name) {
    return guarded(slot, async () => {
        const image = new Image();
        image.src = ORVO_SAMPLES[name];
        await image.decode();
        showFace(slot, look(image, null));
    });
}

// The face of a picture, or of a square in the middle of one.
function look(source, square) {
    if (library === null) {
        throw new SentenceError("The library is not ready yet; try again in a moment.");
    }
    const width = square ?? source.width, height = square ?? source.height;
    if (width * height > MOST_PIXELS) {
        throw new SentenceError("This picture has more than 24 megapixels; choose a smaller one.");
    }
    const { smallest } = library;
    if (width < smallest.width || height < smallest.height) {
        throw new SentenceError("This picture is too small: a face needs at least " + smallest.width +
            " x " + smallest.height + " pixels.");
    }
    const canvas = document.createElement("canvas");
    canvas.width = width;
    canvas.height = height;
    const context = canvas.getContext("2d", { willReadFrequently: true });
    const fullWidth = source.videoWidth ?? source.width, fullHeight = source.videoHeight ?? source.height;
    context.drawImage(source, Math.round((width - fullWidth) / 2), Math.round((height - fullHeight) / 2));
    const face = library.extract(context.getImageData(0, 0, width, height));
    if (face === null) {
        throw new SentenceError("This picture shows no structure, as a wall or a covered lens does; " +
            "choose one with a face in it.");
    }
    return face;
}

function showFace(slot, face) {
    slot.face = face;
    slot.stage.classList.add("filled");
    const context = slot.canvas.getContext("2d");
    const picture = context.createImageData(ORVO_FRAME, ORVO_FRAME);
    face.frame.forEach((level, i) => picture.data.set([level, level, level, 255], 4 * i));
    context.putImageData(picture, 0, 0);
    const [left, top, right, bottom] = face.box;
    context.strokeStyle = "#ffb000";
    context.lineWidth = 2;
    context.strokeRect(left, top, right - left, bottom - top);
    slot.canvas.setAttribute("aria-label", slot.title + ": picture with a box around the face at " +
        left + ", " + top + " to " + right + ", " + bottom + " of 256");
    showResult();
}

function verdict(distance) {
    if (THRESHOLDS === null) {
        return "From which distance faces are alike was not measured for these models.";
    }
    if (distance >= THRESHOLDS.likely.threshold) {
        return "Probably the same person";
    }
    return distance >= THRESHOLDS.perhaps.threshold ? "Perhaps the same person" : "Probably different people";
}

// What the words rest on.
function explainThresholds() {
    if (THRESHOLDS === null) {
        return;
    }
    const percent = (share) => Number((100 * share).toPrecision(2)) + " %";
    const words = (one) => percent(one.false_accept_rate) + " of the pairs of strangers (95 % interval " +
        percent(one.false_accepts.interval[0]) + " to " + percent(one.false_accepts.interval[1]) + ")";
    byId("thresholds").textContent =
        "Measured on real faces, " + ORVO_THRESHOLDS.measured_on + ": " + words(THRESHOLDS.perhaps) +
        " reach " + THRESHOLDS.perhaps.threshold.toFixed(4) + ", where \u201cperhaps\u201d and the marked part of " +
        "the bar begin, and " + words(THRESHOLDS.likely) + " reach " + THRESHOLDS.likely.threshold.toFixed(4) +
        ", where \u201cprobably\u201d begins. " + ORVO_THRESHOLDS.warning;
}

function showResult() {
    const faces = [slots.a.face, slots.b.face];
    if (faces.includes(null)) {
        byId("verdict").textContent = "One more face is needed.";
        return;
    }
    const distance = library.distance(faces[0].feature, faces[1].feature);
    const place = (value) => 50 * (Math.min(Math.max(value, -1), 1) + 1) + "%";
    byId("verdict").textContent = verdict(distance);
    byId("distance").textContent = distance.toFixed(3);
    byId("likely").style.left = place(THRESHOLDS?.perhaps.threshold ?? 1);
    byId("needle").style.left = place(distance);
    byId("scale").hidden = false;
    byId("time").textContent =
        "Computed here in " + Math.round(faces[0].milliseconds) + " and " +
        Math.round(faces[1].milliseconds) + " ms.";
}

// The camera.
const camera = { slot: null, stream: null, timer: 0 };

async function openCamera(slot) {
    slot.message.textContent = "";
    camera.slot = slot;
    try {
        camera.stream = await navigator.mediaDevices.getUserMedia({
            video: { facingMode: "user", width: { ideal: 640 }, height: { ideal: 480 } },
        });
    } catch (error) {
        slot.message.textContent = cameraSentence(error);
        return;
    }
    const dialog = byId("camera"), video = dialog.querySelector("video");
    video.srcObject = camera.stream;
    dialog.querySelector(".message").textContent = "";
    dialog.showModal();
    await video.play();
}

function cameraSentence(error) {
    if (!navigator.mediaDevices) {
        return "This page may use a camera only when it is opened over https or from this computer.";
    }
    if (error.name === "NotAllowedError") {
        return "The camera was not allowed; allow it in the browser's settings, or choose a picture.";
    }
    if (error.name === "NotFoundError") {
        return "There is no camera here; choose a picture.";
    }
    return "The camera cannot be used (" + error.name + "); choose a picture.";
}

// The square in the middle of what the camera sees.
function takeFrame() {
    const video = byId("camera").querySelector("video");
    const side = Math.min(video.videoWidth, video.videoHeight);
    const message = byId("camera").querySelector(".message");
    try {
        if (side === 0) {
            throw new SentenceError("The camera shows nothing yet.");
        }
        showFace(camera.slot, look(video, side));
        message.textContent = "";
        return true;
    } catch (error) {
        message.textContent = error.message;
        return false;
    }
}

function setLive(isLive) {
    clearInterval(camera.timer);
    camera.timer = isLive ? setInterval(takeFrame, LIVE_PAUSE) : 0;
    byId("live").setAttribute("aria-pressed", String(isLive));
}

function closeCamera() {
    setLive(false);
    camera.stream?.getTracks().forEach((track) => track.stop());
    camera.stream = null;
    if (byId("camera").open) {
        byId("camera").close();
    }
}

function listen() {
    makeSlot("a");
    makeSlot("b");
    byId("take").addEventListener("click", () => takeFrame() && closeCamera());
    byId("live").addEventListener("click", () => setLive(camera.timer === 0));
    byId("close").addEventListener("click", closeCamera);
    byId("camera").addEventListener("close", closeCamera);
    document.addEventListener("paste", (event) => {
        const file = event.clipboardData.files[0];
        if (file) {
            takeFile(slots.a.face === null ? slots.a : slots.b, file);
        }
    });
}

async function start() {
    listen();
    explainThresholds();
    try {
        const text = atob(ORVO_MODULE);
        library = await orvoOpen(Uint8Array.from(text, (character) => character.charCodeAt(0)));
        document.body.dataset.ready = "yes";
    } catch (error) {
        console.error(error);
        byId("verdict").textContent = typeof WebAssembly === "object"
            ? "The library cannot run here: this browser may lack WebAssembly's vectors. Try a newer one."
            : "This browser has no WebAssembly; try a newer one.";
    }
}

start();
