#pragma once

#include <string>

/// Words of a command line that stand for values and names of a host.
namespace gk::app {

/// The help of what stands for several keys.
inline constexpr const char* kKeyPatterns =
    "Names of keys, parts of names, or patterns with * and ?";

/// "on", "off", "yes" or "no".
bool isBoolWord(const std::string& word);

/// A word as JSON: what is to be a string needs no quotes, nor does what is no JSON; on, off, yes
/// and no are bools where one is wanted. `type` is a parameter's or a key's, empty for any; `name`
/// says whose. Raises `ClientError` for what no value of this type is written as.
std::string jsonOfWord(const std::string& word, const std::string& type, const std::string& name);

} // namespace gk::app
