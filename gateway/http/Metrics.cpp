#include "gateway/http/Metrics.h"

#include "messages/json/JsonWriter.h"
#include "messages/keys/Subjects.h"
#include "zu/log.h"

#include <algorithm>
#include <fstream>
#include <optional>
#include <unistd.h>
#include <utility>
#include <vector>

namespace gk::gateway {

namespace {

/// Events beyond so many are not told one by one: clients can make up names.
constexpr std::size_t kMaxEvents = 1024;

using Labels = std::vector<std::pair<std::string_view, std::string_view>>;

std::string number(double value) {
  if (std::isinf(value)) {
    return value > 0 ? "+Inf" : "-Inf";
  }
  if (std::isnan(value)) {
    return "NaN";
  }
  std::string text;
  messages::JsonWriter(text).real(value);
  return text;
}

/// Writes families of samples, each with its help and type before it.
class MetricsWriter {
public:
  void family(std::string name, std::string_view type, std::string_view help) {
    fName = std::move(name);
    fText.append("# HELP ").append(fName).append(" ").append(help).append("\n");
    fText.append("# TYPE ").append(fName).append(" ").append(type).append("\n");
  }
  void sample(const Labels& labels, double value) { xSample("", labels, value); }
  void single(std::string name, std::string_view type, std::string_view help, double value) {
    family(std::move(name), type, help);
    sample({}, value);
  }
  void histogram(Labels labels, const HistogramFigures& figures) {
    for (const auto& [limit, count] : figures.buckets) {
      const std::string text = number(limit);
      labels.emplace_back("le", text);
      xSample("_bucket", labels, static_cast<double>(count));
      labels.pop_back();
    }
    labels.emplace_back("le", "+Inf");
    xSample("_bucket", labels, static_cast<double>(figures.count));
    labels.pop_back();
    xSample("_sum", labels, figures.sum);
    xSample("_count", labels, static_cast<double>(figures.count));
  }
  std::string take() { return std::move(fText); }

private:
  void xSample(std::string_view suffix, const Labels& labels, double value) {
    fText.append(fName).append(suffix);
    const char* separator = "{";
    for (const auto& [label, content] : labels) {
      fText.append(separator).append(label).append("=\"");
      for (const char c : content) {
        fText += c == '\n' ? "\\n" : c == '"' ? "\\\"" : c == '\\' ? "\\\\" : std::string(1, c);
      }
      fText += '"';
      separator = ",";
    }
    fText.append(labels.empty() ? " " : "} ").append(number(value)).append("\n");
  }

  std::string fText;
  std::string fName;
};

double asDouble(std::uint64_t value) {
  return static_cast<double>(value);
}

/// Resident memory of this process in bytes, 0 when the system does not tell.
double residentMemory() {
  std::ifstream file("/proc/self/statm");
  double all = 0;
  double resident = 0;
  file >> all >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

void writeLoops(MetricsWriter& out, const Counters& counters,
                const std::vector<LoopFigures>& loops) {
  out.family("gk_ticks_total", "counter", "Ticks of a module's loop.");
  for (const NoticeQueue::Loop& loop : counters.loops()) {
    out.sample({{"module", loop.module}}, asDouble(loop.ticks));
  }
  if (loops.empty()) {
    return;
  }
  out.family("gk_cycle_duration_seconds", "histogram", "Work of a tick.");
  for (const LoopFigures& loop : loops) {
    out.histogram({{"module", loop.module}}, loop.all.duration);
  }
  out.family("gk_cycle_lateness_seconds", "histogram", "How late a loop wakes up.");
  for (const LoopFigures& loop : loops) {
    out.histogram({{"module", loop.module}}, loop.all.lateness);
  }
  out.family("gk_cycle_overruns_total", "counter", "Ticks that took longer than their period.");
  for (const LoopFigures& loop : loops) {
    out.sample({{"module", loop.module}}, asDouble(loop.all.overruns));
  }
}

void writeMemory(MetricsWriter& out, const Robot& robot) {
  const std::shared_ptr<GK::GKMemoryStore> store = robot.store();
  if (store == nullptr) {
    return;
  }
  out.single("gk_memory_keys", "gauge", "Memory keys.", asDouble(store->size()));
  std::vector<GK::GKEventInfo> events = robot.memory()->getEvents();
  out.single("gk_events_known", "gauge", "Events known by name.", asDouble(events.size()));
  out.family("gk_events_total", "counter", "Events raised.");
  events.resize(std::min(events.size(), kMaxEvents));
  for (const GK::GKEventInfo& event : events) {
    out.sample({{"name", event.name}}, asDouble(event.count));
  }
  const auto valueOf = [&store](const std::string& key) {
    const std::optional<GK::GKValue> value = store->get(key);
    const bool isNumber = value && (value->type() == GK::GKValue::Type::Float ||
                                    value->type() == GK::GKValue::Type::Int);
    return isNumber ? std::optional<double>(value->toFloat()) : std::nullopt;
  };
  for (const messages::Subject& subject : messages::subjects()) {
    const bool isBattery = subject.topic == "/battery";
    const bool isHeat = subject.topic == "/temperatures";
    if (isHeat) {
      out.family("gk_joint_temperature_celsius", "gauge", "Temperature of a joint's motor.");
    }
    for (const messages::SubjectField& field : subject.fields) {
      const std::optional<double> value = isBattery || isHeat ? valueOf(field.key) : std::nullopt;
      if (!value) {
        continue;
      }
      constexpr std::string_view celsius = "_degC";
      if (isBattery && field.name == "charge_ratio") {
        out.single("gk_battery_charge_ratio", "gauge", "Charge of the battery, 0 to 1.", *value);
      } else if (isHeat && field.name.ends_with(celsius)) {
        out.sample(
            {{"joint", std::string_view(field.name).substr(0, field.name.size() - celsius.size())}},
            *value);
      }
    }
  }
}

void writeTraffic(MetricsWriter& out, const Counters& counters, std::size_t callsRunning) {
  out.family("gk_http_responses_total", "counter", "Responses by status code.");
  for (const auto& [status, count] : counters.responses()) {
    out.sample({{"code", std::to_string(status)}}, asDouble(count));
  }
  out.single("gk_http_refused_total", "counter",
             "Requests turned away for their host, origin or token.",
             asDouble(counters.refusals.load()));
  const std::map<std::string, Counters::Calls> calls = counters.calls();
  out.family("gk_rpc_duration_seconds", "histogram", "Calls of bound methods.");
  for (const auto& [method, figures] : calls) {
    out.histogram({{"method", method}}, figures.duration);
  }
  out.family("gk_rpc_errors_total", "counter", "Calls that raised an error.");
  for (const auto& [method, figures] : calls) {
    out.sample({{"method", method}}, asDouble(figures.errors));
  }
  out.single("gk_rpc_running", "gauge", "Calls that have not returned.", asDouble(callsRunning));
  out.single("gk_connections", "gauge", "Open connections.", asDouble(counters.connections.load()));
  out.single("gk_ws_clients", "gauge", "Clients on a WebSocket.",
             asDouble(counters.webSocketClients.load()));
  out.single("gk_ws_messages_total", "counter", "Messages sent to WebSocket clients.",
             asDouble(counters.webSocketMessages.load()));
  out.family("gk_ws_dropped_messages_total", "counter",
             "Messages that clients lost because they read too slowly.");
  out.sample({{"policy", "latest"}}, asDouble(counters.droppedSamples.load()));
  out.sample({{"policy", "queue"}}, asDouble(counters.droppedEvents.load()));
  out.single("gk_ws_abandoned_clients_total", "counter", "Clients given up: they did not read.",
             asDouble(counters.abandonedClients.load()));
}

void writeRecording(MetricsWriter& out, const RecordingFigures& recording) {
  out.single("gk_recording_ok", "gauge", "1 while the recording is being written, 0 in trouble.",
             recording.trouble.empty() ? 1 : 0);
  out.single("gk_recording_files", "gauge", "Files of the recording.", asDouble(recording.files));
  out.single("gk_recording_bytes_total", "counter", "Bytes written of the recording.",
             asDouble(recording.bytes));
  out.family("gk_recording_lost_total", "counter", "What the recording could not keep.");
  out.sample({{"kind", "blocks"}}, asDouble(recording.lostBlocks));
  out.sample({{"kind", "messages"}}, asDouble(recording.lostMessages));
}

/// Nothing for what is no number.
std::optional<double> gaugeOf(const GK::GKValue& value) {
  switch (value.type()) {
  case GK::GKValue::Type::Bool:
    return value.toBool() ? 1 : 0;
  case GK::GKValue::Type::Int:
    return value.toInt();
  case GK::GKValue::Type::Float:
    return value.toFloat();
  default:
    return std::nullopt;
  }
}

void writeStatus(MetricsWriter& out, const std::vector<StatusRow>& status) {
  if (status.empty()) {
    return;
  }
  out.family("gk_module_status", "gauge", "What modules tell of themselves, in their own units.");
  for (const StatusRow& row : status) {
    if (const std::optional<double> value = gaugeOf(row.value)) {
      out.sample({{"module", row.module}, {"name", row.name}}, *value);
    }
  }
  out.family("gk_module_status_level", "gauge",
             "How well it is by the module's own account: 0 fine, 1 warning, 2 error.");
  for (const StatusRow& row : status) {
    out.sample({{"module", row.module}, {"name", row.name}}, static_cast<double>(row.level));
  }
}

} // namespace

std::string metricsText(const Robot& robot, const Counters& counters, std::size_t callsRunning,
                        const std::string& version, double startTime,
                        const RecordingSource& recording, const std::vector<StatusRow>& status) {
  MetricsWriter out;
  out.family("gk_build_info", "gauge", "Always 1; the version is the label.");
  out.sample({{"version", version}}, 1);
  out.single("process_start_time_seconds", "gauge", "When the host started, since 1970.",
             startTime);
  out.single("process_resident_memory_bytes", "gauge", "Memory in use.", residentMemory());
  writeLoops(out, counters, robot.loops());
  writeMemory(out, robot);
  writeTraffic(out, counters, callsRunning);
  if (recording) {
    writeRecording(out, recording());
  }
  writeStatus(out, status);
  out.family("gk_log_lines_total", "counter", "Log lines by level.");
  const auto lines = counters.logLines();
  for (int level = zu::log::Fatal; level <= zu::log::Debug; ++level) {
    out.sample({{"level", zu::log::levelName(level)}},
               asDouble(lines[static_cast<std::size_t>(level)]));
  }
  return out.take();
}

} // namespace gk::gateway
