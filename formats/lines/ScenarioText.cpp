#include "formats/lines/ScenarioText.h"

#include "formats/lines/OperationNames.h"
#include "messages/json/JsonText.h"
#include "messages/json/JsonValue.h"
#include "messages/text/Numbers.h"

#include <variant>
#include <vector>

namespace gk::formats {

namespace {

/// Appends the members of one action.
class Members {
public:
  explicit Members(std::string& out) : fOut(out) {}

  void operator()(const SetAction& set) {
    fOut += R"("set":{)";
    const char* separator = "";
    for (const auto& [key, value] : set.values) {
      fOut += separator;
      messages::appendJsonString(fOut, key);
      fOut += ':';
      messages::appendJson(fOut, value);
      separator = ",";
    }
    fOut += '}';
  }
  void operator()(const UnsetAction& unset) { xTexts(R"("unset":)", unset.patterns); }
  void operator()(const GetAction& get) { xTexts(R"("get":)", get.keys); }
  void operator()(const GetOutputAction& page) { xText(R"("getOutput":)", page.module); }
  void operator()(const ExitAction&) { fOut += R"("exit":true)"; }

  void operator()(const CallAction& call) {
    const std::string name = call.module + "." + call.method;
    xText(R"("call":)", name);
    if (!call.args.empty()) {
      fOut += R"(,"args":)";
      messages::appendJson(fOut, call.args);
    }
    if (call.label != name) {
      xText(R"(,"as":)", call.label);
    }
  }

  void operator()(const FailAction& fail) {
    xText(R"("fail":{"operation":)", operationName(fail.operation));
    if (fail.key) {
      xText(R"(,"key":)", *fail.key);
    }
    fOut += R"(,"after":)" + std::to_string(fail.after);
    fOut += R"(,"count":)" + std::to_string(fail.count) + "}";
  }

private:
  void xText(std::string_view member, std::string_view text) {
    fOut += member;
    messages::appendJsonString(fOut, text);
  }

  void xTexts(std::string_view member, const std::vector<std::string>& texts) {
    fOut += member;
    messages::appendJson(fOut, GK::GKValue(GK::GKValue::Array(texts.begin(), texts.end())));
  }

  std::string& fOut;
};

} // namespace

void appendScenarioLine(std::string& out, std::optional<GK::GKMicros> time, const Action& action) {
  out += '{';
  if (time) {
    out += R"("t":)";
    messages::appendSeconds(out, *time);
    out += ',';
  }
  std::visit(Members(out), action);
  out += '}';
}

} // namespace gk::formats
