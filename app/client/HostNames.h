#pragma once

#include "app/client/HostClient.h"

#include <boost/json/value.hpp>

#include <optional>
#include <string>
#include <vector>

/// What a host calls things, looked up by the words that people type (`formats::isMeant`).
namespace gk::app {

/// Where the memory keys are: "/api/v1/memory".
std::string keyTarget(const std::string& key);

/// The entry of the key of exactly this name, or nothing.
std::optional<boost::json::value> findKey(HostClient& client, const std::string& name);

/// The entries of all keys that a word means. Raises `UnknownName`, which tells the nearest, when
/// there are none, unless the word is empty. Raises `ClientError`, as all of these do.
std::vector<boost::json::value> keysLike(HostClient& client, const std::string& word);

/// The same for several words, without repetitions; a key's own name means this key alone.
std::vector<boost::json::value> keysNamed(HostClient& client,
                                          const std::vector<std::string>& words);

/// Every event that has been declared or raised.
std::vector<boost::json::value> eventsOf(HostClient& client);

/// The event of exactly this name, or nothing.
std::optional<boost::json::value> findEvent(HostClient& client, const std::string& name);

/// "there is no module, event or key X; did you mean Y?", of a name that is none of them.
std::string missingFact(HostClient& client, const std::string& name);

/// "there is no event X; did you mean Y?", or nothing when the word means one of them.
std::string missingEvent(HostClient& client, const std::string& word);

} // namespace gk::app
