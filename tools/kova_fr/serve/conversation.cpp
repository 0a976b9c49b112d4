// SPDX-License-Identifier: MIT
#include "serve/conversation.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "files/failure.h"
#include "gallery/gallery.h"
#include "serve/fields.h"
#include "serve/token.h"
#include "terminal/json_line.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

constexpr char kJson[] = "application/json";
constexpr unsigned kSoon = 1; // seconds

// The part of a Host field before its port.
std::string HostName(const std::string& host) {
    const size_t bracket = host.rfind(']');
    return host.substr(0, host.find(':', bracket == std::string::npos ? 0 : bracket));
}

// By name or number; 127.0.0.1.example.org is somebody else's.
bool IsThisMachine(const std::string& host) {
    return host == "localhost" || host == "[::1]" ||
           (host.starts_with("127.") && host.find_first_not_of("0123456789.") == std::string::npos);
}

std::string Standing(const httplib::Request& request, const char* field) {
    return request.get_header_value(field);
}

} // namespace

std::string RefusalJson(const Refusal& refusal) {
    nlohmann::ordered_json json = {{"error", refusal.error}};
    if (!refusal.reasons.empty()) {
        json["reasons"] = refusal.reasons;
    }
    return JsonLine(json);
}

Conversation::Conversation(Service& service) : service_(service) {
    set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        AnswerToRequest(request, response);
        return HandlerResponse::Handled;
    });
    set_expect_100_continue_handler(
        [this](const httplib::Request& request, httplib::Response& response) {
            return AnswerToExpectation(request, response);
        });
    set_error_handler([this](const httplib::Request&, httplib::Response& response) {
        SayWhatWentWrong(response);
    });
    set_post_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        Finish(response);
        Count(request, response);
    });
}

void Conversation::Hold(Connection& connection, const std::string& address) {
    connection_ = &connection;
    address_ = address;
    bool goesOn = true;
    bool isUnread = false;
    while (goesOn && connection.WaitForRequest()) {
        state_ = {};
        connection.Expect(kHeadBytes);
        goesOn = AnswerOne();
        service_.bodies.GiveBack(state_.heldBytes);
        isUnread = state_.mustClose || !state_.isBegun;
    }
    if (isUnread) {
        connection.Part();
    }
}

// Whether another request may follow.
bool Conversation::AnswerOne() {
    bool isLast = false;
    try {
        const bool isAnswered = process_request(*connection_, connection_->IsStopping(), isLast,
                                                [this](httplib::Request& request) {
                                                    state_.isBegun = true;
                                                    // Answers are small, and parts of them are of no use.
                                                    request.headers.erase("Accept-Encoding");
                                                    request.ranges.clear();
                                                });
        if (!isAnswered && !state_.isBegun &&
            connection_->failure() != Connection::Failure::kClosed) {
            // The library says nothing where not even the first line came.
            httplib::Response response;
            SayWhatWentWrong(response);
            connection_->write_format(
                "HTTP/1.1 %d %s\r\nConnection: close\r\nContent-Type: %s\r\n"
                "Content-Length: %zu\r\n\r\n",
                response.status, "Request Not Taken", kJson, response.body.size());
            connection_->httplib::Stream::write(response.body);
        }
    } catch (const std::exception&) { // no memory; the client may try again
        state_.mustClose = true;
        return false;
    }
    return connection_->Flush() && state_.isBegun && !state_.mustClose && !isLast &&
           !connection_->IsStopping();
}

void Conversation::AnswerToRequest(const httplib::Request& request, httplib::Response& response) {
    try {
        CheckHead(request);
        const Answer answer = AnswerOf(request);
        response.status = 200;
        response.set_content(answer.body, answer.contentType);
    } catch (const Refusal& refusal) {
        Refuse(refusal, response);
    } catch (const GalleryBusy&) {
        Refuse({503, "the gallery is being changed by others; try again in a second", {}, kSoon},
               response);
    } catch (const Failure& failure) {
        std::fprintf(stderr, "kova-fr: %s\n", OneLine(failure.what()).c_str());
        Refuse({500, "the service could not do it; its log on standard error says why"}, response);
    } catch (const std::bad_alloc&) {
        Refuse({503, "there is not enough memory; send a smaller picture", {}, kSoon}, response);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kova-fr: %s\n", OneLine(error.what()).c_str());
        Refuse({500, "the service could not do it; its log on standard error says why"}, response);
    }
}

// A client that asks first is refused before it sends its body.
int Conversation::AnswerToExpectation(const httplib::Request& request,
                                      httplib::Response& response) {
    try {
        CheckHead(request);
        return 100;
    } catch (const Refusal& refusal) {
        Refuse(refusal, response);
        return refusal.status;
    }
}

void Conversation::CheckHead(const httplib::Request& request) {
    if (state_.isHeadChecked) {
        return;
    }
    state_.isHeadChecked = true;
    state_.mustClose = true; // until it is known where the body ends
    if (!service_.rate.TakeFromAddress(address_, Clock::now())) {
        throw Refusal{429, "too many requests from your address; send fewer a second", {}, kSoon};
    }
    CheckFraming(request);
    state_.mustClose = state_.bodyBytes > 0;
    CheckClient(request);
    state_.found = FindRoute(request.method, request.path, state_.allowed);
    if (!service_.rate.TakeFromAll(Clock::now())) {
        throw Refusal{503, "the service has too many requests; try again in a second", {}, kSoon};
    }
    CheckBody(request);
}

// Where the body ends must be beyond doubt, here and for every program on the way.
void Conversation::CheckFraming(const httplib::Request& request) {
    if (request.has_header("Transfer-Encoding")) {
        throw Refusal{411, "the body's length is not said; send Content-Length, not chunks"};
    }
    const size_t lengths = request.get_header_value_count("Content-Length");
    const std::string length = Standing(request, "Content-Length");
    const auto [end, error] =
        std::from_chars(length.data(), length.data() + length.size(), state_.bodyBytes);
    const bool isNumber = error == std::errc() && end == length.data() + length.size();
    if (lengths > 1 || (lengths == 1 && !isNumber)) {
        throw Refusal{400, "Content-Length is not one number; send one"};
    }
}

void Conversation::CheckClient(const httplib::Request& request) const {
    std::string allowed;
    const auto isOpen = [&request](const Route& route) {
        return route.isOpen && request.path == route.path;
    };
    const bool needsNoToken = std::any_of(Routes().begin(), Routes().end(), isOpen);
    const std::string& token = service_.settings.token;
    if (!token.empty()) {
        if (!needsNoToken && !IsAuthorised(Standing(request, "Authorization"), token)) {
            throw Refusal{401, "the token is missing or wrong; send Authorization: Bearer TOKEN"};
        }
        return;
    }
    // Without a token a page in somebody's browser could ask as well: it has an origin, or it came
    // by a name that only pretends to be this machine's.
    if (request.has_header("Origin") || !IsThisMachine(HostName(Standing(request, "Host")))) {
        throw Refusal{403,
                      "without a token only programs on this machine are answered, by the "
                      "name localhost or 127.0.0.1; start the service with a token"};
    }
}

void Conversation::CheckBody(const httplib::Request& request) {
    if (!state_.found.route->takesBody) {
        if (state_.bodyBytes > 0) {
            throw Refusal{400, "this request takes no body; send none"};
        }
        return;
    }
    if (!request.has_header("Content-Length")) {
        throw Refusal{411, "the body's length is not said; send Content-Length"};
    }
    if (state_.bodyBytes > service_.settings.bodyBytes) {
        throw Refusal{413, "the body is larger than " +
                               std::to_string(service_.settings.bodyBytes) +
                               " bytes; send a smaller picture"};
    }
    const std::string encoding = Standing(request, "Content-Encoding");
    if (!encoding.empty() && encoding != "identity") {
        throw Refusal{415, "the body is compressed; send it as it is"};
    }
    const std::string type = Standing(request, "Content-Type");
    if (!IsKnownForm(type)) {
        FailUnknownForm();
    }
    if (!service_.bodies.Take(state_.bodyBytes)) {
        throw Refusal{503, "too many bodies are on their way; try again in a second", {}, kSoon};
    }
    state_.heldBytes = state_.bodyBytes;
}

std::string Conversation::ReadBody() {
    constexpr size_t kPiece = 65536;
    std::string body;
    connection_->Expect(state_.bodyBytes);
    body.reserve(state_.bodyBytes); // pages are taken as bytes come
    while (body.size() < state_.bodyBytes) {
        const size_t done = body.size();
        const size_t piece = std::min(kPiece, state_.bodyBytes - done);
        body.resize(done + piece);
        if (connection_->ReadAll(body.data() + done, piece)) {
            continue;
        }
        if (connection_->failure() == Connection::Failure::kTimedOut) {
            throw Refusal{408, "the body came too slowly; send it at once"};
        }
        throw Refusal{400, "the body ends before its Content-Length; send all of it"};
    }
    state_.mustClose = false;
    return body;
}

Answer Conversation::AnswerOf(const httplib::Request& request) {
    Query query;
    query.name = state_.found.name;
    query.gallery = request.get_param_value("gallery");
    query.contentType = Standing(request, "Content-Type");
    query.body = ReadBody();
    state_.whole = Clock::now();
    return state_.found.route->answer(service_, query);
}

void Conversation::Refuse(const Refusal& refusal, httplib::Response& response) {
    response.status = refusal.status;
    response.set_content(RefusalJson(refusal), kJson);
    if (refusal.retryAfter > 0) {
        response.set_header("Retry-After", std::to_string(refusal.retryAfter));
    }
    if (refusal.status == 401) {
        response.set_header("WWW-Authenticate", "Bearer");
    }
    if (refusal.status == 405) {
        response.set_header("Allow", state_.allowed);
    }
}

// For what the library refuses by itself, before anybody else has seen the request.
void Conversation::SayWhatWentWrong(httplib::Response& response) const {
    if (!response.body.empty()) {
        return;
    }
    const char* error = "the request is no HTTP that is understood here; see /openapi.json";
    if (connection_->failure() == Connection::Failure::kTimedOut) {
        response.status = 408;
        error = "the request came too slowly; send it at once";
    } else if (connection_->failure() == Connection::Failure::kTooLong) {
        response.status = 431;
        error = "the header fields are too long; send fewer";
    } else if (response.status == 414) {
        error = "the path is too long; see /openapi.json for those there are";
    } else if (response.status < 400) {
        response.status = 400;
    }
    response.set_content(RefusalJson({response.status, error}), kJson);
}

void Conversation::Finish(httplib::Response& response) {
    response.headers.erase("Keep-Alive");
    response.headers.erase("Accept-Ranges");
    response.set_header("Cache-Control", "no-store");
    if ((state_.mustClose || !state_.isBegun || connection_->IsStopping()) &&
        !response.has_header("Connection")) {
        response.set_header("Connection", "close");
    }
}

// Neither metrics nor log hold what a client wrote: paths have names of people in them.
void Conversation::Count(const httplib::Request& request, const httplib::Response& response) {
    const Route* const route = state_.found.route;
    const Clock::time_point now = Clock::now();
    const Clock::time_point whole = state_.whole == Clock::time_point{} ? now : state_.whole;
    const double seconds = std::chrono::duration<double>(now - whole).count();
    service_.metrics.CountRequest(route == nullptr ? "none" : route->path, response.status,
                                  seconds);
    if (service_.settings.log) {
        std::fprintf(stderr, "%s %s %s %d %.1f ms\n", address_.c_str(),
                     route == nullptr ? "-" : request.method.c_str(),
                     route == nullptr ? "-" : route->path, response.status, 1e3 * seconds);
    }
}

} // namespace kova_cli
