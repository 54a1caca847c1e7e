#include "formats/run/RunFile.h"

#include <utility>

namespace gk::formats {

RunFile::RunFile(const std::string& path) : fPath(path), fSource(path) {
  try {
    fReader = std::make_unique<mcap::Reader>(fSource);
    fBlocks = std::make_unique<RunBlocks>(*fReader, fBadBlocks);
    fReader->want(
        [](const mcap::Channel& channel) { return isRunEncoding(channel.messageEncoding); });
  } catch (const messages::FormatError& error) {
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
    if (message != nullptr) {
      fBlocks->begin(*message);
      return true;
    }
  }
  return false;
}

std::optional<RunEntry> RunFile::next() {
  std::optional<RunEntry> entry = fBlocks->next();
  while (!entry && xNextBlock()) {
    entry = fBlocks->next();
  }
  return entry;
}

RunClock RunFile::clock() const {
  const auto found = fAbout.find(kClockMember);
  return found != fAbout.end() && found->second == kTurnsClock ? RunClock::Turns : RunClock::None;
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
