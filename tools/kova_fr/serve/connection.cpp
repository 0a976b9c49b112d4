// SPDX-License-Identifier: MIT
#include "serve/connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kova_cli {
namespace {

constexpr double kLeastPace = 65536; // bytes a second, after the timeout
constexpr std::chrono::milliseconds kParting{1000};
constexpr size_t kPartingBytes = size_t{1} << 20;

int Milliseconds(Clock::duration time) {
    const auto count = std::chrono::ceil<std::chrono::milliseconds>(time).count();
    return static_cast<int>(std::clamp<int64_t>(count, 0, 1'000'000));
}

Clock::duration TimeOf(size_t bytes) {
    return std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(static_cast<double>(bytes) / kLeastPace));
}

} // namespace

Connection::Connection(int socket, std::string address, int stopping, Clock::duration timeout)
    : socket_(socket), address_(std::move(address)), stopping_(stopping), timeout_(timeout) {}

Connection::~Connection() { close(socket_); }

// Once the service is about to end nobody waits longer than the timeout from then on.
bool Connection::IsReady(short event, Clock::time_point until) {
    while (true) {
        pollfd waits[2] = {{socket_, event, 0}, {isStopping_ ? -1 : stopping_, POLLIN, 0}};
        const int count = poll(waits, 2, Milliseconds(until - Clock::now()));
        if (count < 0 && errno != EINTR) {
            return false;
        }
        if (count > 0 && waits[0].revents != 0) {
            return true;
        }
        if (count > 0 && waits[1].revents != 0) {
            BeginToStop();
            until = std::min(until, stopBy_);
        }
        if (Clock::now() >= until) {
            return false;
        }
    }
}

void Connection::BeginToStop() {
    if (!isStopping_) {
        isStopping_ = true;
        stopBy_ = Clock::now() + timeout_;
    }
}

bool Connection::WaitForRequest() {
    if (bufferBegin_ < bufferEnd_) {
        return true;
    }
    pollfd waits[2] = {{socket_, POLLIN, 0}, {stopping_, POLLIN, 0}};
    int count = -1;
    const Clock::time_point until = Clock::now() + timeout_;
    do {
        count = poll(waits, 2, Milliseconds(until - Clock::now()));
    } while (count < 0 && errno == EINTR);
    // A request that has come is answered, also where the service is to end.
    if (waits[1].revents != 0) {
        BeginToStop();
    }
    failure_ = Failure::kNone;
    return count > 0 && (waits[0].revents & POLLIN) != 0;
}

void Connection::Expect(size_t bytes) {
    begin_ = Clock::now();
    expected_ = bytes;
    done_ = 0;
}

Clock::time_point Connection::Until(size_t done) const {
    return std::min(begin_ + timeout_ + TimeOf(done), stopBy_);
}

bool Connection::Fill(Clock::time_point until) {
    while (true) {
        const ssize_t count = recv(socket_, buffer_.data(), buffer_.size(), MSG_DONTWAIT);
        if (count > 0) {
            bufferBegin_ = 0;
            bufferEnd_ = static_cast<size_t>(count);
            return true;
        }
        if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
            failure_ = Failure::kClosed;
            return false;
        }
        if (!IsReady(POLLIN, until)) {
            failure_ = Failure::kTimedOut;
            return false;
        }
    }
}

ssize_t Connection::read(char* to, size_t count) {
    if (failure_ != Failure::kNone) {
        return -1;
    }
    if (done_ >= expected_) {
        failure_ = Failure::kTooLong;
        return -1;
    }
    if (Clock::now() >= Until(done_)) {
        failure_ = Failure::kTimedOut;
        return -1;
    }
    if (bufferBegin_ == bufferEnd_ && !Fill(Until(done_))) {
        return failure_ == Failure::kClosed ? 0 : -1;
    }
    count = std::min({count, bufferEnd_ - bufferBegin_, expected_ - done_});
    std::memcpy(to, buffer_.data() + bufferBegin_, count);
    bufferBegin_ += count;
    done_ += count;
    return static_cast<ssize_t>(count);
}

bool Connection::ReadAll(char* to, size_t count) {
    while (count > 0) {
        const ssize_t got = read(to, count);
        if (got <= 0) {
            return false;
        }
        to += got;
        count -= static_cast<size_t>(got);
    }
    return true;
}

ssize_t Connection::write(const char* from, size_t count) {
    answer_.append(from, count);
    return static_cast<ssize_t>(count);
}

bool Connection::Flush() {
    size_t done = 0;
    begin_ = Clock::now();
    while (done < answer_.size()) {
        const ssize_t count = send(socket_, answer_.data() + done, answer_.size() - done,
                                   MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count > 0) {
            done += static_cast<size_t>(count);
        } else if ((errno != EAGAIN && errno != EINTR) || Clock::now() >= Until(done) ||
                   !IsReady(POLLOUT, Until(done))) {
            failure_ = Failure::kClosed;
            break;
        }
    }
    const bool isSent = done == answer_.size();
    answer_.clear();
    return isSent;
}

void Connection::Part() {
    shutdown(socket_, SHUT_WR);
    const Clock::time_point until = Clock::now() + kParting;
    size_t taken = bufferEnd_ - bufferBegin_;
    while (taken < kPartingBytes && Clock::now() < until && IsReady(POLLIN, until)) {
        const ssize_t count = recv(socket_, buffer_.data(), buffer_.size(), MSG_DONTWAIT);
        if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
            return;
        }
        taken += count > 0 ? static_cast<size_t>(count) : 0;
    }
}

bool Connection::is_readable() const { return bufferBegin_ < bufferEnd_; }

void Connection::get_remote_ip_and_port(std::string& address, int& port) const {
    address = address_;
    port = 0;
}

void Connection::get_local_ip_and_port(std::string& address, int& port) const {
    address.clear();
    port = 0;
}

} // namespace kova_cli
