// SPDX-License-Identifier: MIT
// node answers.mjs PACKAGE CALLS.json: makes calls of the package's library, in order, and prints what they
// answer or throw as JSON. A call is { call, arguments }; of an argument { file, width, height } the file's bytes
// are the picture's data. Bytes are answered in base64.
import { readFileSync } from "node:fs";
import { pathToFileURL } from "node:url";

const [entry, callsPath] = process.argv.slice(2);
const { open } = await import(entry.startsWith("/") ? pathToFileURL(entry) : entry);
const library = await open();

function argument(value) {
    if (typeof value?.file === "string") {
        return { ...value, data: new Uint8Array(readFileSync(value.file)) };
    }
    return value;
}

function plain(key, value) {
    return ArrayBuffer.isView(value)
        ? Buffer.from(value.buffer, value.byteOffset, value.byteLength).toString("base64") : value;
}

const answers = JSON.parse(readFileSync(callsPath, "utf8")).map(({ call, arguments: given }) => {
    try {
        return { answer: library[call](...given.map(argument)) };
    } catch (error) {
        return { error: error.constructor.name, message: error.message };
    }
});
console.log(JSON.stringify(answers, plain));
