// SPDX-License-Identifier: MIT
// node module_time.js [--rounds N] [NAME=VALUE...] MODULE.wasm [[NAME=VALUE...] OTHER.wasm...]
//
// Milliseconds of OrvoFrRun() and of its layers by kind in modules made from face_module.cpp: the least and
// the median of many rounds, in each of which every module runs once, so that a busy machine slows all
// alike. The features of all modules must be the same. A module is given the variables that stand before it:
//
//     node module_time.js face_time.wasm ORVO_FR_PATH=plain face_time.wasm
"use strict";

const fs = require("fs");

const FEATURE = 128;
const KINDS = { // see timing/layer_clock.h
    "OrvoFrRun": 0, "stems": 1, "pointwise": 2, "depthwise": 4, "max pooling": 8, "addition": 16,
    "rectifier": 32, "sampling": 64, "head": 128, "sign": 256,
};

function fail(line) {
    console.error(line);
    process.exit(1);
}

function open({ file, variables }) {
    let memory = null;
    const texts = variables.map(text => Buffer.from(text + "\0"));
    const refuse = () => fail(file + ": the module asked for what no run needs");
    const view = () => new DataView(memory.buffer);
    const system = {
        clock_time_get(clock, precision, to) {
            view().setBigUint64(to, process.hrtime.bigint(), true);
            return 0;
        },
        environ_sizes_get(count, size) {
            view().setUint32(count, texts.length, true);
            view().setUint32(size, texts.reduce((sum, text) => sum + text.length, 0), true);
            return 0;
        },
        environ_get(addresses, at) {
            for (const text of texts) {
                view().setUint32(addresses, at, true);
                new Uint8Array(memory.buffer, at).set(text);
                addresses += 4;
                at += text.length;
            }
            return 0;
        },
        proc_exit: refuse,
    };
    const refusing = new Proxy(system, { get: (known, name) => known[name] || refuse });
    let instance = null;
    try {
        instance = new WebAssembly.Instance(new WebAssembly.Module(fs.readFileSync(file)),
            { env: { emscripten_notify_memory_growth() {} }, wasi_snapshot_preview1: refusing });
    } catch (error) {
        fail(file + ": " + error.message);
    }
    memory = instance.exports.memory;
    instance.exports._initialize();
    if (instance.exports.FaceModuleOpen() !== 0) {
        fail(file + ": the models could not be opened");
    }
    return {
        time: instance.exports.FaceModuleTime,
        feature: () => Buffer.from(memory.buffer, instance.exports.FaceModuleFeature(), 4 * FEATURE)
            .toString("hex"),
    };
}

function median(sorted) {
    return sorted[sorted.length >> 1];
}

const words = process.argv.slice(2);
const rounds = words[0] === "--rounds" ? Number(words.splice(0, 2)[1]) : 300;
const isVariable = word => /^\w+=/.test(word);
const wanted = [];
for (let variables = [], i = 0; i < words.length; ++i) {
    variables.push(words[i]);
    if (!isVariable(words[i])) {
        wanted.push({ file: variables.pop(), variables });
        variables = [];
    }
}
if (wanted.length === 0 || !(rounds >= 1)) {
    fail("usage: node module_time.js [--rounds N] [NAME=VALUE...] MODULE.wasm [...]");
}
const modules = wanted.map(open);
if (modules.some(module => module.feature() !== modules[0].feature())) {
    fail("the modules' features differ");
}
// Until the engine has compiled all of them anew.
for (let i = 0; i < 400; ++i) {
    modules.forEach(module => module.time(0));
}
console.log("milliseconds, least and median of " + rounds + " rounds, node " + process.version);
for (const [name, kinds] of Object.entries(KINDS)) {
    const times = modules.map(() => []);
    for (let i = 0; i < rounds; ++i) {
        modules.forEach((module, at) => times[at].push(module.time(kinds)));
    }
    const cells = times.map(of => {
        of.sort((a, b) => a - b);
        return of[0].toFixed(3).padStart(10) + median(of).toFixed(3).padStart(8);
    });
    console.log(name.padEnd(12) + cells.join(""));
}
