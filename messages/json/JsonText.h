#pragma once

#include <string>
#include <string_view>

namespace gk::messages {

/// Appends `text` as a JSON string with its quotes. The result is valid UTF-8: each byte that
/// belongs to no valid character becomes U+FFFD.
void appendJsonString(std::string& out, std::string_view text);

bool isUtf8(std::string_view text) noexcept;

/// `text` as a JSON string for an error text, shortened when it is long.
std::string quotedText(std::string_view text);

} // namespace gk::messages
