// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kova_cli {

// The bytes of a Base64 text (RFC 4648, the padding may be missing); none if it is no such text.
std::optional<std::string> DecodeBase64(std::string_view text);

} // namespace kova_cli
