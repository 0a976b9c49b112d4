// SPDX-License-Identifier: MIT
#include "support/child_process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace orvo_test {

std::string AnswerOfAChild(const std::function<std::string()>& answer) {
    int ends[2];
    if (pipe(ends) != 0) {
        return "no pipe";
    }
    const pid_t child = fork();
    if (child == 0) {
        const std::string text = answer();
        std::_Exit(write(ends[1], text.data(), text.size()) > 0 ? 0 : 1);
    }
    close(ends[1]);
    char text[32];
    const ssize_t length = read(ends[0], text, sizeof text);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return length > 0 ? std::string(text, static_cast<size_t>(length))
                      : "ended with status " + std::to_string(status);
}

} // namespace orvo_test
