#include "runtime/output/ColumnFile.h"

#include "formats/text/Printable.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <limits>
#include <utility>

namespace gk::runtime {

namespace {

using formats::OutputError;
using Type = GK::GKValue::Type;

static_assert(std::endian::native == std::endian::little, "fields are little-endian");

constexpr const char* kTimeField = "time";
/// Bytes of rows that are written at once.
constexpr std::size_t kColumnBuffer = std::size_t{256} * 1024;

std::optional<Type> typeOf(messages::KeyType type) {
  switch (type) {
  case messages::KeyType::Float:
    return Type::Float;
  case messages::KeyType::Int:
    return Type::Int;
  case messages::KeyType::Bool:
    return Type::Bool;
  case messages::KeyType::Text:
  case messages::KeyType::Any:
    break;
  }
  return std::nullopt;
}

/// A string literal of Python. What is not ASCII is UTF-8, as version 3 of the format has it.
std::string literal(const std::string& text) {
  std::string quoted = "'";
  for (const char letter : text) {
    constexpr char firstPrintable = ' ';
    constexpr char rubout = 0x7f;
    if (letter == '\'' || letter == '\\') {
      quoted += '\\';
      quoted += letter;
    } else if ((letter >= 0 && letter < firstPrintable) || letter == rubout) {
      quoted += fmt::format("\\x{:02x}", static_cast<unsigned>(letter));
    } else {
      quoted += letter;
    }
  }
  return quoted + "'";
}

/// Magic string, version and length before the text of a header, which is filled up to a multiple
/// of 64 bytes so that the rows are aligned.
std::string headerOf(std::string text, bool isAscii) {
  constexpr std::size_t alignment = 64;
  constexpr std::size_t magicSize = 8;
  constexpr std::size_t shortSize = 2;
  constexpr std::size_t longSize = 4;
  const bool isShort =
      isAscii && text.size() + alignment <= std::numeric_limits<std::uint16_t>::max();
  const std::size_t sizeSize = isShort ? shortSize : longSize;
  const std::size_t taken = magicSize + sizeSize + text.size() + 1;
  text.append((alignment - taken % alignment) % alignment, ' ');
  text += '\n';
  constexpr char plain = 1;
  constexpr char large = 2;
  constexpr char unicode = 3;
  std::string header = "\x93NUMPY";
  header += isShort ? plain : isAscii ? large : unicode;
  header += '\0';
  for (std::size_t i = 0; i < sizeSize; ++i) {
    constexpr std::size_t bitsOfByte = 8;
    constexpr std::size_t byte = 0xff;
    header += static_cast<char>((text.size() >> (i * bitsOfByte)) & byte);
  }
  return header + text;
}

} // namespace

ColumnFile::ColumnFile(const std::string& path, const formats::OutputFileOptions& options,
                       const std::vector<std::string>& keys, const messages::KeyTypeOf& keyTypeOf)
    : fPath(path), fFile(path, options) {
  if (fFile.hasAppeared()) {
    throw OutputError(OutputError::Kind::Name,
                      "cannot write " + path + ": columns need a regular file");
  }
  for (const std::string& key : keys) {
    const bool isTwice = std::ranges::find(fColumns, key, [](const Column& column) {
                           return column.key;
                         }) != fColumns.end();
    if (key.empty() || key == kTimeField || isTwice) {
      throw OutputError(OutputError::Kind::Name,
                        fmt::format("cannot write {}: {}", path,
                                    key.empty() ? "a key has no name"
                                    : isTwice   ? "there are two columns " + formats::printable(key)
                                                : "\"time\" is the name of the first column"));
    }
    fColumns.push_back({key, typeOf(keyTypeOf(key))});
  }
}

void ColumnFile::add(GK::GKMicros time, const Sample& values) {
  if (fError) {
    return;
  }
  try {
    if (!fHasBegun) {
      xBegin(values);
    }
    constexpr double microsPerSecond = 1e6;
    const double seconds = static_cast<double>(time) / microsPerSecond;
    xAppendBits(&seconds, sizeof seconds);
    auto next = values.begin();
    for (const Column& column : fColumns) {
      const bool isThere = next != values.end() && next->first == column.key;
      xAppend(column, isThere ? &next->second : nullptr, time);
      next += isThere ? 1 : 0;
    }
    ++fRows;
    if (fBuffer.size() >= kColumnBuffer) {
      xFlush();
    }
  } catch (const OutputError& error) {
    fError = error;
    fBuffer.clear();
  }
}

void ColumnFile::commit() {
  if (!fError && !fHasBegun) {
    xBegin({});
  }
  if (fError) {
    throw OutputError(*fError);
  }
  xFlush();
  fFile.writeOver(xHeader());
  fFile.appear();
}

/// Types that are still unknown are those of the first row. What is not there then is taken for a
/// float.
void ColumnFile::xBegin(const Sample& values) {
  for (Column& column : fColumns) {
    if (!column.type) {
      const auto first = std::ranges::find(values, column.key, &Sample::value_type::first);
      column.type = first != values.end() ? first->second.type() : Type::Float;
    }
  }
  fBuffer = xHeader();
  fHasBegun = true;
}

void ColumnFile::xAppend(const Column& column, const GK::GKValue* value, GK::GKMicros time) {
  if (value == nullptr) {
    if (column.type != Type::Float) {
      xRefuse(column, time, "is not there, and an int has no value that says so");
    }
    constexpr float missing = std::numeric_limits<float>::quiet_NaN();
    xAppendBits(&missing, sizeof missing);
    return;
  }
  const Type type = value->type();
  if (type != Type::Float && type != Type::Int && type != Type::Bool) {
    xRefuse(column, time, fmt::format("is no number but: {}", value->typeName()));
  }
  if (type != column.type) {
    xRefuse(column, time, fmt::format("has another type than before: {}", value->typeName()));
  }
  if (type == Type::Float) {
    const float bits = value->toFloat();
    xAppendBits(&bits, sizeof bits);
  } else {
    const std::int32_t bits = type == Type::Int ? value->toInt() : (value->toBool() ? 1 : 0);
    xAppendBits(&bits, sizeof bits);
  }
}

void ColumnFile::xAppendBits(const void* bits, std::size_t size) {
  fBuffer.append(static_cast<const char*>(bits), size);
}

void ColumnFile::xFlush() {
  fFile.write(fBuffer);
  fBuffer.clear();
}

/// Always of the same length, whatever the number of rows.
std::string ColumnFile::xHeader() const {
  std::string fields = fmt::format("('{}', '<f8'), ", kTimeField);
  bool isAscii = true;
  for (const Column& column : fColumns) {
    const char* type = column.type == Type::Float ? "<f4" : "<i4";
    fields += fmt::format("({}, '{}'), ", literal(column.key), type);
    isAscii = isAscii && std::ranges::all_of(column.key, [](char letter) {
                return (static_cast<unsigned char>(letter) & 0x80U) == 0;
              });
  }
  const std::string rows = std::to_string(fRows);
  constexpr std::size_t mostDigits = std::numeric_limits<std::uint64_t>::digits10 + 1;
  return headerOf("{'descr': [" + fields + "], 'fortran_order': False, 'shape': (" + rows +
                      ",), }" + std::string(mostDigits - rows.size(), ' '),
                  isAscii);
}

void ColumnFile::xRefuse(const Column& column, GK::GKMicros time, const std::string& why) const {
  constexpr double microsPerSecond = 1e6;
  throw OutputError(OutputError::Kind::Write,
                    fmt::format("cannot write {}: at {:.3f} s {} {}", fPath,
                                static_cast<double>(time) / microsPerSecond,
                                formats::printable(column.key), why));
}

} // namespace gk::runtime
