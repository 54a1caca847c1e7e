#include "formats/run/RunCheck.h"

#include "formats/mcap/Reader.h"
#include "formats/run/RunLog.h"
#include "formats/text/FormatError.h"

#include <cstdint>
#include <set>
#include <string>

namespace gk::formats {

namespace {

/// Reads a run block by block.
class RunCheck {
public:
  explicit RunCheck(mcap::Problems& problems) : fProblems(problems) {}

  void take(std::string_view block, std::uint64_t offset) {
    RunLogReader entries(block);
    try {
      while (const std::optional<RunEntry> entry = entries.next()) {
        fIsRun = true;
        xTake(*entry);
      }
    } catch (const FormatError& error) {
      fProblems.add(offset, std::string("run log: ") + error.what());
    }
  }

  bool isRun() const noexcept { return fIsRun; }

private:
  void xTake(const RunEntry& entry) {
    if (const auto* key = std::get_if<RunKey>(&entry)) {
      fKeys.insert(key->index);
    } else if (const auto* values = std::get_if<RunValues>(&entry)) {
      for (const auto& [index, value] : values->values) {
        if (!fKeys.contains(index)) {
          throw FormatError("a value of key " + std::to_string(index) + ", which has no name");
        }
      }
    }
  }

  mcap::Problems& fProblems;
  std::set<std::uint64_t> fKeys;
  bool fIsRun = false;
};

} // namespace

mcap::Problems checkRun(mcap::Source& source, const mcap::Progress& progress) {
  mcap::Problems problems;
  mcap::Reader reader(source);
  RunCheck check(problems);
  bool isAnnounced = false;
  while (const std::optional<mcap::Item> item = reader.next()) {
    if (const auto* metadata = std::get_if<mcap::Metadata>(&*item)) {
      isAnnounced = isAnnounced || metadata->name == kRunMetadata;
    } else if (const auto* message = std::get_if<mcap::Message>(&*item);
               message != nullptr &&
               reader.channel(message->channelId).messageEncoding == kRunEncoding) {
      check.take(message->data, reader.itemOffset());
    }
    if (progress) {
      progress(reader.progress());
    }
  }
  if (isAnnounced && !check.isRun()) {
    problems.add(0, "nothing can be read of the run that was recorded");
  }
  return problems;
}

} // namespace gk::formats
