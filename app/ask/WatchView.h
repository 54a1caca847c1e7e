#pragma once

#include "app/client/HostClient.h"
#include "app/terminal/Screen.h"

#include <boost/json/value.hpp>

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace gk::app {

/// The present values of some keys: redrawn in place on a terminal, else a line for each change.
/// For one thread.
class WatchView {
public:
  /// `keys`: what the host tells of them. Asks it how long it runs, and for the names of poses.
  /// Raises `ClientError`.
  WatchView(HostClient& client, const std::vector<boost::json::value>& keys, bool isJson);

  /// Their names.
  const std::vector<std::string>& keys() const noexcept { return fKeys; }

  /// "name" and "value" of each key that has changed.
  void show(const std::vector<boost::json::value>& changed);

  /// To be called now and then: the terminal may have another size.
  void refresh();

private:
  using Clock = std::chrono::steady_clock;

  void xPrintJson(const std::vector<boost::json::value>& changed) const;
  void xPrintLines(const std::vector<boost::json::value>& changed) const;
  void xRedraw();
  std::string xText(const std::string& key) const;
  /// Seconds since the host's start.
  double xTime() const;

  std::vector<std::string> fKeys;
  const bool fIsJson;
  std::map<std::string, std::string> fUnits;
  /// By their codes; empty when no pose is watched.
  std::vector<std::string> fPoses;
  Clock::time_point fHostStart;
  std::map<std::string, boost::json::value> fValues;
  Picture fPicture;
};

} // namespace gk::app
