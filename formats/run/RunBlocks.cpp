#include "formats/run/RunBlocks.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <variant>

namespace gk::formats {

void RunBlocks::begin(const mcap::Message& block) {
  fIsNameless = false;
  // Where the file is damaged that is told already, and blocks are missing because of it.
  const bool isDamaged = std::exchange(fFileProblems, fFile.problems().count()) < fFileProblems;
  try {
    fReader.begin(block.data, block.sequence, fFile.channel(block.channelId).messageEncoding);
    fIsGapTold = (fIsGapTold || isDamaged) && fReader.isBlind();
  } catch (const messages::FormatError& error) {
    xFail(error);
  }
}

std::optional<RunEntry> RunBlocks::next() {
  std::optional<RunEntry> entry = xRead();
  if (auto* values = entry ? std::get_if<RunValues>(&*entry) : nullptr) {
    *values = xNamed(*values);
  } else if (const auto* key = entry ? std::get_if<RunKey>(&*entry) : nullptr) {
    xName(*key);
  }
  return entry;
}

std::optional<RunEntry> RunBlocks::xRead() {
  try {
    return fReader.next();
  } catch (const messages::FormatError& error) {
    xFail(error);
    return std::nullopt;
  }
}

void RunBlocks::xName(const RunKey& key) {
  fKeys.resize(std::max<std::size_t>(fKeys.size(), key.index + 1));
  fKeys[key.index] = key.name;
  fNamedKeys = std::min<std::size_t>(fNamedKeys, key.index);
  while (this->key(fNamedKeys) != nullptr) {
    ++fNamedKeys;
  }
}

/// Those with names. Mostly all.
RunValues RunBlocks::xNamed(const RunValues& values) {
  if (values.areLost) {
    if (!std::exchange(fIsGapTold, true)) {
      xComplain("blocks are missing, and without them values cannot be read");
    }
    return values;
  }
  if (values.values.empty() || values.values.back().key < fNamedKeys) {
    return values;
  }
  const auto hasName = [this](const RunValue& value) { return key(value.key) != nullptr; };
  if (std::all_of(values.values.begin(), values.values.end(), hasName)) {
    return values;
  }
  if (!std::exchange(fIsNameless, true)) {
    xComplain("values of keys of which the names are lost");
  }
  fNamed.clear();
  std::copy_if(values.values.begin(), values.values.end(), std::back_inserter(fNamed), hasName);
  return {fNamed, values.large};
}

/// What cannot be read of the blocks behind this one is its fault.
void RunBlocks::xFail(const messages::FormatError& error) {
  xComplain(error.what());
  fIsGapTold = true;
}

void RunBlocks::xComplain(const std::string& text) {
  fProblems.add(fFile.itemOffset(), "run log: " + text);
}

} // namespace gk::formats
