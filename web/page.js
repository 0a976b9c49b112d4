// SPDX-License-Identifier: MIT
// The page: pictures go into two slots by a file, by dropping, pasting, or from the camera; the faces that
// are chosen in them are compared.
"use strict";

const DISPLAY_SIDE = 800; // pixels of the larger side of a picture on the page

const slots = {};
let library = null, pageResult = null, liveResult = null;

function makeSlot(name) {
    const root = document.getElementById("slot-" + name);
    const part = (selector) => root.querySelector(selector);
    const slot = {
        title: part("h2").textContent,
        stage: part(".stage"), view: part(".view"), canvas: part(".picture"), boxes: part(".boxes"),
        picks: part(".picks"), note: part(".note"), whole: part(".whole"),
        seen: null, // what lookAt() made of the picture
        face: null, // the one that is compared
        fillings: 0, // so that a slow picture does not replace a newer one
    };
    const input = part("input");
    input.addEventListener("change", () => {
        if (input.files.length > 0) {
            takeFile(slot, input.files[0]);
        }
        input.value = "";
    });
    slot.stage.addEventListener("dragover", () => slot.stage.classList.add("over"));
    slot.stage.addEventListener("dragleave", () => slot.stage.classList.remove("over"));
    slot.stage.addEventListener("drop", (event) => {
        slot.stage.classList.remove("over");
        if (event.dataTransfer.files.length > 0) {
            takeFile(slot, event.dataTransfer.files[0]);
        }
    });
    part(".camera").addEventListener("click", () => openCamera(slot));
    part(".sample").addEventListener("click", () => takeSample(slot, name));
    slot.whole.addEventListener("click", () => takeWhole(slot));
    slots[name] = slot;
}

function showNote(slot, text, isBad) {
    slot.note.textContent = text;
    slot.note.classList.toggle("bad", isBad);
    if (text !== "") {
        announce(slot.title + ": " + text);
    }
}

// Empties the slot, so that nothing on the page speaks of the picture before. Whoever fills it asks with
// what this returns whether another one has come in the meantime.
function clear(slot) {
    slot.seen = slot.face = null;
    slot.view.hidden = slot.whole.hidden = true;
    slot.stage.classList.remove("filled");
    slot.picks.replaceChildren();
    showNote(slot, "", false);
    showResult();
    const filling = ++slot.fillings;
    return () => filling === slot.fillings;
}

// Does what fills a slot and says what went wrong.
async function guarded(slot, action) {
    const isNewest = clear(slot);
    try {
        await action(isNewest);
    } catch (error) {
        console.error(error);
        if (isNewest()) {
            showNote(slot, error instanceof SentenceError
                ? error.message : "This picture could not be used: " + error.message + ".", true);
        }
    }
}

function takeFile(slot, file) {
    return guarded(slot, async (isNewest) => {
        showNote(slot, "Looking for faces\u2026", false);
        const { canvas, width, height } = await canvasOfFile(file);
        if (isNewest()) {
            showPicture(slot, lookAt(canvas, { width, height }));
        }
    });
}

function takeSample(slot, name) {
    return guarded(slot, async (isNewest) => {
        const image = await imageAt(ORVO_SAMPLES[name]);
        if (isNewest()) {
            showPicture(slot, lookAt(drawn(image, { width: image.naturalWidth, height: image.naturalHeight })));
        }
    });
}

// The faces in a picture; and the picture taken for a face where it may be a crop, since no face was found
// in it or its borders cut one off.
function lookAt(canvas, full = canvas) {
    if (library === null) {
        throw new SentenceError("The library is not ready yet; try again in a moment.");
    }
    const { width, height } = canvas;
    if (width < ORVO_LEAST_SIDE || height < ORVO_LEAST_SIDE) {
        throw new SentenceError("This picture is too small: both sides need " + ORVO_LEAST_SIDE + " pixels.");
    }
    const pixels = pixelsOf(canvas);
    const begin = performance.now();
    const faces = library.faces(pixels);
    const chosen = largestGood(faces);
    // What is blurred or dark does not become good by taking more of it.
    const mayBeCrop = chosen < 0 || (!faces[chosen].isGood && faces[chosen].reasons.includes("cut off"));
    const whole = mayBeCrop ? library.extract(pixels) : null;
    if (faces.length === 0 && whole === null) {
        throw new SentenceError("No face was found: this picture shows no structure, as a wall or a covered " +
            "lens does.");
    }
    return { canvas, full, faces, chosen, whole, milliseconds: performance.now() - begin };
}

function showPicture(slot, seen) {
    const { canvas, full, faces, chosen, whole } = seen;
    const scale = Math.min(1, DISPLAY_SIDE / Math.max(canvas.width, canvas.height));
    const small = drawn(canvas, { width: Math.max(1, Math.round(canvas.width * scale)),
                                  height: Math.max(1, Math.round(canvas.height * scale)) });
    for (const layer of [slot.canvas, slot.boxes]) {
        layer.width = small.width;
        layer.height = small.height;
    }
    slot.canvas.getContext("2d").drawImage(small, 0, 0);
    slot.canvas.setAttribute("aria-label", slot.title + ": a picture of " + full.width + " x " + full.height +
        " pixels with " + (faces.length === 1 ? "one face" : faces.length + " faces"));
    canvas.width = canvas.height = 0; // its memory is needed for the next one
    slot.view.style.aspectRatio = small.width / small.height;
    slot.view.style.width = Math.min(1, small.width / small.height) * 100 + "%";
    slot.view.hidden = false;
    slot.stage.classList.add("filled");
    slot.seen = { ...seen, scale, pictureWidth: small.width / scale, pictureHeight: small.height / scale };
    slot.whole.hidden = whole === null;
    showPicks(slot);
    pick(slot, chosen);
}

// A button over each face, where there is a choice.
function showPicks(slot) {
    const { faces, pictureWidth, pictureHeight } = slot.seen;
    const buttons = faces.length < 2 ? [] : faces.map((face, i) => {
        const button = document.createElement("button");
        button.type = "button";
        button.className = "pick";
        button.dataset.face = i;
        button.setAttribute("aria-label", "Face " + (i + 1) + " of " + faces.length + ". " + qualityWords(face));
        button.style.left = 100 * (face.left + face.side / 2) / pictureWidth + "%";
        button.style.top = 100 * (face.top + face.side / 2) / pictureHeight + "%";
        button.style.width = 100 * face.side / pictureWidth + "%";
        button.style.height = 100 * face.side / pictureHeight + "%";
        button.addEventListener("click", () => pick(slot, i));
        return button;
    });
    // Small ones last, so that a large one does not lie over them.
    buttons.sort((a, b) => parseFloat(b.style.width) - parseFloat(a.style.width));
    slot.picks.replaceChildren(...buttons);
}

// Takes face number `chosen` of the slot's picture; -1 where there is none.
function pick(slot, chosen) {
    const { faces, milliseconds } = slot.seen;
    slot.face = chosen < 0 ? null : { ...faces[chosen], milliseconds };
    slot.whole.setAttribute("aria-pressed", "false");
    for (const button of slot.picks.children) {
        button.setAttribute("aria-pressed", String(button.dataset.face === String(chosen)));
    }
    drawOver(slot, faces, chosen);
    showNote(slot, facesWords(faces, chosen), chosen < 0 || !faces[chosen].isGood);
    showResult();
}

// One face fills the picture: nobody knows better, and no quality is known.
function takeWhole(slot) {
    const { whole, milliseconds } = slot.seen;
    slot.face = { feature: whole.feature, isGood: true, reasons: [], milliseconds };
    slot.whole.setAttribute("aria-pressed", "true");
    drawOver(slot, [{ ...whole.box, isGood: true }], 0);
    showNote(slot, "The whole picture is taken for a face. Whether it is one is not known.", false);
    showResult();
}

function drawOver(slot, faces, chosen) {
    drawFaces(slot.boxes.getContext("2d"), faces, chosen, slot.seen.scale,
        Math.max(2, Math.max(slot.boxes.width, slot.boxes.height) / 150));
}

function showResult() {
    const [first, second] = [slots.a.face, slots.b.face];
    const said = showPair(pageResult, library, {
        first, second,
        missing: first === null && second === null ? "Two faces are needed." : "One more face is needed.",
        time: first && second ? "computed here in " + Math.round(first.milliseconds) + " and " +
            Math.round(second.milliseconds) + " ms" : "",
    });
    if (first !== null && second !== null) {
        announce(said);
    }
}

function listen() {
    pageResult = makeResult("result");
    liveResult = makeResult("live-result");
    makeSlot("a");
    makeSlot("b");
    showResult();
    listenToCamera();
    // A picture that is dropped beside the boxes must not take the page's place.
    for (const kind of ["dragover", "drop"]) {
        document.addEventListener(kind, (event) => {
            event.preventDefault();
            if (!event.target.closest?.(".stage")) {
                event.dataTransfer.dropEffect = "none";
            }
        });
    }
    document.addEventListener("paste", (event) => {
        const file = event.clipboardData.files[0];
        if (file && !dialog.open) {
            takeFile(slots.a.face === null ? slots.a : slots.b, file);
        }
    });
}

async function start() {
    listen();
    explainThresholds();
    document.getElementById("project").href = ORVO_PROJECT;
    try {
        const text = atob(ORVO_MODULE);
        library = await orvoOpen(Uint8Array.from(text, (character) => character.charCodeAt(0)));
        document.body.dataset.ready = "yes";
    } catch (error) {
        console.error(error);
        pageResult.verdict.textContent = typeof WebAssembly === "object"
            ? "The library cannot run here: this browser may lack WebAssembly's vectors. Try a newer one."
            : "This browser has no WebAssembly; try a newer one.";
    }
}

start();
