#pragma once

#include "gk/GKModule.h"

#include <boost/shared_ptr.hpp>

#include <memory>
#include <string>
#include <vector>

namespace GK {

/// Base of the modules that others subscribe to.
///
/// Keeps who subscribed with which refresh period and precision, derives one current period (the
/// smallest) and one current precision (the largest), and tells the derived module through three
/// hooks when to start, adapt and stop. A derived module supplies the hooks and its own methods.
///
/// All public operations may be called from any thread. The hooks run with the extractor's lock
/// held: a hook must not wait for a thread that calls the operations of the same extractor.
class GKExtractor : public GKModule {
public:
  /// Binds the operations below for remote callers. `name`: the module's name.
  GKExtractor(const boost::shared_ptr<GKBroker>& broker, const std::string& name);
  ~GKExtractor() override;

  /// The status page: subscribers with their parameters, and the declared events. Never waits for
  /// a running subscription. Raises `GKError` when there is no memory service.
  std::string httpGet() override;

  /// Enters or updates subscriber `name`. `period` in milliseconds, at least 1: smaller ones become
  /// 1 with a warning. The first subscriber starts the detection. Raises what the hooks raise; an
  /// error of `xStartDetection` leaves the extractor without subscriber.
  virtual void subscribe(const std::string& name, const int& period, const float& precision);

  /// Changes a subscriber's period, in milliseconds; unlike `subscribe` this takes any number.
  /// Raises `GKError` for an unknown `name`, and what the hook raises.
  virtual void updatePeriod(const std::string& name, const int& period);

  /// Changes a subscriber's precision. Raises `GKError` for an unknown `name`, and what the hook
  /// raises.
  virtual void updatePrecision(const std::string& name, const float& precision);

  /// Removes a subscriber; the last one to leave stops the detection. Raises `GKError` for an
  /// unknown `name`, and what the hooks raise.
  virtual void unsubscribe(const std::string& name);

  /// Current period in milliseconds; -1 while nobody is subscribed.
  virtual int getCurrentPeriod();

  /// Current precision; -1 while nobody is subscribed.
  virtual float getCurrentPrecision();

  /// Period of subscriber `name` in milliseconds. Asking for an unknown name returns -1 and makes
  /// it a subscriber with period and precision -1, without calling a hook.
  virtual int getMyPeriod(const std::string& name);

  /// Precision of subscriber `name`. Asking for an unknown name returns -1 and makes it a
  /// subscriber, as `getMyPeriod` does.
  virtual float getMyPrecision(const std::string& name);

  /// Subscribes with the extractor's default period and precision.
  void subscribe(const std::string& name);

  /// One array [name (string), period in ms (int), precision (float)] for each subscriber, sorted
  /// by name. Never waits for a running subscription.
  GKValue getSubscribersInfo();

  /// Names of the events that this module declared. Raises `GKError` when there is no memory
  /// service.
  std::vector<std::string> getOutputNames();

protected:
  /// The first subscriber has come: start working. `period` in milliseconds.
  virtual void xStartDetection(int period, float precision) = 0;

  /// The current parameters were worked out anew, perhaps with the same result. `period` in
  /// milliseconds. Does nothing by default.
  virtual void xUpdateParameters(int period, float precision);

  /// The last subscriber has gone: stop working.
  virtual void xStopDetection() = 0;

  /// Period of a subscriber that gives none, in milliseconds.
  virtual int getDefaultPeriod();

  /// Precision of a subscriber that gives none.
  virtual float getDefaultPrecision();

private:
  struct Record;

  /// The class that declares the methods, for all extractors.
  static constexpr const char* kClassName = "GKExtractor";

  void xBindSubscription();
  void xBindQueries();

  /// Not the hook of the same name: works out the current period and precision over all
  /// subscribers and calls the hook with them, whether or not they changed. Needs the lock.
  /// Raises `GKError` when nobody is subscribed.
  void xUpdateParameters();

  std::unique_ptr<Record> fRecord;
};

} // namespace GK
