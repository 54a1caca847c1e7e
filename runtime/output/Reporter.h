#pragma once

#include "formats/lines/OutputLine.h"
#include "formats/text/LiveRows.h"
#include "gk/GKError.h"
#include "gk/GKObserver.h"
#include "gk/GKPriorityMutex.h"
#include "gk/GKTime.h"
#include "gk/GKValue.h"
#include "runtime/output/Outlet.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gk::runtime {

/// An answer to something that a scenario asked for.
struct Answer {
  enum class Kind : std::uint8_t { Result, Error, OtherError, Value, Page };

  Kind kind = Kind::Result;
  GK::GKMicros time = 0;
  /// Of a call of a scenario: the how manieth it was, from 1; otherwise 0.
  std::uint64_t number = 0;
  /// The call's label, the key or the module.
  std::string name;
  /// Result or value; see `hasValue`.
  GK::GKValue value;
  /// False for a method without result and for an unknown key.
  bool hasValue = false;
  /// The page, or the description of an error that is none of the platform's.
  std::string text;
  /// Module, method and description, for `Error`.
  std::unique_ptr<GK::GKError> error;
};

using Sample = std::vector<std::pair<std::string, GK::GKValue>>;

/// Writes what happens to an outlet, a line each. What observers see comes on the threads that
/// cause it, answers on those of the calls: all operations from any thread.
class Reporter : public GK::GKObserver {
public:
  Reporter(std::unique_ptr<Outlet> outlet, formats::LineKinds kinds);

  void onNotice(const GK::GKNotice& notice) final;
  void answer(const Answer& answer);
  void sample(GK::GKMicros time, const Sample& values);

  /// Writes whole lines that somebody has printed, as they are.
  void print(std::string_view lines);

  /// At the end: writes what waits for more of its kind.
  void finish();

  /// From now on nothing is reported.
  void mute();

  Outlet& outlet() noexcept { return *fOutlet; }

protected:
  /// These append whole lines, or nothing.
  virtual void xAppend(std::string& out, const GK::GKNotice& notice) = 0;
  virtual void xAppend(std::string& out, const Answer& answer) = 0;
  virtual void xAppend(std::string& out, GK::GKMicros time, const Sample& values) = 0;
  virtual void xAppendPrinted(std::string& out, std::string_view lines) { out += lines; }
  virtual void xFinish(std::string& /*out*/) {}

private:
  template <class... What> void xWrite(formats::LineKind kind, const What&... what);

  std::unique_ptr<Outlet> fOutlet;
  const formats::LineKinds fKinds;
  GK::GKPriorityMutex fMutex;
  bool fIsMuted = false;
  std::string fLine;
};

/// JSON Lines, the format for programs.
class JsonReporter : public Reporter {
public:
  using Reporter::Reporter;

protected:
  void xAppend(std::string& out, const GK::GKNotice& notice) override;
  void xAppend(std::string& out, const Answer& answer) override;
  void xAppend(std::string& out, GK::GKMicros time, const Sample& values) override;
};

/// Lines for people: time, what, value.
class ReadableReporter : public Reporter {
public:
  /// Shows log lines up to `logLevel`.
  ReadableReporter(std::unique_ptr<Outlet> outlet, formats::LineKinds kinds, int logLevel,
                   formats::LiveRows::Style style);

protected:
  void xAppend(std::string& out, const GK::GKNotice& notice) override;
  void xAppend(std::string& out, const Answer& answer) override;
  void xAppend(std::string& out, GK::GKMicros time, const Sample& values) override;
  void xAppendPrinted(std::string& out, std::string_view lines) override {
    fRows.appendLines(out, lines);
  }
  void xFinish(std::string& out) override { fRows.finish(out); }

private:
  void xRow(std::string& out, GK::GKMicros time, std::string_view kind, std::string_view name,
            std::string value, std::string_view colour);

  const int fLogLevel;
  formats::LiveRows fRows;
};

} // namespace gk::runtime
