#include "formats/run/RunCheck.h"

#include "formats/mcap/Reader.h"
#include "formats/run/RunBlocks.h"

#include <string>

namespace gk::formats {

mcap::Problems checkRun(mcap::Source& source, const mcap::Progress& progress) {
  mcap::Problems problems;
  mcap::Reader reader(source);
  RunBlocks blocks(reader, problems);
  bool isAnnounced = false;
  bool isRun = false;
  while (const std::optional<mcap::Item> item = reader.next()) {
    if (const auto* metadata = std::get_if<mcap::Metadata>(&*item)) {
      isAnnounced = isAnnounced || metadata->name == kRunMetadata;
    } else if (const auto* message = std::get_if<mcap::Message>(&*item);
               message != nullptr && blocks.isBlock(*message)) {
      blocks.begin(*message);
      while (blocks.next()) {
        isRun = true;
      }
    }
    if (progress) {
      progress(reader.progress());
    }
  }
  if (isAnnounced && !isRun) {
    problems.add(0, "nothing can be read of the run that was recorded");
  }
  return problems;
}

} // namespace gk::formats
