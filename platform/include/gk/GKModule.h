#pragma once

#include "gk/GKModuleCore.h"

#include <string>

namespace GK {

/// Base of all modules.
class GK_API GKModule : public GKModuleCore {
public:
  GKModule(const boost::shared_ptr<GKBroker>& broker, std::string name);
  ~GKModule() override;

  /// For modules that do one piece of work on request. Does nothing by default.
  virtual void execute();

  /// The module's version; the platform's by default.
  virtual std::string version();

  /// Called once when the module's life ends, while all other modules still stand. Does nothing by
  /// default.
  virtual void exit();

  /// The module's status page as HTML. By default a page with the module's description.
  virtual std::string httpGet();

  /// Called once after registration. Does nothing by default.
  virtual void init();

  /// Somebody asks, through `GKProxy::stop`, for the end of the task of this number, in which one
  /// of this module's methods runs (`GKTask::number`). Called on any thread. Does nothing by
  /// default: methods that take their time may heed it.
  virtual void stop(const int& task);

  /// Constructs a `T` with `broker`, registers it, and initialises it. When `init` raises a
  /// `GKError`, `exit` is called before a copy of the error is raised. The broker keeps a
  /// registered module whatever its `init` does.
  template <class T>
  static boost::shared_ptr<T> createModule(const boost::shared_ptr<GKBroker>& broker) {
    boost::shared_ptr<T> module(new T(broker));
    GKModule& base = *module;
    base.xBeginInit();
    module->initModule();
    try {
      base.init();
    } catch (const GKError& error) {
      base.xEndInit(false);
      base.xExitOnce();
      throw GKError(error);
    } catch (...) {
      base.xEndInit(false);
      throw;
    }
    base.xEndInit(true);
    return module;
  }

private:
  friend class GKBroker;

  /// Calls `exit` unless that has been done.
  void xExitOnce();
};

} // namespace GK
