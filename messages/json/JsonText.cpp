#include "messages/json/JsonText.h"

#include "messages/text/Utf8.h"

#include <cstddef>
#include <cstdint>

namespace gk::messages {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

/// Longest text in bytes that an error text repeats in full.
constexpr std::size_t kQuotedLimit = 80;

void appendEscaped(std::string& out, char c) {
  constexpr std::string_view hex = "0123456789abcdef";
  out += '\\';
  switch (c) {
  case '"':
  case '\\':
    out += c;
    return;
  case '\b':
    out += 'b';
    return;
  case '\f':
    out += 'f';
    return;
  case '\n':
    out += 'n';
    return;
  case '\r':
    out += 'r';
    return;
  case '\t':
    out += 't';
    return;
  default:
    out += "u00";
    out += hex[static_cast<unsigned char>(c) >> 4];
    out += hex[static_cast<unsigned char>(c) & 0xF];
  }
}

} // namespace

void appendJsonString(std::string& out, std::string_view text) {
  out += '"';
  for (std::size_t i = 0; i < text.size();) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x20 || byte == '"' || byte == '\\') {
      appendEscaped(out, text[i++]);
    } else if (byte < 0x80) {
      out += text[i++];
    } else if (const std::size_t length = characterLength(text.substr(i)); length != 0) {
      out += text.substr(i, length);
      i += length;
    } else {
      out += kReplacement;
      ++i;
    }
  }
  out += '"';
}

bool isUtf8(std::string_view text) noexcept {
  for (std::size_t i = 0; i < text.size();) {
    const bool isAscii = static_cast<unsigned char>(text[i]) < 0x80;
    const std::size_t length = isAscii ? 1 : characterLength(text.substr(i));
    if (length == 0) {
      return false;
    }
    i += length;
  }
  return true;
}

std::string quotedText(std::string_view text) {
  std::string out;
  if (text.size() <= kQuotedLimit) {
    appendJsonString(out, text);
    return out;
  }
  // Cut at the beginning of a character.
  std::size_t length = kQuotedLimit;
  while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) {
    --length;
  }
  appendJsonString(out, text.substr(0, length));
  out += "...";
  return out;
}

} // namespace gk::messages
