#include "app/Commands.h"
#include "app/RecordingActions.h"
#include "formats/FormatError.h"
#include "formats/InputError.h"
#include "formats/mcap/Sink.h"
#include "runtime/Outlet.h"

#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>

namespace gk::app {

namespace {

struct RecordingOptions {
  std::string file;
  std::string out;
  std::vector<std::string> topics;
  std::string compression = "zstd";
};

/// Errors of all kinds as one line and an exit code.
int guarded(const RecordingOptions& options, const std::function<int()>& work) {
  try {
    return work();
  } catch (const formats::InputError& error) {
    fmt::print(stderr, "{}\n", error.what());
  } catch (const formats::FormatError& error) {
    fmt::print(stderr, "{}:1: {}\n", options.file, error.what());
  } catch (const formats::mcap::WriteError& error) {
    fmt::print(stderr, "gk: {}\n", error.what());
  } catch (const runtime::OutputError& error) {
    fmt::print(stderr, "gk: {}\n", error.what());
  }
  return kBadInput;
}

} // namespace

void addRecordingCommand(CLI::App& app, Action& action) {
  CLI::App* command =
      app.add_subcommand("recording", "Look into recordings (.mcap), check, mend and convert them");
  command->require_subcommand(1);
  auto options = std::make_shared<RecordingOptions>();
  const auto add = [&](const char* name, const char* text, std::function<int()> work) {
    CLI::App* one = command->add_subcommand(name, text);
    one->add_option("FILE", options->file, "The recording")->required()->type_name("");
    one->callback([&action, options, work = std::move(work)] {
      action = [options, work] { return guarded(*options, work); };
    });
    return one;
  };
  const auto addOut = [&](CLI::App* one, const char* text) {
    one->add_option("OUT", options->out, text)->required()->type_name("");
  };
  add("info", "Show what a recording holds", [options] { return showRecording(options->file); });
  add("verify", "Check all of a recording; name what is wrong with it",
      [options] { return verifyRecording(options->file); });
  add("cat", "Write its messages as JSON Lines",
      [options] { return printRecording(options->file, options->topics); })
      ->add_option("--topic", options->topics, "Only the messages of this topic")
      ->type_name("TOPIC")
      ->allow_extra_args(false);
  addOut(add("recover", "Save what can be read of a damaged or cut recording",
             [options] { return recoverRecording(options->file, options->out); }),
         "The new recording");
  CLI::App* convert =
      add("convert", "Make a .mcap, .csv or .jsonl file of a recording of any kind", [options] {
        return convertRecording(options->file, options->out,
                                options->compression == "none"
                                    ? formats::mcap::Compression::None
                                    : *formats::mcap::findCompression(options->compression));
      });
  addOut(convert, "The new file; its ending tells the kind");
  convert->add_option("--compression", options->compression, "How to compress a .mcap file")
      ->check(CLI::IsMember({"zstd", "lz4", "none"}).description(""))
      ->type_name("zstd|lz4|none")
      ->capture_default_str();
}

} // namespace gk::app
