// SPDX-License-Identifier: MIT
// The camera's dialog: faces are found in every frame, drawn over the video, and compared with the other
// slot's face until one is taken.
"use strict";

// Frames are looked at in this size, for faces from this side on: a smaller face has too few pixels to be
// recognised, and looking for larger ones takes a quarter of the time.
const LIVE_SIDE = 640, LIVE_SMALLEST = 40;
const LIVE_WORDS_PAUSE = 250; // milliseconds; words that change with every frame cannot be read

const camera = {
    slot: null, // whose face is to be taken
    stream: null, wanted: { facingMode: "user" },
    running: 0, // counts streams, so that nothing goes on with an earlier one
    frame: null, wordsAt: -Infinity,
};

const dialog = document.getElementById("camera");
const video = dialog.querySelector("video");
const liveBoxes = dialog.querySelector(".boxes");
const liveNote = dialog.querySelector(".note");

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

async function openCamera(slot) {
    camera.slot = slot;
    try {
        await startStream();
    } catch (error) {
        if (slot === camera.slot) {
            closeCamera();
        }
        showNote(slot, cameraSentence(error), true);
    }
}

// Opens the wanted camera and shows what it sees. Phones lend one camera at a time.
async function startStream() {
    stopStream();
    const running = ++camera.running;
    const stream = await navigator.mediaDevices.getUserMedia({
        video: { ...camera.wanted, width: { ideal: 1280 }, height: { ideal: 720 } },
    });
    if (running !== camera.running) { // closed or exchanged in the meantime
        stream.getTracks().forEach((track) => track.stop());
        return;
    }
    camera.stream = stream;
    stream.getVideoTracks()[0].addEventListener("ended", () => sayLive("The camera has stopped.", true));
    video.srcObject = stream;
    liveNote.textContent = "";
    liveNote.classList.remove("bad");
    showLiveResult(null);
    if (!dialog.open) {
        dialog.showModal();
    }
    await Promise.all([video.play(), nameTurn()]);
    watch(running);
}

function stopStream() {
    ++camera.running;
    camera.stream?.getTracks().forEach((track) => track.stop());
    camera.stream = null;
}

function closeCamera() {
    stopStream();
    video.srcObject = null;
    if (dialog.open) {
        dialog.close();
    }
}

const facing = () => camera.stream?.getVideoTracks()[0].getSettings().facingMode ?? null;

// The button for another camera, where there is one.
async function nameTurn() {
    const devices = await navigator.mediaDevices.enumerateDevices();
    const cameras = devices.filter((device) => device.kind === "videoinput");
    const turn = document.getElementById("turn");
    turn.hidden = cameras.length < 2;
    turn.textContent = { user: "Use the back camera", environment: "Use the front camera" }[facing()] ??
        "Use another camera";
    // As in a mirror, but for a camera that looks away from the visitor.
    dialog.querySelector(".live").classList.toggle("mirrored", facing() !== "environment");
    return cameras;
}

async function turnCamera() {
    try {
        const now = camera.stream?.getVideoTracks()[0].getSettings() ?? {};
        if (now.facingMode) {
            camera.wanted = { facingMode: now.facingMode === "user" ? "environment" : "user" };
        } else {
            const ids = (await nameTurn()).map((device) => device.deviceId);
            const next = ids[(ids.indexOf(now.deviceId) + 1) % ids.length];
            camera.wanted = { deviceId: { exact: next } };
        }
        await startStream();
    } catch (error) {
        sayLive(cameraSentence(error), true);
    }
}

function sayLive(text, isBad) {
    liveNote.textContent = text;
    liveNote.classList.toggle("bad", isBad);
}

// Looks at frame after frame until the stream is another one.
function watch(running) {
    if (running !== camera.running) {
        return;
    }
    if (video.videoWidth > 0) {
        try {
            lookAtFrame();
        } catch (error) {
            console.error(error);
            sayLive(error.message, true);
        }
    }
    const next = () => watch(running);
    if (video.requestVideoFrameCallback) {
        video.requestVideoFrameCallback(next);
    } else {
        setTimeout(() => requestAnimationFrame(next), 30);
    }
}

function lookAtFrame() {
    const { videoWidth: width, videoHeight: height } = video;
    const scale = Math.min(1, LIVE_SIDE / Math.max(width, height));
    const size = { width: Math.round(width * scale), height: Math.round(height * scale) };
    if (camera.frame?.width !== size.width || camera.frame?.height !== size.height) {
        camera.frame = canvasOf(size.width, size.height);
        liveBoxes.width = size.width;
        liveBoxes.height = size.height;
        const live = dialog.querySelector(".live");
        live.style.aspectRatio = size.width / size.height;
        live.style.width = "min(100%, " + 50 * size.width / size.height + "vh)";
    }
    camera.frame.getContext("2d", { willReadFrequently: true }).drawImage(video, 0, 0, size.width, size.height);
    const begin = performance.now();
    const faces = library.faces(pixelsOf(camera.frame), { smallest: LIVE_SMALLEST, most: 8 });
    const milliseconds = performance.now() - begin;
    const chosen = largestGood(faces);
    drawFaces(liveBoxes.getContext("2d"), faces, chosen, 1, 3);
    if (performance.now() - camera.wordsAt >= LIVE_WORDS_PAUSE) {
        camera.wordsAt = performance.now();
        showLiveWords(faces, chosen, milliseconds);
    }
}

function showLiveWords(faces, chosen, milliseconds) {
    const face = chosen < 0 ? null : faces[chosen];
    sayLive(face === null ? "No face is seen." : qualityWords(face), face !== null && !face.isGood);
    const said = showLiveResult(face, milliseconds);
    announce(face === null || !face.isGood ? liveNote.textContent : said);
}

function showLiveResult(face, milliseconds = 0) {
    const { slot } = camera;
    const other = slot === slots.a ? slots.b : slots.a;
    const pair = slot === slots.a ? [face, other.face] : [other.face, face];
    return showPair(liveResult, library, {
        first: pair[0], second: pair[1],
        missing: other.face === null ? "Take this face, then choose the other one."
            : "The other face is there. Look into the camera.",
        time: "in " + Math.round(milliseconds) + " ms a frame",
    });
}

// The frame as the camera has it becomes the slot's picture.
function takeFrame() {
    if (video.videoWidth === 0 || video.readyState < 2) {
        sayLive("The camera shows nothing yet.", true);
        return;
    }
    try {
        const seen = lookAt(drawn(video, workingSize(video.videoWidth, video.videoHeight)));
        if (seen.faces.length === 0) {
            throw new SentenceError("No face is seen.");
        }
        closeCamera();
        clear(camera.slot);
        showPicture(camera.slot, seen);
    } catch (error) {
        sayLive(error.message, true);
    }
}

function listenToCamera() {
    document.getElementById("take").addEventListener("click", takeFrame);
    document.getElementById("turn").addEventListener("click", turnCamera);
    document.getElementById("close").addEventListener("click", closeCamera);
    dialog.addEventListener("close", () => dialog.open || closeCamera()); // by a key
}
