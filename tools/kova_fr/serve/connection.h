// SPDX-License-Identifier: MIT
#pragma once

#include <httplib.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <string>

#include "serve/limits.h"

namespace kova_cli {

// One client's connection, with bounds that hold however slowly bytes come: what is to be read has
// to keep up a pace, not only to go on. Answers are gathered and sent at once.
class Connection final : public httplib::Stream {
  public:
    // Owns the socket. `stopping` becomes readable when the service ends.
    Connection(int socket, std::string address, int stopping, Clock::duration timeout);
    ~Connection() override;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // True when a request begins; false where none comes in time, or the client or the service is
    // done.
    bool WaitForRequest();

    // What read() gives from now on: so many bytes at most, in a time that goes with their number.
    void Expect(size_t bytes);
    // All of them; false after a failure.
    bool ReadAll(char* to, size_t count);

    enum class Failure { kNone, kTimedOut, kTooLong, kClosed };
    Failure failure() const { return failure_; }
    bool IsStopping() const { return isStopping_; }

    // Sends what was written.
    bool Flush();
    // Tells the client that nothing more comes and takes what it still sends for a moment: a socket
    // that is closed over unread bytes takes the answer from the client.
    void Part();

    bool is_readable() const override;
    bool is_writable() const override { return true; }
    ssize_t read(char* to, size_t count) override;
    ssize_t write(const char* from, size_t count) override;
    void get_remote_ip_and_port(std::string& address, int& port) const override;
    void get_local_ip_and_port(std::string& address, int& port) const override;
    socket_t socket() const override { return 0; } // it is asked only whether it fits a select()

  private:
    void BeginToStop();
    bool IsReady(short event, Clock::time_point until);
    bool Fill(Clock::time_point until);
    Clock::time_point Until(size_t done) const;

    int socket_;
    std::string address_;
    int stopping_;
    Clock::duration timeout_;
    bool isStopping_ = false;
    Clock::time_point stopBy_ = Clock::time_point::max();
    Failure failure_ = Failure::kNone;
    Clock::time_point begin_{}; // of what is expected
    size_t expected_ = 0;       // bytes
    size_t done_ = 0;
    std::array<char, 16384> buffer_;
    size_t bufferBegin_ = 0;
    size_t bufferEnd_ = 0;
    std::string answer_;
};

} // namespace kova_cli
