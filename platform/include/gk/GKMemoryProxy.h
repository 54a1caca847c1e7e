#pragma once

#include "gk/GKMemory.h"
#include "gk/GKProxy.h"

#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

namespace GK {

/// The memory service as modules use it. Semantics and errors are those of `GKMemory`.
class GK_API GKMemoryProxy {
public:
  /// Raises `GKError` when `proxy` is not one of "GKMemory".
  explicit GKMemoryProxy(const boost::shared_ptr<GKProxy>& proxy);

  bool hasKey(const std::string& key) const;
  GKValue getData(const std::string& key) const;
  void* getDataPtr(const std::string& key) const;
  void insertData(const std::string& key, const GKValue& value);
  void declareEvent(const std::string& event, const std::string& owner);
  void raiseEvent(const std::string& event, const GKValue& value);
  void raiseMicroEvent(const std::string& event, const GKValue& value);
  void subscribeToEvent(const std::string& event, const std::string& module,
                        const std::string& method);
  void unsubscribeToEvent(const std::string& event, const std::string& module);
  std::vector<std::string> getExtractorEvent(const std::string& owner) const;
  std::vector<std::string> getDataList(const std::string& pattern) const;

private:
  boost::shared_ptr<GKMemory> fMemory;
};

} // namespace GK
