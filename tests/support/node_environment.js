// SPDX-License-Identifier: MIT
// Gives a test program under node the environment that it was started with, where it asks for any.
Module["preRun"] = () => typeof ENV === "undefined" || Object.assign(ENV, process.env);
// Emscripten's loader would fetch the module by its path, which node does not take for an address.
delete globalThis.fetch;
