#include "gateway/robot/StatusWatch.h"
#include "gk/GKBrokerManager.h"
#include "gk/GKClock.h"
#include "gk/GKModule.h"
#include "gk/GKObserver.h"
#include "messages/text/FormatError.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace gk::gateway {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Row = std::vector<GK::GKValue>;

GK::GKValue oneRow(int value) {
  return Row{GK::GKValue(Row{"queue", "jobs", value, 0, ""})};
}

/// Why an answer is none.
std::string whyNoRows(const GK::GKValue& answer) {
  try {
    statusRows("M", answer);
  } catch (const messages::FormatError& error) {
    return error.what();
  }
  return "";
}

TEST(ModuleStatus, RowsAreTakenAsTheyAre) {
  const std::vector<StatusRow> rows =
      statusRows("M", Row{Row{"queue", "jobs", 12, 0, ""}, Row{"link", "", false, 2, "no cable"}});
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].module, "M");
  EXPECT_EQ(rows[0].told(), "queue: 12 jobs");
  EXPECT_EQ(rows[1].level, devices::Level::Error);
  EXPECT_EQ(rows[1].told(), "link: no cable");
}

TEST(ModuleStatus, WhatIsNoRowIsNamed) {
  const Row good{"queue", "jobs", 12, 0, ""};
  EXPECT_EQ(whyNoRows(42), "its answer is no array");
  EXPECT_EQ(whyNoRows(Row{good, Row{"a", "b", 1, 0}}),
            "row 2 of its answer is not [name, unit, value, level, text]");
  EXPECT_EQ(whyNoRows(Row{GK::GKValue(Row{1, "", 1, 0, ""})}),
            "row 1 of its answer has a name that is no text");
  EXPECT_EQ(whyNoRows(Row{GK::GKValue(Row{"", "", 1, 0, ""})}), "row 1 of its answer has no name");
  EXPECT_EQ(whyNoRows(Row{GK::GKValue(Row{"a", "", Row{}, 0, ""})}),
            "row 1 of its answer has an array for its value");
  for (const GK::GKValue& level : Row{3, -1, 1.0F, "1"}) {
    EXPECT_EQ(whyNoRows(Row{GK::GKValue(Row{"a", "", 1, level, ""})}),
              "row 1 of its answer has a level that is none of 0, 1 and 2");
  }
  EXPECT_EQ(whyNoRows(Row{good, good}), "row 2 of its answer has the name of another one: queue");
  EXPECT_EQ(whyNoRows(Row{GK::GKValue(Row{"a", "", 1, 0, std::string(kMaxStatusText, 'x')})}), "");
  EXPECT_EQ(whyNoRows(Row{GK::GKValue(Row{"a", "", 1, 0, std::string(kMaxStatusText + 1, 'x')})}),
            "row 1 of its answer has a text of more than 512 bytes");
}

TEST(ModuleStatus, NoMoreRowsThanALookTakesIn) {
  Row rows;
  for (std::size_t i = 0; i < kMaxStatusRows; ++i) {
    rows.push_back(Row{std::to_string(i), "", 1, 0, ""});
  }
  EXPECT_EQ(whyNoRows(rows), "");
  rows.push_back(Row{"more", "", 1, 0, ""});
  EXPECT_EQ(whyNoRows(rows), "its answer has more than 64 rows");
}

TEST(ModuleStatus, TextsCannotMakeUpLines) {
  const std::vector<StatusRow> rows =
      statusRows("M", Row{GK::GKValue(Row{"a", "", 1, 1, "x\n[+] all is well"})});
  EXPECT_EQ(rows[0].told(), "a: 1 (x?[+] all is well)");
}

/// Answers as a test wants it.
class Told : public GK::GKModule {
public:
  explicit Told(boost::shared_ptr<GK::GKBroker> broker) : GKModule(std::move(broker), "Told") {
    functionName("status", "Told", "How it is.");
    setReturn("rows", "Of name, unit, value, level and text.");
    bindMethod(&Told::status, this);
  }
  GK::GKValue status() {
    ++calls;
    return answer();
  }

  std::atomic<int> calls{0};
  std::function<GK::GKValue()> answer = [] { return oneRow(1); };
};

/// A method of the same name that means something else.
class Unrelated : public GK::GKModule {
public:
  explicit Unrelated(boost::shared_ptr<GK::GKBroker> broker)
      : GKModule(std::move(broker), "Unrelated") {
    functionName("status", "Unrelated", "A word.");
    setReturn("word", "Any.");
    bindMethod(&Unrelated::status, this);
  }
  std::string status() {
    ++calls;
    return "fine";
  }

  std::atomic<int> calls{0};
};

/// The log's lines while it is there.
class Warnings {
public:
  Warnings() { GK::GKObserverList::instance().add(fLines); }
  ~Warnings() { GK::GKObserverList::instance().remove(fLines); }
  Warnings(const Warnings&) = delete;
  Warnings& operator=(const Warnings&) = delete;

  int count(const std::string& part) const { return fLines->count(part); }

private:
  class Lines : public GK::GKObserver {
  public:
    void onNotice(const GK::GKNotice& notice) override {
      const std::lock_guard lock(fMutex);
      if (notice.kind == GK::GKNotice::Kind::Log) {
        fTexts.push_back(notice.text);
      }
    }
    int count(const std::string& part) const {
      const std::lock_guard lock(fMutex);
      return static_cast<int>(std::ranges::count_if(fTexts, [&part](const std::string& text) {
        return text.find(part) != std::string::npos;
      }));
    }

  private:
    mutable std::mutex fMutex;
    std::vector<std::string> fTexts;
  };

  boost::shared_ptr<Lines> fLines = boost::make_shared<Lines>();
};

class StatusWatchTest : public testing::Test {
protected:
  StatusWatchTest() {
    zu::log::setConsoleLevel(0);
    GK::GKClock::install(GK::makeRealClock());
    GK::GKBrokerManager::setInstance(manager);
    broker = boost::make_shared<GK::GKBroker>("test", manager);
    manager->addBroker(broker);
    module = boost::make_shared<Told>(broker);
    module->initModule();
    sut.open(std::make_shared<Robot>(broker));
  }
  ~StatusWatchTest() override {
    sut.open(nullptr);
    module.reset();
    broker->shutdown();
    broker.reset();
    GK::GKBrokerManager::setInstance(nullptr);
    GK::GKClock::install(nullptr);
  }

  void awaitAnswers() const {
    while (runner.running() > 0) {
      std::this_thread::yield();
    }
  }
  /// The rows after a look at this time.
  std::vector<std::string> toldAt(GK::GKMicros time) {
    sut.refresh(time);
    awaitAnswers();
    std::vector<std::string> told;
    for (const StatusRow& row : sut.rows()) {
      told.push_back(row.module + " " + row.told());
    }
    return told;
  }

  boost::shared_ptr<GK::GKBrokerManager> manager = boost::make_shared<GK::GKBrokerManager>();
  boost::shared_ptr<GK::GKBroker> broker;
  boost::shared_ptr<Told> module;
  CallRunner runner;
  StatusWatch sut{runner};
};

TEST_F(StatusWatchTest, AnAnswerIsKeptForASecond) {
  EXPECT_THAT(toldAt(0), ElementsAre("Told queue: 1 jobs"));
  module->answer = [] { return oneRow(2); };
  EXPECT_THAT(toldAt(StatusWatch::kPeriod - 1), ElementsAre("Told queue: 1 jobs"));
  EXPECT_EQ(module->calls, 1);
  EXPECT_THAT(toldAt(StatusWatch::kPeriod), ElementsAre("Told queue: 2 jobs"));
  EXPECT_EQ(module->calls, 2);
}

TEST_F(StatusWatchTest, AModuleThatRaisesIsToldOfOnceAndLeftAlone) {
  const Warnings log;
  module->answer = []() -> GK::GKValue { throw GK::GKError("Told", "status", "out of order"); };
  EXPECT_THAT(toldAt(0), IsEmpty());
  EXPECT_THAT(toldAt(StatusWatch::kPause - 1), IsEmpty());
  EXPECT_EQ(module->calls, 1);
  EXPECT_THAT(toldAt(StatusWatch::kPause), IsEmpty());
  EXPECT_EQ(module->calls, 2);
  EXPECT_EQ(log.count("out of order"), 1);
  module->answer = [] { return oneRow(3); };
  EXPECT_THAT(toldAt(2 * StatusWatch::kPause), ElementsAre("Told queue: 3 jobs"));
}

TEST_F(StatusWatchTest, RowsGoWhenTheMethodReturnsSomethingElse) {
  EXPECT_THAT(toldAt(0), ElementsAre("Told queue: 1 jobs"));
  module->answer = [] { return GK::GKValue(42); };
  EXPECT_THAT(toldAt(StatusWatch::kPeriod), IsEmpty());
}

TEST_F(StatusWatchTest, AModuleThatHangsHoldsNobodyUpAndIsNotCalledAgain) {
  std::atomic<bool> isReleased{false};
  module->answer = [&isReleased] {
    while (!isReleased) {
      std::this_thread::yield();
    }
    return oneRow(1);
  };
  const Warnings log;
  sut.refresh(0);
  sut.refresh(StatusWatch::kPatience);
  EXPECT_EQ(log.count("it has not returned for a second"), 0);
  sut.refresh(StatusWatch::kPatience + 1);
  sut.refresh(StatusWatch::kPause);
  EXPECT_EQ(log.count("it has not returned for a second"), 1);
  EXPECT_THAT(sut.rows(), IsEmpty());
  isReleased = true;
  awaitAnswers();
  // What came too late is no answer.
  EXPECT_THAT(sut.rows(), IsEmpty());
  EXPECT_EQ(module->calls, 1);
  EXPECT_THAT(toldAt(2 * StatusWatch::kPause), ElementsAre("Told queue: 1 jobs"));
}

TEST_F(StatusWatchTest, AMethodOfAnotherMeaningIsNeverCalled) {
  const auto other = boost::make_shared<Unrelated>(broker);
  other->initModule();
  EXPECT_THAT(toldAt(0), ElementsAre("Told queue: 1 jobs"));
  EXPECT_EQ(other->calls, 0);
}

} // namespace
} // namespace gk::gateway
