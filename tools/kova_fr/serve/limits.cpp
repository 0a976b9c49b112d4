// SPDX-License-Identifier: MIT
#include "serve/limits.h"

#include <algorithm>

namespace kova_cli {
namespace {

constexpr double kBurst = 2; // seconds
// Whoever has that many addresses has more than any limit of an address can hold off.
constexpr size_t kMostAddresses = 4096;

} // namespace

bool RateLimit::Take(Bucket& bucket, double rate, Clock::time_point now) {
    const std::chrono::duration<double> passed = now - bucket.last;
    // What one thread saw a little earlier than another.
    const double seconds = std::max(passed.count(), 0.0);
    bucket.level = std::min(std::max(kBurst * rate, 1.0), bucket.level + seconds * rate);
    bucket.last = std::max(bucket.last, now);
    if (bucket.level < 1) {
        return false;
    }
    bucket.level -= 1;
    return true;
}

// An address that has waited long enough to have everything again need not be remembered.
void RateLimit::ForgetFull(Clock::time_point now) {
    std::erase_if(addresses_, [now](const auto& entry) {
        return now - entry.second.last > std::chrono::duration<double>(kBurst);
    });
    if (addresses_.size() >= kMostAddresses) {
        addresses_.clear();
    }
}

bool RateLimit::TakeFromAddress(const std::string& address, Clock::time_point now) {
    if (ofAddress_ <= 0) {
        return true;
    }
    const std::lock_guard lock(mutex_);
    if (addresses_.size() >= kMostAddresses && !addresses_.contains(address)) {
        ForgetFull(now);
    }
    const Bucket full = {std::max(kBurst * ofAddress_, 1.0), now};
    return Take(addresses_.try_emplace(address, full).first->second, ofAddress_, now);
}

bool RateLimit::TakeFromAll(Clock::time_point now) {
    if (ofAll_ <= 0) {
        return true;
    }
    const std::lock_guard lock(mutex_);
    return Take(all_, ofAll_, now);
}

ConnectionCount::Answer ConnectionCount::Enter(const std::string& address) {
    const std::lock_guard lock(mutex_);
    if (open_ >= most_) {
        return Answer::kFull;
    }
    const auto known = addresses_.find(address);
    if (known != addresses_.end() && known->second >= mostOfAddress_) {
        return Answer::kFullForAddress;
    }
    ++addresses_[address];
    ++open_;
    return Answer::kEntered;
}

void ConnectionCount::Leave(const std::string& address) {
    const std::lock_guard lock(mutex_);
    --open_;
    const auto known = addresses_.find(address);
    if (--known->second == 0) {
        addresses_.erase(known);
    }
}

size_t ConnectionCount::Open() const {
    const std::lock_guard lock(mutex_);
    return open_;
}

bool BodyRoom::Take(size_t bytes) {
    const std::lock_guard lock(mutex_);
    if (bytes > left_) {
        return false;
    }
    left_ -= bytes;
    return true;
}

void BodyRoom::GiveBack(size_t bytes) {
    const std::lock_guard lock(mutex_);
    left_ += bytes;
}

bool Gate::Enter(Clock::time_point until) {
    std::unique_lock lock(mutex_);
    if (isTaken_ && waiting_ >= mostWaiting_) {
        return false;
    }
    ++waiting_;
    const bool isMine = isFree_.wait_until(lock, until, [this] { return !isTaken_; });
    --waiting_;
    isTaken_ = isTaken_ || isMine;
    return isMine;
}

void Gate::Leave() {
    {
        const std::lock_guard lock(mutex_);
        isTaken_ = false;
    }
    isFree_.notify_one();
}

size_t Gate::Waiting() const {
    const std::lock_guard lock(mutex_);
    return waiting_;
}

} // namespace kova_cli
