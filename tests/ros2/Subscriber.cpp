#include "ros2/FastDds.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

// Another vendor's subscriber: finds the topics of ROS in a domain, reads all of them, and prints a
// line for each writer that it finds and for each sample. What is printed is what Fast CDR decodes.
//
// Usage: ros2_subscriber DOMAIN [--default] [--silent] [--latency TOPIC] [TOPIC...]
// --default: all of Fast DDS's settings as they are, shared memory included; otherwise UDP alone.
// --silent: counts samples without printing them.
// --latency: tells at the end how long after their stamps samples of this topic came.

namespace gk::test {
namespace {

using Text = std::ostringstream;

std::string stamp(Cdr& cdr) {
  const auto sec = cdr.take<std::int32_t>();
  const auto nanosec = cdr.take<std::uint32_t>();
  char text[40];
  std::snprintf(text, sizeof text, "%d.%09u", sec, nanosec);
  return text;
}

void header(Cdr& cdr, Text& out) {
  out << " stamp=" << stamp(cdr);
  out << " frame=" << cdr.take<std::string>();
}

template <class T> void numbers(Cdr& cdr, Text& out, const char* name, int count) {
  out << ' ' << name << '=';
  for (int i = 0; i < count; ++i) {
    out << (i > 0 ? "," : "") << +cdr.take<T>();
  }
}

template <class T> void list(Cdr& cdr, Text& out, const char* name) {
  out << ' ' << name << '=';
  const auto count = cdr.take<std::uint32_t>();
  for (std::uint32_t i = 0; i < count; ++i) {
    out << (i > 0 ? "," : "") << cdr.take<T>();
  }
}

void imu(Cdr& cdr, Text& out) {
  header(cdr, out);
  numbers<double>(cdr, out, "orientation", 4);
  numbers<double>(cdr, out, "orientation_covariance", 9);
  numbers<double>(cdr, out, "angular_velocity", 3);
  numbers<double>(cdr, out, "angular_velocity_covariance", 9);
  numbers<double>(cdr, out, "linear_acceleration", 3);
  numbers<double>(cdr, out, "linear_acceleration_covariance", 9);
}

void transforms(Cdr& cdr, Text& out) {
  const auto count = cdr.take<std::uint32_t>();
  out << " transforms=" << count;
  for (std::uint32_t i = 0; i < count; ++i) {
    header(cdr, out);
    out << " child=" << cdr.take<std::string>();
    numbers<double>(cdr, out, "translation", 3);
    numbers<double>(cdr, out, "rotation", 4);
  }
}

void range(Cdr& cdr, Text& out) {
  header(cdr, out);
  numbers<std::uint8_t>(cdr, out, "radiation_type", 1);
  for (const char* name : {"field_of_view", "min_range", "max_range", "range", "variance"}) {
    numbers<float>(cdr, out, name, 1);
  }
}

void joints(Cdr& cdr, Text& out) {
  header(cdr, out);
  list<std::string>(cdr, out, "name");
  list<double>(cdr, out, "position");
  list<double>(cdr, out, "velocity");
  list<double>(cdr, out, "effort");
}

void battery(Cdr& cdr, Text& out) {
  header(cdr, out);
  for (const char* name : {"voltage", "temperature", "current", "charge", "capacity",
                           "design_capacity", "percentage"}) {
    numbers<float>(cdr, out, name, 1);
  }
  for (const char* name : {"status", "health", "technology", "present"}) {
    numbers<std::uint8_t>(cdr, out, name, 1);
  }
  list<float>(cdr, out, "cell_voltage");
}

void temperature(Cdr& cdr, Text& out) {
  header(cdr, out);
  numbers<double>(cdr, out, "temperature", 1);
}

void wrench(Cdr& cdr, Text& out) {
  header(cdr, out);
  numbers<double>(cdr, out, "force", 3);
  numbers<double>(cdr, out, "torque", 3);
}

void point(Cdr& cdr, Text& out) {
  header(cdr, out);
  numbers<double>(cdr, out, "point", 3);
}

void diagnostics(Cdr& cdr, Text& out) {
  header(cdr, out);
  const auto count = cdr.take<std::uint32_t>();
  for (std::uint32_t i = 0; i < count; ++i) {
    numbers<std::uint8_t>(cdr, out, "level", 1);
    for (const char* name : {"name", "message", "hardware_id"}) {
      out << ' ' << name << '=' << cdr.take<std::string>();
    }
    const auto values = cdr.take<std::uint32_t>();
    for (std::uint32_t k = 0; k < values; ++k) {
      const auto key = cdr.take<std::string>();
      out << " [" << key << "]=" << cdr.take<std::string>();
    }
  }
}

void log(Cdr& cdr, Text& out) {
  out << " stamp=" << stamp(cdr);
  numbers<std::uint8_t>(cdr, out, "level", 1);
  for (const char* name : {"name", "msg", "file", "function"}) {
    out << ' ' << name << '=' << cdr.take<std::string>();
  }
}

/// Texts of several lines stay on one.
void text(Cdr& cdr, Text& out) {
  out << " data=";
  for (const char c : cdr.take<std::string>()) {
    out << (c == '\n' ? ' ' : c);
  }
}

void flag(Cdr& cdr, Text& out) {
  numbers<std::uint8_t>(cdr, out, "data", 1);
}

/// The nodes of a participant, ids of 16 bytes.
void graph(Cdr& cdr, Text& out) {
  numbers<std::uint8_t>(cdr, out, "gid", 16);
  const auto nodes = cdr.take<std::uint32_t>();
  out << " nodes=" << nodes;
  for (std::uint32_t i = 0; i < nodes; ++i) {
    out << " namespace=" << cdr.take<std::string>();
    out << " name=" << cdr.take<std::string>();
    for (const char* name : {"readers", "writers"}) {
      const auto gids = cdr.take<std::uint32_t>();
      out << ' ' << name << '=' << gids;
      for (std::uint32_t k = 0; k < gids * 16; ++k) {
        cdr.take<std::uint8_t>();
      }
    }
  }
}

using Decode = void (*)(Cdr&, Text&);

const std::map<std::string_view, Decode> kTypes = {
    {"sensor_msgs::msg::dds_::Imu_", imu},
    {"sensor_msgs::msg::dds_::Range_", range},
    {"sensor_msgs::msg::dds_::JointState_", joints},
    {"sensor_msgs::msg::dds_::BatteryState_", battery},
    {"sensor_msgs::msg::dds_::Temperature_", temperature},
    {"geometry_msgs::msg::dds_::WrenchStamped_", wrench},
    {"geometry_msgs::msg::dds_::PointStamped_", point},
    {"tf2_msgs::msg::dds_::TFMessage_", transforms},
    {"diagnostic_msgs::msg::dds_::DiagnosticArray_", diagnostics},
    {"rcl_interfaces::msg::dds_::Log_", log},
    {"std_msgs::msg::dds_::String_", text},
    {"std_msgs::msg::dds_::Bool_", flag},
    {"rmw_dds_common::msg::dds_::ParticipantEntitiesInfo_", graph},
};

std::string decoded(const std::string& type, Bytes& bytes) {
  const auto known = kTypes.find(type);
  if (known == kTypes.end()) {
    return " of an unknown type";
  }
  Text out;
  out.precision(9);
  try {
    Cdr cdr(bytes);
    known->second(cdr, out);
    return out.str();
  } catch (const std::exception& error) {
    return std::string(" is something else: ") + error.what();
  }
}

/// How old a sample is that begins with a header, in microseconds.
double ageOf(Bytes& bytes) {
  Cdr cdr(bytes);
  const auto sec = cdr.take<std::int32_t>();
  const auto nanosec = cdr.take<std::uint32_t>();
  const std::chrono::duration<double, std::micro> now =
      std::chrono::system_clock::now().time_since_epoch();
  return now.count() - (sec * 1e6 + nanosec / 1e3);
}

std::atomic<bool> isEnding{false};
/// Signals are looked for so often, in ns.
const Duration kPatience(0, 50'000'000);

void onSignal(int) {
  isEnding = true;
}

class Subscriber {
public:
  Subscriber(std::uint32_t domain, bool isDefault, bool isSilent, std::string timed,
             std::set<std::string> topics)
      : fTopics(std::move(topics)), fIsSilent(isSilent), fTimed(std::move(timed)),
        fFinder([this](const FoundWriter& found) {
          const std::lock_guard<std::mutex> lock(fMutex);
          fFound.push_back(found);
          fNews.set_trigger_value(true);
        }) {
    fWaiting.attach_condition(fNews);
    dds::DomainParticipantQos qos = dds::PARTICIPANT_QOS_DEFAULT;
    if (!isDefault) {
      qos.transport().use_builtin_transports = false;
      qos.transport().user_transports.push_back(
          std::make_shared<eprosima::fastdds::rtps::UDPv4TransportDescriptor>());
    }
    auto* factory = dds::DomainParticipantFactory::get_instance();
    // Only discovery is of interest: readers are asked.
    fParticipant = factory->create_participant(domain, qos, &fFinder, dds::StatusMask::none());
    fSubscriber = fParticipant->create_subscriber(dds::SUBSCRIBER_QOS_DEFAULT);
  }

  ~Subscriber() {
    fParticipant->set_listener(nullptr);
    fParticipant->delete_contained_entities();
    dds::DomainParticipantFactory::get_instance()->delete_participant(fParticipant);
  }

  void run() {
    while (!isEnding) {
      dds::ConditionSeq active;
      fWaiting.wait(active, kPatience);
      std::deque<FoundWriter> found;
      {
        const std::lock_guard<std::mutex> lock(fMutex);
        found.swap(fFound);
        fNews.set_trigger_value(false);
      }
      for (const FoundWriter& writer : found) {
        read(writer);
      }
      for (Reading& reading : fReadings) {
        take(reading);
      }
      std::fflush(stdout);
    }
    std::printf("samples %zu\n", fCount);
    std::sort(fAges.begin(), fAges.end());
    if (!fAges.empty()) {
      const auto part = [this](double share) {
        return fAges[static_cast<std::size_t>(share * static_cast<double>(fAges.size() - 1))];
      };
      std::printf("latency of %zu samples: half within %.0f us, 99 %% within %.0f us, all within "
                  "%.0f us\n",
                  fAges.size(), part(0.5), part(0.99), part(1.0));
    }
  }

private:
  struct Reading {
    std::string topic;
    std::string type;
    dds::DataReader* reader;
  };

  /// Of the name that ROS has.
  static std::string shown(const std::string& topic) {
    return topic.starts_with("rt/") ? topic.substr(2) : topic;
  }

  void read(const FoundWriter& found) {
    const std::string topic = shown(found.topic);
    std::printf("found %s %s %s %s %s\n", topic.c_str(), found.type.c_str(),
                found.isReliable ? "reliable" : "best_effort",
                found.isLatched ? "transient_local" : "volatile", found.userData.c_str());
    if (!fKnown.insert(topic).second || (!fTopics.empty() && !fTopics.contains(topic))) {
      return;
    }
    const dds::TypeSupport type(new RawType(found.type));
    type.register_type(fParticipant);
    dds::Topic* made = fParticipant->create_topic(found.topic, found.type, dds::TOPIC_QOS_DEFAULT);
    dds::DataReaderQos qos = dds::DATAREADER_QOS_DEFAULT;
    qos.reliability().kind = dds::RELIABLE_RELIABILITY_QOS;
    qos.durability().kind =
        found.isLatched ? dds::TRANSIENT_LOCAL_DURABILITY_QOS : dds::VOLATILE_DURABILITY_QOS;
    qos.history().kind = dds::KEEP_LAST_HISTORY_QOS;
    qos.history().depth = 100;
    dds::DataReader* reader = fSubscriber->create_datareader(made, qos);
    reader->get_statuscondition().set_enabled_statuses(dds::StatusMask::data_available());
    fWaiting.attach_condition(reader->get_statuscondition());
    fReadings.push_back({topic, found.type, reader});
  }

  void take(Reading& reading) {
    Bytes bytes;
    dds::SampleInfo info;
    while (isOk(reading.reader->take_next_sample(&bytes, &info))) {
      if (!info.valid_data) {
        continue;
      }
      ++fCount;
      if (reading.topic == fTimed) {
        fAges.push_back(ageOf(bytes));
      }
      if (!fIsSilent) {
        std::printf("%s%s\n", reading.topic.c_str(), decoded(reading.type, bytes).c_str());
      }
    }
  }

  const std::set<std::string> fTopics;
  const bool fIsSilent;
  const std::string fTimed;
  std::vector<double> fAges;
  std::mutex fMutex;
  std::deque<FoundWriter> fFound;
  dds::GuardCondition fNews;
  dds::WaitSet fWaiting;
  Finder fFinder;
  dds::DomainParticipant* fParticipant = nullptr;
  dds::Subscriber* fSubscriber = nullptr;
  std::set<std::string> fKnown;
  std::deque<Reading> fReadings;
  std::size_t fCount = 0;
};

} // namespace
} // namespace gk::test

int main(int argc, char** argv) {
  bool isDefault = false;
  bool isSilent = false;
  std::string timed;
  std::set<std::string> topics;
  for (int i = 2; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--default") {
      isDefault = true;
    } else if (argument == "--silent") {
      isSilent = true;
    } else if (argument == "--latency" && i + 1 < argc) {
      timed = argv[++i];
    } else {
      topics.emplace(argument);
    }
  }
  if (argc < 2) {
    std::fprintf(stderr, "usage: ros2_subscriber DOMAIN [--default] [--silent] [--latency TOPIC] "
                         "[TOPIC...]\n");
    return 2;
  }
  std::signal(SIGTERM, gk::test::onSignal);
  std::signal(SIGINT, gk::test::onSignal);
  gk::test::Subscriber(static_cast<std::uint32_t>(std::atoi(argv[1])), isDefault, isSilent, timed,
                       topics)
      .run();
  return 0;
}
