// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

namespace orvo_test {

// What a process of its own answers, for what the library settles once for the life of a process.
// Where it ends without an answer: "ended with status ", and that.
std::string AnswerOfAChild(const std::function<std::string()>& answer);

} // namespace orvo_test
