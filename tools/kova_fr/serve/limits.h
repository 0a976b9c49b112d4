// SPDX-License-Identifier: MIT
//
// What keeps one client from taking all of the service. Any thread may call anything here.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <unordered_map>

namespace kova_cli {

using Clock = std::chrono::steady_clock;

// So many requests a second, and two seconds' worth of them at once. A rate of 0 is no limit.
class RateLimit {
  public:
    RateLimit(double ofAll, double ofAddress) : ofAll_(ofAll), ofAddress_(ofAddress) {}

    bool TakeFromAddress(const std::string& address, Clock::time_point now);
    // For requests that may be answered: those without a token cannot use it up.
    bool TakeFromAll(Clock::time_point now);

  private:
    // How many requests are left; it fills by itself.
    struct Bucket {
        double level;
        Clock::time_point last;
    };

    static bool Take(Bucket& bucket, double rate, Clock::time_point now);
    void ForgetFull(Clock::time_point now);

    std::mutex mutex_;
    double ofAll_;
    double ofAddress_;
    Bucket all_ = {2 * ofAll_, {}};
    std::unordered_map<std::string, Bucket> addresses_;
};

// Connections that are open, in all and of an address.
class ConnectionCount {
  public:
    ConnectionCount(size_t most, size_t mostOfAddress)
        : most_(most), mostOfAddress_(mostOfAddress) {}

    enum class Answer { kEntered, kFull, kFullForAddress };
    Answer Enter(const std::string& address);
    void Leave(const std::string& address);
    size_t Open() const;

  private:
    mutable std::mutex mutex_;
    size_t most_;
    size_t mostOfAddress_;
    size_t open_ = 0;
    std::unordered_map<std::string, size_t> addresses_;
};

// Bytes of request bodies that are held at a time.
class BodyRoom {
  public:
    explicit BodyRoom(size_t most) : left_(most) {}

    bool Take(size_t bytes);
    void GiveBack(size_t bytes);

  private:
    std::mutex mutex_;
    size_t left_;
};

// One at a time, and so many that wait for it.
class Gate {
  public:
    explicit Gate(size_t mostWaiting) : mostWaiting_(mostWaiting) {}

    // False where too many wait already, or where it was not free until then.
    bool Enter(Clock::time_point until);
    void Leave();
    size_t Waiting() const;

  private:
    mutable std::mutex mutex_;
    std::condition_variable isFree_;
    bool isTaken_ = false;
    size_t waiting_ = 0;
    size_t mostWaiting_;
};

} // namespace kova_cli
