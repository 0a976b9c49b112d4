// SPDX-License-Identifier: MIT
// The package under Node.
import { readFile } from "node:fs/promises";
import { orvoOpen } from "./library.mjs";

export { thresholds } from "./thresholds.mjs";

export async function open(module = readFile(new URL("./orvo_fr.wasm", import.meta.url))) {
    return orvoOpen(await module);
}
