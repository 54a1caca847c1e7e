#pragma once

#include <string>
#include <string_view>

namespace gk::formats {

/// Whether a word stands for several names: it has "*", "?" or "[" in it.
bool isPattern(std::string_view word);

/// Whether a name is meant by a word that people have typed: a pattern has to fit the whole name
/// ("*/Temperature/*"), any other word is a part of it.
bool isMeant(const std::string& name, const std::string& word);

} // namespace gk::formats
