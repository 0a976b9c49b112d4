// SPDX-License-Identifier: MIT
// What two faces are to each other: a sentence, a number on a scale, and the voice that says it.
"use strict";

// From which score a pair counts as the same person: one in a hundred, or in a thousand, pairs of strangers
// reached it where real faces were measured (ORVO_THRESHOLDS of module.js). Null where nobody measured the
// models of this build; then there is a number and no verdict.
const THRESHOLDS = ORVO_THRESHOLDS && { perhaps: measuredFor(0.01), likely: measuredFor(0.001) };

function measuredFor(rate) {
    return ORVO_THRESHOLDS.at.find((one) => Math.abs(one.false_accept_rate - rate) < 1e-9);
}

function verdict(score) {
    if (THRESHOLDS === null) {
        return "From which score on faces are alike was not measured for these models.";
    }
    if (score >= THRESHOLDS.likely.threshold) {
        return "Probably the same person";
    }
    return score >= THRESHOLDS.perhaps.threshold ? "Perhaps the same person" : "Probably different people";
}

const percent = (share) => Number((100 * share).toPrecision(2)) + " %";

// What the words rest on.
function explainThresholds() {
    if (THRESHOLDS === null) {
        return;
    }
    const words = (one) => percent(one.false_accept_rate) + " of the pairs of strangers (95 % interval " +
        percent(one.false_accepts.interval[0]) + " to " + percent(one.false_accepts.interval[1]) + ")";
    document.getElementById("thresholds").textContent =
        "Measured on real faces, " + ORVO_THRESHOLDS.measured_on + ": " + words(THRESHOLDS.perhaps) +
        " reach " + THRESHOLDS.perhaps.threshold.toFixed(4) + ", where \u201cperhaps\u201d begins, and " +
        words(THRESHOLDS.likely) + " reach " + THRESHOLDS.likely.threshold.toFixed(4) +
        ", where \u201cprobably\u201d begins. The scale is not even: each third is one verdict. " +
        ORVO_THRESHOLDS.warning;
}

// Where a score stands on the bar, 0 to 1. Each third of the bar is one verdict.
function placeOnBar(score) {
    const marks = THRESHOLDS === null ? [] : [THRESHOLDS.perhaps.threshold, THRESHOLDS.likely.threshold];
    const ends = [-1, ...marks, 1];
    const within = Math.min(Math.max(score, -1), 1);
    const last = Math.min(ends.filter((end) => within >= end).length, ends.length - 1) - 1;
    return (last + (within - ends[last]) / (ends[last + 1] - ends[last])) / (ends.length - 1);
}

// A place for a result, filled from the page's template.
function makeResult(id) {
    const root = document.getElementById(id);
    root.append(document.getElementById("result-parts").content.cloneNode(true));
    const part = (selector) => root.querySelector(selector);
    if (THRESHOLDS === null) {
        part(".bar").classList.add("plain");
    } else {
        const mark = (selector, word, { threshold, false_accept_rate: rate }) => {
            part(selector + " b").textContent = word + " from " + threshold.toFixed(3) + ",";
            part(selector + " span").textContent = "1 in " + Math.round(1 / rate) + " pairs of strangers";
        };
        mark(".mark-perhaps", "perhaps", THRESHOLDS.perhaps);
        mark(".mark-likely", "probably", THRESHOLDS.likely);
    }
    return {
        verdict: part(".verdict"), scale: part(".scale"), bar: part(".bar"), needle: part(".needle"),
        score: part("output"), time: part(".time"),
    };
}

// Shows what two faces are to each other, or a sentence in its place. A face that is not good enough gets
// a number and no verdict. Returns what is to be said.
function showPair(result, library, { first, second, missing, time }) {
    const isPair = first !== null && second !== null;
    result.scale.hidden = !isPair;
    if (!isPair) {
        return result.verdict.textContent = missing;
    }
    const score = library.distance(first.feature, second.feature);
    const poor = [["first", first], ["second", second]].filter(([, face]) => !face.isGood);
    result.verdict.textContent = poor.length === 0 ? verdict(score)
        : "No verdict: " + poor.map(([name, face]) => "the " + name + " face is " + whyNot(face)).join("; ");
    result.bar.classList.toggle("doubtful", poor.length > 0);
    result.score.textContent = score.toFixed(3);
    result.needle.style.left = 100 * placeOnBar(score) + "%";
    result.time.textContent = time;
    return result.verdict.textContent + ", score " + score.toFixed(2);
}

// The voice: screen readers are told what the page says, the newest alone, and no more often than this.
const ANNOUNCE_PAUSE = 2000; // milliseconds

const announcer = { text: "", timer: 0, last: -Infinity };

function announce(text) {
    announcer.text = text;
    if (announcer.timer === 0) {
        const pause = Math.max(0, announcer.last + ANNOUNCE_PAUSE - performance.now());
        announcer.timer = setTimeout(sayNow, pause);
    }
}

// Behind an open dialog nothing is read out, so the dialog has a voice of its own.
function sayNow() {
    announcer.timer = 0;
    const voice = document.getElementById(document.getElementById("camera").open ? "live-status" : "status");
    if (voice.textContent !== announcer.text) {
        voice.textContent = announcer.text;
        announcer.last = performance.now();
    }
}
