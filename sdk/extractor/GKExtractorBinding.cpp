#include "gk/GKExtractor.h"

namespace GK {

namespace {

constexpr const char* kSubscribeText =
    "Subscribes to the extractor. This causes the extractor to start writing information to memory "
    "using the keys described by getOutputNames(). These can be accessed in memory using "
    "GKMemory.getData(\"keyName\"). In many cases you can avoid calling subscribe on the extractor "
    "by just calling GKMemory.subscribeToEvent() supplying a callback method. This will "
    "automatically subscribe to the extractor for you.";

} // namespace

void GKExtractor::xBindSubscription() {
  using Subscribe = void (GKExtractor::*)(const std::string&, const int&, const float&);
  using SubscribeByName = void (GKExtractor::*)(const std::string&);

  functionName("subscribe", kClassName, kSubscribeText);
  addParam("name", "Name of the module which subscribes.");
  addParam("period", "Refresh period (in milliseconds) if relevant.");
  addParam("precision", "Precision of the extractor if relevant.");
  bindOverload(static_cast<Subscribe>(&GKExtractor::subscribe), this);

  functionName("subscribe", kClassName, kSubscribeText);
  addParam("name", "Name of the module which subscribes.");
  bindOverload(static_cast<SubscribeByName>(&GKExtractor::subscribe), this);

  functionName("unsubscribe", kClassName, "Unsubscribes from the extractor.");
  addParam("name", "Name of the module which had subscribed.");
  bindMethod(&GKExtractor::unsubscribe, this);

  functionName("updatePeriod", kClassName, "Updates the period if relevant.");
  addParam("name", "Name of the module which has subscribed.");
  addParam("period", "Refresh period (in milliseconds).");
  bindMethod(&GKExtractor::updatePeriod, this);

  functionName("updatePrecision", kClassName, "Updates the precision if relevant.");
  addParam("name", "Name of the module which has subscribed.");
  addParam("precision", "Precision of the extractor.");
  bindMethod(&GKExtractor::updatePrecision, this);
}

void GKExtractor::xBindQueries() {
  functionName("getCurrentPeriod", kClassName, "Gets the current period.");
  setReturn("period", "Refresh period (in milliseconds).");
  bindMethod(&GKExtractor::getCurrentPeriod, this);

  functionName("getCurrentPrecision", kClassName, "Gets the current precision.");
  setReturn("precision", "Precision of the extractor.");
  bindMethod(&GKExtractor::getCurrentPrecision, this);

  functionName("getMyPeriod", kClassName, "Gets the period for a specific subscription.");
  addParam("name", "Name of the module which has subscribed.");
  setReturn("period", "Refresh period (in milliseconds).");
  bindMethod(&GKExtractor::getMyPeriod, this);

  // Lower case and without full stops, unlike the others: clients show these texts as they are.
  functionName("getMyPrecision", kClassName, "Gets the precision for a specific subscription.");
  addParam("name", "name of the module which has subscribed");
  setReturn("precision", "precision of the extractor");
  bindMethod(&GKExtractor::getMyPrecision, this);

  functionName("getSubscribersInfo", kClassName, "Gets the parameters given by the module.");
  setReturn("subscribersInfo", "Array of names and parameters of all subscribers.");
  bindMethod(&GKExtractor::getSubscribersInfo, this);

  functionName("getOutputNames", kClassName, "Get the list of values updated in GKMemory.");
  setReturn("outputNames", "Array of values updated by this extractor in GKMemory");
  bindMethod(&GKExtractor::getOutputNames, this);
}

} // namespace GK
