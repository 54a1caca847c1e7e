#include "app/recordings/RecordingActions.h"
#include "app/recordings/RecordingCommands.h"
#include "app/session/Complaints.h"
#include "app/session/RecordOptions.h"
#include "formats/files/OutputError.h"
#include "formats/text/InputError.h"
#include "messages/text/FormatError.h"
#include "messages/text/Numbers.h"

#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>

namespace gk::app {

namespace {

namespace mcap = formats::mcap;

struct RecordingOptions {
  std::string file;
  std::string out;
  std::vector<std::string> topics;
  std::string compression = "zstd";
  bool isOverwriting = false;
  std::string to;
  RecordingPart part;
};

/// Errors of all kinds as one line and an exit code.
int guarded(const RecordingOptions& options, const std::function<int()>& work) {
  try {
    return work();
  } catch (const formats::InputError& error) {
    fmt::print(stderr, "{}\n", error.what());
  } catch (const messages::FormatError& error) {
    fmt::print(stderr, "{}: {}\n", options.file, error.what());
  } catch (const formats::OutputError& error) {
    return complainOf(error);
  }
  return kBadInput;
}

int convertAsAsked(const RecordingOptions& options) {
  const mcap::Compression compression = options.compression == "none"
                                            ? mcap::Compression::None
                                            : *mcap::findCompression(options.compression);
  if (options.to.empty()) {
    return convertRecording(options.file, options.out, compression, options.isOverwriting);
  }
  if (options.isOverwriting) {
    complain("--overwrite replaces files; what a bag is made in has to be a new folder");
    return kBadInput;
  }
  return convertToBag(options.file, options.out, compression);
}

} // namespace

void addRecordingCommand(const Command& program) {
  const Command command =
      program.subcommand("recording", "Look into recordings (.mcap), check, mend and convert them");
  auto options = std::make_shared<RecordingOptions>();
  const auto add = [&](const char* name, const char* text, std::function<int()> work) {
    Command one = command.subcommand(name, text);
    one.option("FILE", options->file, "The recording").required().shows("");
    one.does([options, work] { return guarded(*options, work); });
    return one;
  };
  const auto addOut = [&](const Command& one, const char* text) {
    one.option("OUT", options->out, text).required().shows("");
    addOverwriteFlag(one, options->isOverwriting);
  };
  add("info", "Show what a recording holds", [options] { return showRecording(options->file); });
  add("verify", "Check all of a recording; name what is wrong with it",
      [options] { return verifyRecording(options->file); });
  add("cat", "Write its messages as JSON Lines",
      [options] { return printRecording(options->file, options->topics); })
      .option("--topic", options->topics, "Only the messages of this topic")
      .shows("TOPIC")
      .onceEach();
  addOut(add("recover", "Save what can be read of a damaged or cut recording",
             [options] {
               return recoverRecording(options->file, options->out, options->isOverwriting);
             }),
         "The new recording");
  const Command convert = add(
      "convert", "Make a .mcap, .csv or .jsonl file, or a ROS 2 bag, of a recording of any kind",
      [options] { return convertAsAsked(*options); });
  addOut(convert, "The new file; its ending tells the kind");
  convert
      .option("--to", options->to,
              "Make a bag that ros2 bag info and ros2 bag play open; OUT is then a new folder")
      .oneOf({"ros2"})
      .shows("ros2");
  convert.option("--compression", options->compression, "How to compress a .mcap file")
      .oneOf({"zstd", "lz4", "none"})
      .shows("zstd|lz4|none")
      .showsDefault();
  const Command cut =
      add("cut", "Keep a part of a recording: a run from its beginning to the end of the part",
          [options] {
            return cutRecording(options->file, options->out, options->part, options->isOverwriting);
          });
  addOut(cut, "The new file");
  cut.option("--from", options->part.from,
             "Where the part begins, in seconds of the run: viewers' messages before it are left "
             "out, and it is told to be shown from there")
      .within(0.0, messages::kMaxSeconds)
      .shows("SECONDS");
  cut.option("--to", options->part.to, "Where it ends: nothing behind it is kept")
      .within(0.0, messages::kMaxSeconds)
      .shows("SECONDS");
}

} // namespace gk::app
