#include "formats/run/RunFile.h"

#include <algorithm>
#include <utility>

namespace gk::formats {

namespace {

/// More keys than this a run does not have.
constexpr std::uint64_t kMaxKeys = 1 << 20;

} // namespace

RunFile::RunFile(const std::string& path) : fPath(path), fSource(path) {
  try {
    fReader = std::make_unique<mcap::Reader>(fSource);
  } catch (const FormatError& error) {
    throw InputError(path, 0, error.what());
  }
  if (!xNextBlock()) {
    throw InputError(path, 0,
                     std::string("there is no run in it: no readable message of ") + kRunTopic);
  }
}

bool RunFile::xNextBlock() {
  while (const std::optional<mcap::Item> item = fReader->next()) {
    if (const auto* metadata = std::get_if<mcap::Metadata>(&*item)) {
      if (metadata->name == kRunMetadata) {
        fAbout = metadata->values;
      }
      continue;
    }
    const auto* message = std::get_if<mcap::Message>(&*item);
    if (message != nullptr &&
        fReader->channel(message->channelId).messageEncoding == kRunEncoding) {
      fBlock = message->data;
      fEntries = RunLogReader(fBlock);
      fIsNameless = false;
      return true;
    }
  }
  return false;
}

std::optional<RunEntry> RunFile::next() {
  while (true) {
    try {
      if (std::optional<RunEntry> entry = fEntries.next()) {
        xTake(*entry);
        return entry;
      }
    } catch (const FormatError& error) {
      fBadBlocks.add(fReader->itemOffset(), std::string("run log: ") + error.what());
    }
    if (!xNextBlock()) {
      return std::nullopt;
    }
  }
}

void RunFile::xTake(const RunEntry& entry) {
  if (const auto* key = std::get_if<RunKey>(&entry)) {
    if (key->index >= kMaxKeys) {
      throw FormatError("too many keys");
    }
    fKeys.resize(std::max<std::size_t>(fKeys.size(), key->index + 1));
    fKeys[key->index] = key->name;
  } else if (const auto* values = std::get_if<RunValues>(&entry); values && !fIsNameless) {
    const auto isNameless = [this](const auto& value) { return this->key(value.first) == nullptr; };
    fIsNameless = std::any_of(values->values.begin(), values->values.end(), isNameless);
    if (fIsNameless) {
      fBadBlocks.add(fReader->itemOffset(), "run log: values of keys of which the names are lost");
    }
  }
}

RunClock RunFile::clock() const {
  const auto found = fAbout.find(kClockMember);
  return found != fAbout.end() && found->second == kTurnsClock ? RunClock::Turns : RunClock::None;
}

const std::string* RunFile::key(std::uint64_t index) const {
  return index < fKeys.size() && !fKeys[index].empty() ? &fKeys[index] : nullptr;
}

std::vector<std::string> RunFile::problems() const {
  std::vector<std::string> lines;
  for (const mcap::Problem& problem : fReader->problems().kept()) {
    lines.push_back(fPath + ": byte " + std::to_string(problem.offset) + ": " + problem.text);
  }
  for (const mcap::Problem& problem : fBadBlocks.kept()) {
    lines.push_back(fPath + ": byte " + std::to_string(problem.offset) + ": " + problem.text);
  }
  return lines;
}

std::uint64_t RunFile::problemCount() const noexcept {
  return fReader->problems().count() - (fReader->isCut() ? 1 : 0) + fBadBlocks.count();
}

} // namespace gk::formats
