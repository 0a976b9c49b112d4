// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace kova_cli {

// The token that clients show: the first line of the file, or without a file the environment
// variable KOVA_FR_TOKEN, which is emptied so that nobody can read it there later. Empty where there
// is neither. Never an argument: everybody on the machine can read those. A Failure where it is too
// short to be safe, or its file can be read by everybody.
std::string TakeToken(const std::string& path);

// Whether a request's Authorization is "Bearer" with that token. The time that it takes does not
// depend on how much of it is right.
bool IsAuthorised(std::string_view authorization, std::string_view token);

} // namespace kova_cli
