// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "soak/soak.h"

namespace orvo_soak {

inline constexpr int kThreads = 8;

// The first thing that goes wrong in any thread.
class Complaint {
  public:
    void Check(bool ok, const char* what) {
        if (!ok) {
            const std::lock_guard lock(mutex_);
            if (text_.empty()) {
                text_ = what;
            }
        }
    }
    std::string text() {
        const std::lock_guard lock(mutex_);
        return text_;
    }

  private:
    std::mutex mutex_;
    std::string text_;
};

// Runs the body in every thread with the thread's number. All start at one moment.
template <typename Body>
void RunThreads(const Body& body) {
    std::atomic<int> waiting = kThreads;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&waiting, &body, i] {
            --waiting;
            while (waiting != 0) {
                std::this_thread::yield();
            }
            body(i);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

} // namespace orvo_soak
