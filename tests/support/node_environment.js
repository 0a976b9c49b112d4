// SPDX-License-Identifier: MIT
// Gives a test program under node the environment that it was started with.
Module["preRun"] = () => Object.assign(ENV, process.env);
// Emscripten's loader would fetch the module by its path, which node does not take for an address.
delete globalThis.fetch;
