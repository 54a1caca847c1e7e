#include "formats/recording/RunConvert.h"

#include "formats/lines/ScenarioText.h"
#include "formats/mcap/Writer.h"
#include "formats/run/RunFile.h"
#include "formats/run/RunLogWriter.h"
#include "messages/json/SameValue.h"
#include "messages/text/Numbers.h"

#include <cmath>
#include <map>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

namespace gk::formats {

namespace {

/// A block of the log is written when it has grown to this.
constexpr std::size_t kBlockSize = 64 * 1024;
/// A longer time than this between two lines begins a new block: messages are found by their time.
constexpr GK::GKMicros kBlockTime = 1'000'000;

/// What a recording plays to: keeps values and actions of one line.
class Catcher : public RecordingTarget {
public:
  struct Column {
    std::string key;
    GK::GKMemoryCell* cell = nullptr;
    std::optional<GK::GKValue> last;
  };

  GK::GKMemoryCell* column(const std::string& key) override {
    GK::GKMemoryCell* cell = &fStore.cell(key);
    columns.push_back({key, cell, std::nullopt});
    return cell;
  }
  void act(const Action& action) override { actions.push_back(action); }

  /// Gives each column that has a new value to `take`, by its number.
  template <class Take> void takeChanges(const Take& take) {
    for (std::size_t i = 0; i < columns.size(); ++i) {
      Column& column = columns[i];
      if (!column.cell->exists()) {
        continue;
      }
      GK::GKValue value = column.cell->load();
      if (!column.last || !messages::isSameValue(*column.last, value)) {
        take(i, value);
        column.last = std::move(value);
      }
    }
  }

  std::vector<Column> columns;
  std::vector<Action> actions;

private:
  GK::GKMemoryStore fStore;
};

/// Plays a whole recording: `line` is called after each of its lines, with its time.
template <class Line> void playAll(Recording& recording, Catcher& catcher,
                                   const ConvertProgress& progress, const Line& line) {
  while (const std::optional<GK::GKMicros> time = recording.time()) {
    recording.play(catcher);
    line(*time);
    catcher.actions.clear();
    if (progress) {
      progress(recording.progress());
    }
  }
}

/// The table's cell for a value; nothing for what is no number.
std::optional<std::string> cellOf(const GK::GKValue& value) {
  std::string text;
  switch (value.type()) {
  case GK::GKValue::Type::Int:
    return std::to_string(value.toInt());
  case GK::GKValue::Type::Float:
    if (std::isfinite(value.toFloat())) {
      messages::appendFloat(text, value.toFloat());
      return text;
    }
    return std::isnan(value.toFloat()) ? "nan" : value.toFloat() < 0 ? "-inf" : "inf";
  default:
    return std::nullopt;
  }
}

/// A line of a recording as rows of a table see it.
class Table {
public:
  /// Takes note of one line; the cells stand in `cells` until `clear`.
  void take(Catcher& catcher, LeftOut& left) {
    catcher.takeChanges([&](std::size_t i, const GK::GKValue& value) {
      xTake(catcher.columns[i].key, value, left);
    });
    for (const Action& action : catcher.actions) {
      takeAction(action, left);
    }
  }

  void takeAction(const Action& action, LeftOut& left) {
    if (const auto* set = std::get_if<SetAction>(&action)) {
      for (const auto& [key, value] : set->values) {
        xTake(key, value, left);
      }
    } else {
      ++left.actions;
    }
  }

  void clear() { cells.assign(keys.size(), std::string()); }

  std::vector<std::string> keys;
  std::vector<std::string> cells;

private:
  void xTake(const std::string& key, const GK::GKValue& value, LeftOut& left) {
    std::optional<std::string> cell = cellOf(value);
    if (!cell || key.find_first_of(",\r\n\"") != std::string::npos) {
      ++left.values;
      return;
    }
    const auto [place, isNew] = fPlaces.try_emplace(key, keys.size());
    if (isNew) {
      keys.push_back(key);
    }
    cells.resize(keys.size());
    cells[place->second] = *std::move(cell);
  }

  std::map<std::string, std::size_t> fPlaces;
};

/// Writes one row, with its empty cells.
void writeRow(const Table& table, GK::GKMicros time, const TextSink& out) {
  std::string row;
  messages::appendSeconds(row, time);
  for (const std::string& cell : table.cells) {
    row += ',';
    row += cell;
  }
  row += '\n';
  out(row);
}

} // namespace

void convertToMcap(Recording& recording, mcap::Sink& sink, mcap::Compression compression,
                   mcap::StringMap about, const ConvertProgress& progress) {
  mcap::Writer writer(sink, {.compression = compression,
                             .level = mcap::Compressor::kThorough,
                             .library = about["version"]});
  writer.addMetadata({kRunMetadata, std::move(about)});
  const std::uint16_t channel = writer.addChannel(kRunTopic, kRunEncoding, 0);
  RunLogWriter log;
  const auto writeBlock = [&] {
    const auto time = static_cast<std::uint64_t>(log.startTime()) * 1000;
    writer.write(channel, time, time, log.take());
  };
  for (const Action& action : recording.preload()) {
    log.add(RunAction{action});
  }
  log.add(RunStart{});

  Catcher catcher;
  std::size_t namedKeys = 0;
  playAll(recording, catcher, progress, [&](GK::GKMicros time) {
    if (log.size() >= kBlockSize || time - log.startTime() >= kBlockTime) {
      writeBlock();
    }
    log.add(RunTurn{kOutsideTask, time});
    for (; namedKeys < catcher.columns.size(); ++namedKeys) {
      log.add(RunKey{namedKeys, catcher.columns[namedKeys].key});
    }
    log.beginValues();
    catcher.takeChanges(
        [&log](std::size_t i, const GK::GKValue& value) { log.addValue(i, value); });
    log.endValues();
    for (const Action& action : catcher.actions) {
      log.add(RunAction{action});
    }
  });
  writeBlock();
  writer.finish();
}

void convertToScenario(Recording& recording, const TextSink& out, const ConvertProgress& progress) {
  std::string line;
  const auto write = [&](std::optional<GK::GKMicros> time, const Action& action) {
    line.clear();
    appendScenarioLine(line, time, action);
    line += '\n';
    out(line);
  };
  for (const Action& action : recording.preload()) {
    write(std::nullopt, action);
  }
  Catcher catcher;
  playAll(recording, catcher, progress, [&](GK::GKMicros time) {
    SetAction set;
    catcher.takeChanges([&](std::size_t i, const GK::GKValue& value) {
      set.values.emplace_back(catcher.columns[i].key, value);
    });
    if (!set.values.empty()) {
      write(time, set);
    }
    for (const Action& action : catcher.actions) {
      write(time, action);
    }
  });
}

LeftOut convertToCsv(const std::function<std::unique_ptr<Recording>()>& open, const TextSink& out,
                     const ConvertProgress& progress) {
  constexpr double half = 0.5;
  Table table;
  for (const bool isWriting : {false, true}) {
    LeftOut left;
    const std::unique_ptr<Recording> recording = open();
    table.clear();
    for (const Action& action : recording->preload()) {
      if (!std::holds_alternative<UnsetAction>(action)) {
        table.takeAction(action, left);
      }
    }
    if (isWriting) {
      std::string header = "time";
      for (const std::string& key : table.keys) {
        header += "," + key;
      }
      out(header + "\n");
      if (!recording->preload().empty()) {
        writeRow(table, 0, out);
        table.clear();
      }
    }
    Catcher catcher;
    const auto report = [&](double done) {
      if (progress) {
        progress(half * (done + (isWriting ? 1.0 : 0.0)));
      }
    };
    playAll(*recording, catcher, report, [&](GK::GKMicros time) {
      table.take(catcher, left);
      if (isWriting) {
        writeRow(table, time, out);
        table.clear();
      }
    });
    if (isWriting) {
      return left;
    }
  }
  return {};
}

} // namespace gk::formats
