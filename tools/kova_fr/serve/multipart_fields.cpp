// SPDX-License-Identifier: MIT
//
// Forms as RFC 7578 has them. Every search goes forward, so that the time is that of the body's
// length whatever stands in it.
#include <algorithm>
#include <charconv>

#include "serve/base64.h"
#include "serve/fields.h"
#include "serve/refusal.h"

namespace kova_cli {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr size_t kLongestPartHead = 4096;

[[noreturn]] void FailForm() {
    throw Refusal{400, "the form is damaged or cut short; let your HTTP library write it"};
}

// The name that a part's head gives it; `; name="` also ends that of a file's name.
std::string_view NameOf(std::string_view head) {
    constexpr std::string_view kDisposition = "content-disposition:";
    constexpr std::string_view kName = "name=\"";
    const auto same = [](char a, char b) { return (a | 0x20) == (b | 0x20); };
    const auto line =
        std::search(head.begin(), head.end(), kDisposition.begin(), kDisposition.end(), same);
    std::string_view rest = head.substr(static_cast<size_t>(line - head.begin()));
    rest = rest.substr(0, rest.find(kLineEnd));
    for (size_t at = rest.find(kName); at != std::string_view::npos;
         at = rest.find(kName, at + 1)) {
        const bool isWholeWord = at > 0 && (rest[at - 1] == ' ' || rest[at - 1] == ';');
        const std::string_view value = rest.substr(at + kName.size());
        const size_t end = value.find('"');
        if (isWholeWord && end != std::string_view::npos) {
            return value.substr(0, end);
        }
    }
    FailForm();
}

double NumberOf(std::string_view value) {
    double number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc() || end != value.data() + value.size()) {
        throw Refusal{400,
                      "a field is unknown, or no number where it should be; see /openapi.json"};
    }
    return number;
}

void Take(Fields& fields, std::string_view name, std::string_view value) {
    if (name == "picture" || name == "pictures") {
        AddPicture(fields, std::string(value));
    } else if (name == "feature" || name == "features") {
        // As bytes or as text.
        const std::optional<std::string> decoded =
            value.size() == sizeof(Feature) ? std::string(value) : DecodeBase64(value);
        AddFeatureBytes(fields, decoded.value_or(""));
    } else if (name == "name") {
        SetText(fields, name, std::string(value));
    } else if (name == "crop" && (value == "true" || value == "false")) {
        SetFlag(fields, name, value == "true");
    } else {
        SetNumber(fields, name, NumberOf(value));
    }
}

} // namespace

Fields ParseMultipartFields(std::string_view boundary, std::string_view body) {
    const std::string first = "--" + std::string(boundary);
    const std::string next = "\r\n" + first;
    Fields fields;
    if (!body.starts_with(first)) {
        FailForm();
    }
    std::string_view rest = body.substr(first.size());
    while (!rest.starts_with("--")) {
        if (!rest.starts_with(kLineEnd)) {
            FailForm();
        }
        const size_t headEnd = rest.substr(0, kLongestPartHead).find("\r\n\r\n");
        if (headEnd == std::string_view::npos) {
            FailForm();
        }
        const std::string_view head = rest.substr(0, headEnd + 2);
        rest = rest.substr(headEnd + 4);
        const size_t end = rest.find(next);
        if (end == std::string_view::npos) {
            FailForm();
        }
        Take(fields, NameOf(head), rest.substr(0, end));
        rest = rest.substr(end + next.size());
    }
    return fields;
}

} // namespace kova_cli
