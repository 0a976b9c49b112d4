// SPDX-License-Identifier: MIT
// What of the service can be tested without a client: limits by a clock of the test's own, threads at
// the gate, what bodies mean, and the description of the routes.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <thread>

#include "openapi_text.h"
#include "serve/base64.h"
#include "serve/fields.h"
#include "serve/limits.h"
#include "serve/refusal.h"
#include "serve/routes.h"
#include "serve/token.h"

namespace kova_cli {
namespace {

using nlohmann::json;
using std::chrono::milliseconds;

TEST(Description, NamesEveryRouteAndNoOther) {
    std::set<std::string> wanted;
    for (const Route& route : Routes()) {
        wanted.insert(std::string(route.method) + " " + route.path);
    }
    const json description = json::parse(kOpenApiText);
    std::set<std::string> named;
    for (const auto& [path, operations] : description["paths"].items()) {
        for (const auto& [method, operation] : operations.items()) {
            std::string upper = method;
            for (char& c : upper) {
                c = static_cast<char>(std::toupper(c));
            }
            named.insert(upper + " " + path);
        }
    }
    EXPECT_EQ(named, wanted);
    EXPECT_GE(named.size(), 11u);
}

TEST(Description, SaysOfEveryRouteWhetherItTakesABodyAndATokenAndHowItFails) {
    const json description = json::parse(kOpenApiText);
    for (const Route& route : Routes()) {
        std::string method = route.method;
        for (char& c : method) {
            c = static_cast<char>(std::tolower(c));
        }
        const json& operation = description["paths"][route.path][method];
        EXPECT_EQ(operation.contains("requestBody"), route.takesBody) << route.path;
        EXPECT_EQ(operation.contains("security"), route.isOpen) << route.path;
        EXPECT_EQ(operation["responses"].contains("401"), !route.isOpen) << route.path;
        EXPECT_EQ(operation["responses"].contains("411"), route.takesBody) << route.path;
        EXPECT_TRUE(operation["responses"].contains("429")) << route.path;
    }
}

TEST(Base64, IsDecodedStrictly) {
    const std::pair<const char*, const char*> vectors[] = {{"", ""},
                                                           {"Zg==", "f"},
                                                           {"Zm8=", "fo"},
                                                           {"Zm9v", "foo"},
                                                           {"Zm9vYg", "foob"},
                                                           {"Zm9vYmE=", "fooba"},
                                                           {"Zm9vYmFy", "foobar"},
                                                           {"+/+/", "\xfb\xff\xbf"}};
    for (const auto& [text, bytes] : vectors) {
        EXPECT_EQ(DecodeBase64(text), bytes) << text;
    }
    for (const char* const wrong :
         {"Z", "Zg=", "Zg===", "=", "Zm9v=", "Zm 9v", "Zm9v\n", "Zh==", "-_-_", "Zg==Zg=="}) {
        EXPECT_EQ(DecodeBase64(wrong), std::nullopt) << wrong;
    }
}

TEST(Tokens, AreComparedWhole) {
    EXPECT_TRUE(IsAuthorised("Bearer abc", "abc"));
    for (const char* const wrong : {"", "Bearer", "Bearer ", "Bearer ab", "Bearer abcd", "abc",
                                    "bearer abc", "Bearer Abc", "Bearer abc "}) {
        EXPECT_FALSE(IsAuthorised(wrong, "abc")) << wrong;
    }
}

TEST(RateLimit, GivesTwoSecondsAtOnceAndThenTheRate) {
    RateLimit limit(0, 3);
    Clock::time_point now = Clock::now();
    const auto taken = [&](const std::string& address) {
        int count = 0;
        while (limit.TakeFromAddress(address, now) && count < 1000) {
            ++count;
        }
        return count;
    };
    EXPECT_EQ(taken("a"), 6);
    EXPECT_EQ(taken("b"), 6);
    now += milliseconds(1000);
    EXPECT_EQ(taken("a"), 3);
    now += milliseconds(100);
    EXPECT_EQ(taken("a"), 0);
    now += std::chrono::hours(1);
    EXPECT_EQ(taken("a"), 6);
    now -= milliseconds(500); // of a thread that looked at its clock earlier
    EXPECT_EQ(taken("a"), 0);
    EXPECT_TRUE(limit.TakeFromAll(now));
}

TEST(RateLimit, OfAllAndWithoutLimit) {
    RateLimit limit(0.1, 0);
    const Clock::time_point now = Clock::now();
    EXPECT_TRUE(limit.TakeFromAll(now));
    EXPECT_FALSE(limit.TakeFromAll(now));
    EXPECT_TRUE(limit.TakeFromAll(now + std::chrono::seconds(11)));
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(limit.TakeFromAddress("a", now));
    }
}

TEST(RateLimit, HoldsWithMoreAddressesThanItRemembers) {
    RateLimit limit(0, 1);
    const Clock::time_point now = Clock::now();
    for (int i = 0; i < 20000; ++i) {
        ASSERT_TRUE(limit.TakeFromAddress(std::to_string(i), now));
    }
    EXPECT_TRUE(limit.TakeFromAddress("19999", now));
    EXPECT_FALSE(limit.TakeFromAddress("19999", now));
}

TEST(ConnectionCount, CountsAllAndThoseOfAnAddress) {
    ConnectionCount count(3, 2);
    using Answer = ConnectionCount::Answer;
    EXPECT_EQ(count.Enter("a"), Answer::kEntered);
    EXPECT_EQ(count.Enter("a"), Answer::kEntered);
    EXPECT_EQ(count.Enter("a"), Answer::kFullForAddress);
    EXPECT_EQ(count.Enter("b"), Answer::kEntered);
    EXPECT_EQ(count.Enter("c"), Answer::kFull);
    EXPECT_EQ(count.Open(), 3u);
    count.Leave("a");
    EXPECT_EQ(count.Enter("c"), Answer::kEntered);
}

TEST(BodyRoom, IsTakenWholeOrNotAtAll) {
    BodyRoom room(10);
    EXPECT_TRUE(room.Take(6));
    EXPECT_FALSE(room.Take(5));
    EXPECT_TRUE(room.Take(4));
    room.GiveBack(6);
    EXPECT_TRUE(room.Take(5));
}

TEST(Gate, LetsOneInAtATime) {
    Gate gate(100);
    int inside = 0; // by the gate alone kept from a race
    std::atomic<int> entered = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int j = 0; j < 200; ++j) {
                if (gate.Enter(Clock::now() + std::chrono::seconds(60))) {
                    EXPECT_EQ(++inside, 1);
                    ++entered;
                    --inside;
                    gate.Leave();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(entered, 8 * 200);
    EXPECT_EQ(gate.Waiting(), 0u);
}

TEST(Gate, TurnsAwayWhoWaitsTooLongAndWhoIsOneTooMany) {
    Gate gate(1);
    ASSERT_TRUE(gate.Enter(Clock::now()));
    EXPECT_FALSE(gate.Enter(Clock::now() + milliseconds(20)));
    std::thread waiting([&gate] {
        EXPECT_TRUE(gate.Enter(Clock::now() + std::chrono::seconds(60)));
        gate.Leave();
    });
    while (gate.Waiting() == 0) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(gate.Enter(Clock::now() + std::chrono::seconds(60)));
    gate.Leave();
    waiting.join();
}

std::string Form(const std::string& name, const std::string& value) {
    return "--b\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value +
           "\r\n--b--\r\n";
}

TEST(Fields, OfAFormAreThoseOfItsParts) {
    const Fields fields = ParseFields(
        "Multipart/Form-Data; charset=x; boundary=\"b\"",
        "--b\r\ncontent-disposition: form-data; filename=\"name=z\"; name=\"picture\"\r\n"
        "Content-Type: image/png\r\n\r\nbytes\r\n--\r\n-b\r\n\r\n--b\r\nContent-Disposition: "
        "form-data; name=\"most\"\r\n\r\n7\r\n--b--");
    ASSERT_EQ(fields.faces.size(), 1u);
    EXPECT_EQ(std::get<std::string>(fields.faces[0]), "bytes\r\n--\r\n-b\r\n");
    EXPECT_EQ(fields.most, 7);
    EXPECT_THROW(ParseFields("multipart/form-data; boundary=b", Form("most", "7x")), Refusal);
    EXPECT_THROW(ParseFields("multipart/form-data; boundary=b", Form("most", "")), Refusal);
    EXPECT_THROW(ParseFields("multipart/form-data; boundary=b", Form("feature", "AAAA")), Refusal);
    EXPECT_THROW(ParseFields("multipart/form-data; boundary=b", Form("colour", "1")), Refusal);
}

TEST(Fields, GivenTwiceAreRefused) {
    EXPECT_EQ(ParseFields("application/json", R"({"name": "a", "top": 1})").name, "a");
    EXPECT_THROW(ParseFields("application/json", R"({"name": "a", "name": "b"})"), Refusal);
    EXPECT_THROW(ParseFields("application/json", R"({"top": 1, "top": 1})"), Refusal);
    EXPECT_THROW(ParseFields("application/json", R"({"crop": true, "crop": true})"), Refusal);
}

// Whatever changes, there are fields or a Refusal, and a sanitizer has nothing to say.
TEST(Fields, OfDamagedBodiesAreReadOrRefused) {
    std::string numbers = "[1";
    for (int i = 1; i < 128; ++i) {
        numbers += ",0";
    }
    const std::string bodies[] = {
        R"({"picture":"Zm9v","name":"a","features":[)" + numbers + R"(],"AAAA"],"crop":false})",
        Form("picture", "foo").substr(0, 60) + Form("name", "a")};
    const std::string types[] = {"application/json", "multipart/form-data; boundary=b"};
    std::mt19937 random(17);
    int read = 0;
    int refused = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string body = bodies[i % 2];
        for (unsigned change = 0; change < 1 + random() % 3; ++change) {
            const size_t at = random() % body.size();
            switch (random() % 3) {
                case 0:
                    body[at] = static_cast<char>(random());
                    break;
                case 1:
                    body.erase(at, random() % 5);
                    break;
                default:
                    body.insert(at, body.substr(random() % body.size(), random() % 9));
            }
            body += body.empty() ? "x" : "";
        }
        try {
            static_cast<void>(ParseFields(types[i % 2], body));
            ++read;
        } catch (const Refusal& refusal) {
            EXPECT_TRUE(refusal.status == 400 || refusal.status == 413);
            EXPECT_EQ(refusal.error.find('\n'), std::string::npos);
            ++refused;
        }
    }
    EXPECT_GT(read, 100);
    EXPECT_GT(refused, 1000);
}

} // namespace
} // namespace kova_cli
