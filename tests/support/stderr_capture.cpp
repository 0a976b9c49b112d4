// SPDX-License-Identifier: MIT
#include "support/stderr_capture.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace orvo_test {

StderrCapture::StderrCapture() {
    std::fflush(stderr);
    char name[] = "/tmp/orvo_stderr_XXXXXX";
    saved_ = dup(STDERR_FILENO);
    file_ = mkstemp(name);
    if (saved_ < 0 || file_ < 0) {
        std::perror("StderrCapture");
        std::abort();
    }
    unlink(name);
    dup2(file_, STDERR_FILENO);
}

StderrCapture::~StderrCapture() {
    std::fflush(stderr);
    dup2(saved_, STDERR_FILENO);
    close(saved_);
    close(file_);
}

std::string StderrCapture::text() {
    std::fflush(stderr);
    std::string all;
    char chunk[4096];
    off_t at = 0;
    for (ssize_t n; (n = pread(file_, chunk, sizeof chunk, at)) > 0; at += n) {
        all.append(chunk, static_cast<size_t>(n));
    }
    return all;
}

} // namespace orvo_test
