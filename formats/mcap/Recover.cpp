#include "formats/mcap/Recover.h"

#include "formats/mcap/Copier.h"
#include "formats/mcap/Reader.h"

#include <memory>

namespace gk::formats::mcap {

Recovered recover(Source& source, Sink& sink, Compression compression, const Progress& progress,
                  const std::string& apart) {
  Recovered result;
  Reader reader(source);
  // Begun with the first item: only then the program's name is known.
  std::unique_ptr<Copier> copier;
  while (const std::optional<Item> item = reader.next()) {
    if (copier == nullptr) {
      copier = std::make_unique<Copier>(reader, sink, compression, apart);
    }
    result.messages += std::holds_alternative<Message>(*item) ? 1 : 0;
    result.attachments += std::holds_alternative<Attachment>(*item) ? 1 : 0;
    result.metadata += std::holds_alternative<Metadata>(*item) ? 1 : 0;
    std::visit(*copier, *item);
    if (progress) {
      progress(reader.progress());
    }
  }
  if (copier == nullptr) {
    copier = std::make_unique<Copier>(reader, sink, compression, apart);
  }
  copier->finish();
  result.problems = reader.problems();
  result.isCut = reader.isCut();
  return result;
}

} // namespace gk::formats::mcap
