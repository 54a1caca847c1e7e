#pragma once

#include "app/client/HostClient.h"

#include <boost/json/value.hpp>

#include <string>
#include <vector>

namespace gk::app {

/// How much harm it does when something is not as it should be.
enum class Harm : unsigned char { Little, Lossy, Slow, Blind, Dead };

/// Something that was looked at.
struct Finding {
  Harm harm = Harm::Little;
  std::string what;
  bool isGood = false;
  /// What was found: for programs, and for people with units and limits. May be empty.
  std::string detail;
  std::string shown;
  /// What helps where it is not good.
  std::string advice;
};

/// Looks whether all is well with a host. For one thread.
class Doctor {
public:
  /// As `HostClient`.
  explicit Doctor(const ClientOptions& options) : fClient(options) {}

  /// Looks once, for a second at most.
  std::vector<Finding> examine();

  std::string address() const { return fClient.address().text(); }

private:
  boost::json::value xSettledHost();
  void xReadiness();
  void xOpenConditions(const std::string& conditions);
  void xToldByModules(const std::string& conditions);
  void xHost(const boost::json::value& host);
  void xLoop(const boost::json::value& loop);
  void xLateness(const boost::json::value& loop);
  void xRate(const boost::json::value& loop);
  void xVerdict();
  void xModules();

  HostClient fClient;
  std::vector<Finding> fFindings;
};

} // namespace gk::app
