// SPDX-License-Identifier: MIT
// The package in a browser.
import { orvoOpen } from "./library.mjs";

export { thresholds } from "./thresholds.mjs";

async function fetched(address) {
    const response = await fetch(address);
    if (!response.ok) {
        throw new Error("the module could not be fetched: " + address + " (" + response.status + ")");
    }
    return response.arrayBuffer();
}

// Bundlers know this form of an address, and bring the file along.
export async function open(module = fetched(new URL("./orvo_fr.wasm", import.meta.url))) {
    return orvoOpen(await module);
}
