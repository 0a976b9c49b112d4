// SPDX-License-Identifier: MIT
#pragma once

#include <httplib.h>

#include <string>

#include "serve/connection.h"
#include "serve/refusal.h"
#include "serve/routes.h"

namespace kova_cli {

// Answers one request of a connection after another. The HTTP library reads a request's first line
// and header fields and writes the answer; sockets, threads, limits, bodies and forms are the
// service's own, so that each has its bound before anything is kept.
class Conversation : private httplib::Server {
  public:
    explicit Conversation(Service& service);

    // Until one side is done.
    void Hold(Connection& connection, const std::string& address);

  private:
    // What is known of the request that is being answered.
    struct State {
        bool isBegun = false; // its first line and header fields are there
        bool isHeadChecked = false;
        bool mustClose = false; // there may be bytes that nobody reads
        FoundRoute found = {};
        std::string allowed; // the methods of its path
        size_t bodyBytes = 0;
        size_t heldBytes = 0; // of the room for bodies
        Clock::time_point whole{};
    };

    bool AnswerOne();
    void AnswerToRequest(const httplib::Request& request, httplib::Response& response);
    int AnswerToExpectation(const httplib::Request& request, httplib::Response& response);
    void CheckHead(const httplib::Request& request);
    void CheckFraming(const httplib::Request& request);
    void CheckClient(const httplib::Request& request) const;
    void CheckBody(const httplib::Request& request);
    std::string ReadBody();
    Answer AnswerOf(const httplib::Request& request);
    void Refuse(const Refusal& refusal, httplib::Response& response);
    void SayWhatWentWrong(httplib::Response& response) const;
    void Finish(httplib::Response& response);
    void Count(const httplib::Request& request, const httplib::Response& response);

    Service& service_;
    Connection* connection_ = nullptr;
    std::string address_;
    State state_;
};

// The text of an answer with a refusal.
std::string RefusalJson(const Refusal& refusal);

} // namespace kova_cli
