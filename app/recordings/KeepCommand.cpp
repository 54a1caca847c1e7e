#include "app/client/HostClient.h"
#include "app/recordings/DiffInput.h"
#include "app/recordings/RecordingCommands.h"
#include "app/session/Complaints.h"
#include "app/session/RecordOptions.h"
#include "formats/compare/Comparison.h"
#include "formats/files/OutputFile.h"
#include "formats/text/InputError.h"
#include "messages/json/JsonText.h"
#include "messages/text/FormatError.h"
#include "messages/text/Numbers.h"

#include <fmt/format.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace gk::app {

namespace {

struct KeepOptions {
  ClientOptions client;
  /// SECONDS and FILE, or FILE alone.
  std::vector<std::string> words;
  bool isOverwriting = false;
};

/// What a replay of a recording makes of its events.
struct Repeated {
  std::uint64_t events = 0;
  std::uint64_t missing = 0;
};

/// Ticks of a replay lie elsewhere than those of the host did: by less than one.
constexpr GK::GKMicros kTick = 20'000;

Repeated repeat(const std::string& file) {
  formats::ReportedChoice choice;
  formats::ValuePool pool;
  formats::ReportedRun told(pool, choice);
  formats::ReportedRun repeated(pool, choice);
  readReported(file, DiffInput::Run, told);
  runReported(file, {}, repeated);
  const formats::Comparison comparison(told, repeated, {0, kTick});
  Repeated result;
  for (const formats::Comparison::Name* name : comparison.names()) {
    result.events += name->valuesA;
    result.missing += name->counts.missing + name->counts.changed;
  }
  return result;
}

/// What is wrong with the words; empty for nothing.
std::string checkWords(const std::vector<std::string>& words) {
  if (words.size() > 2) {
    return "takes SECONDS and FILE, no more: " + words[2];
  }
  if (std::string wrong = checkRecordingName(words.back()); !wrong.empty()) {
    return wrong;
  }
  const std::optional<double> seconds =
      words.size() == 2 ? messages::parseDouble(words.front()) : std::optional(1.0);
  return seconds && *seconds > 0 && messages::toMicros(*seconds)
             ? std::string()
             : "SECONDS: takes a number above 0, not " + words.front();
}

int keep(const KeepOptions& options) {
  const std::string& file = options.words.back();
  formats::OutputFile out(file, {{}, !options.isOverwriting});
  const std::string bytes =
      HostClient(options.client)
          .post("/api/v1/past/keep",
                options.words.size() == 2
                    ? fmt::format(R"({{"seconds":{}}})",
                                  messages::doubleText(*messages::parseDouble(options.words[0])))
                    : "{}");
  out.write(bytes);
  out.appear();
  const Repeated repeated = repeat(file);
  if (options.client.isJson) {
    std::string name;
    messages::appendJsonString(name, file);
    fmt::print("{{\"file\":{},\"bytes\":{},\"events\":{},\"notRepeated\":{}}}\n", name,
               bytes.size(), repeated.events, repeated.missing);
    return kSuccess;
  }
  fmt::print(stderr, "kept {}: {} events, {} bytes\n", file, repeated.events, bytes.size());
  if (repeated.missing > 0) {
    complain(
        fmt::format("a replay does not repeat {} of these events: what the modules knew before "
                    "is not in the recording",
                    repeated.missing));
  }
  return kSuccess;
}

int keepPast(const KeepOptions& options) {
  if (const std::string wrong = checkWords(options.words); !wrong.empty()) {
    complain(wrong);
    return kBadInput;
  }
  try {
    return runClient([&] { return keep(options); });
  } catch (const formats::OutputError& error) {
    return complainOf(error);
  } catch (const formats::InputError& error) {
    fmt::print(stderr, "{}\n", error.what());
    return kFailure;
  } catch (const messages::FormatError& error) {
    complain(error.what());
    return kFailure;
  }
}

} // namespace

void addKeepCommand(const Command& program) {
  const Command command = program.subcommand(
      "keep", "Keep what a running host did in the last minutes, as a recording");
  auto options = std::make_shared<KeepOptions>();
  command
      .option("WORDS", options->words,
              "How many seconds, all that the host still has without; and the recording (.mcap)")
      .required()
      .shows("[SECONDS] FILE");
  addOverwriteFlag(command, options->isOverwriting);
  addClientOptions(command, options->client);
  command.does([options] { return keepPast(*options); });
}

} // namespace gk::app
