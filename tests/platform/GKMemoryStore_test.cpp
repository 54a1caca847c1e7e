#include "gk/GKMemoryPlace.h"
#include "gk/GKMemoryStore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <functional>
#include <limits>
#include <thread>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace GK {
namespace {

constexpr const char* kHead = "Device/SubDeviceList/Head/Position/Sensor/Value";

/// Reads and writes four bytes as modules do.
template <class T> T readAt(void* address) {
  return GKMemoryPlace<T>(address).load();
}
template <class T> void writeAt(void* address, T value) {
  GKMemoryPlace<T>(address).store(value);
}

TEST(GKMemoryStore, KeyIsThereOnceItHasAValue) {
  GKMemoryStore sut;
  EXPECT_EQ(sut.find(kHead), nullptr);
  EXPECT_EQ(sut.get(kHead), std::nullopt);

  sut.set(kHead, 1.5f);

  EXPECT_EQ(sut.get(kHead), GKValue(1.5f));
  EXPECT_EQ(sut.find(kHead), &sut.cell(kHead));
}

TEST(GKMemoryStore, CellWithoutValueIsNoKeyYet) {
  GKMemoryStore sut;

  GKMemoryCell& cell = sut.cell(kHead);
  EXPECT_FALSE(cell.exists());
  EXPECT_EQ(sut.find(kHead), nullptr);
  EXPECT_THAT(sut.keys(), IsEmpty());
  EXPECT_EQ(sut.size(), 0U);

  cell.storeFloat(0.0f);
  EXPECT_TRUE(cell.exists());
  EXPECT_EQ(sut.find(kHead), &cell);
  EXPECT_THAT(sut.keys(), ElementsAre(kHead));
  EXPECT_EQ(sut.size(), 1U);
}

TEST(GKMemoryStore, InvalidIsAValueToo) {
  GKMemoryStore sut;

  sut.set(kHead, GKValue());

  ASSERT_NE(sut.find(kHead), nullptr);
  EXPECT_EQ(sut.get(kHead), GKValue());
}

TEST(GKMemoryStore, KeysAreSorted) {
  GKMemoryStore sut;
  sut.set("b", 1);
  sut.set("", 2);
  sut.set("a", 3);

  EXPECT_THAT(sut.keys(), ElementsAre("", "a", "b"));
}

TEST(GKMemoryStore, EveryTypeComesBackAsItWas) {
  GKMemoryStore sut;
  const std::vector<GKValue> values = {
      GKValue(),
      true,
      false,
      std::numeric_limits<std::int32_t>::min(),
      -0.5f,
      std::numeric_limits<float>::infinity(),
      "",
      "text",
      GKValue::Array{},
      GKValue::Array{1, "x", GKValue(GKValue::Array{2.0f})},
  };
  for (const GKValue& from : values) {
    for (const GKValue& to : values) {
      sut.set(kHead, from);
      sut.set(kHead, to);
      EXPECT_EQ(sut.get(kHead), to) << from.typeName() << " to " << to.typeName();
    }
  }
}

TEST(GKMemoryStore, NanKeepsItsBits) {
  GKMemoryStore sut;
  const float nan = std::bit_cast<float>(0x7fc12345u);

  sut.set(kHead, nan);

  EXPECT_EQ(std::bit_cast<std::uint32_t>(sut.get(kHead)->toFloat()), 0x7fc12345u);
  EXPECT_EQ(readAt<std::int32_t>(sut.cell(kHead).address()), 0x7fc12345);
}

TEST(GKMemoryStore, AddressHoldsTheBitsOfScalarsAndZeroForAllElse) {
  GKMemoryStore sut;
  void* const address = sut.cell(kHead).address();

  sut.set(kHead, 1.5f);
  EXPECT_EQ(readAt<float>(address), 1.5f);
  sut.set(kHead, -7);
  EXPECT_EQ(readAt<std::int32_t>(address), -7);
  sut.set(kHead, true);
  EXPECT_EQ(readAt<std::int32_t>(address), 1);
  sut.set(kHead, false);
  EXPECT_EQ(readAt<std::int32_t>(address), 0);

  for (const GKValue& other : {GKValue(), GKValue("text"), GKValue(GKValue::Array{1})}) {
    sut.set(kHead, 1.5f);
    sut.set(kHead, other);
    EXPECT_EQ(readAt<std::int32_t>(address), 0) << other.typeName();
  }
}

TEST(GKMemoryStore, WhatIsWrittenThroughTheAddressIsTheValue) {
  GKMemoryStore sut;
  void* const address = sut.cell(kHead).address();

  sut.set(kHead, 0.0f);
  writeAt(address, 2.5f);
  EXPECT_EQ(sut.get(kHead), GKValue(2.5f));

  sut.set(kHead, 0);
  writeAt(address, std::int32_t(-3));
  EXPECT_EQ(sut.get(kHead), GKValue(-3));

  sut.set(kHead, false);
  writeAt(address, std::int32_t(1));
  EXPECT_EQ(sut.get(kHead), GKValue(true));
}

TEST(GKMemoryStore, ScalarShortcutsChangeTheTypeToo) {
  GKMemoryStore sut;
  GKMemoryCell& cell = sut.cell(kHead);

  cell.store("text");
  cell.storeInt(3);
  EXPECT_EQ(cell.load(), GKValue(3));
  cell.storeFloat(1.5f);
  EXPECT_EQ(cell.load(), GKValue(1.5f));
}

TEST(GKMemoryStore, AddressesStayWhateverIsInsertedLater) {
  constexpr int kLater = 1000000;
  constexpr int kWatched = 100;
  GKMemoryStore sut;
  std::vector<void*> addresses;
  for (int i = 0; i < kWatched; ++i) {
    GKMemoryCell& cell = sut.cell("watched" + std::to_string(i));
    cell.storeInt(i);
    addresses.push_back(cell.address());
  }

  for (int i = 0; i < kLater; ++i) {
    sut.cell("later" + std::to_string(i)).storeInt(i);
  }

  for (int i = 0; i < kWatched; ++i) {
    const std::string key = "watched" + std::to_string(i);
    void* const address = addresses[static_cast<std::size_t>(i)];
    EXPECT_EQ(sut.cell(key).address(), address);
    EXPECT_EQ(readAt<std::int32_t>(address), i);
    writeAt(address, std::int32_t(-i));
    EXPECT_EQ(sut.get(key), GKValue(-i));
  }
  EXPECT_EQ(sut.get("later999999"), GKValue(999999));
  EXPECT_EQ(sut.size(), static_cast<std::size_t>(kLater + kWatched));
}

/// Runs `work` in several threads at once, each with its number.
void inThreads(int count, const std::function<void(int)>& work) {
  std::atomic<int> ready = 0;
  std::vector<std::jthread> threads;
  for (int number = 0; number < count; ++number) {
    threads.emplace_back([&, number] {
      ++ready;
      while (ready != count) {
        std::this_thread::yield();
      }
      work(number);
    });
  }
}

TEST(GKMemoryStoreWithThreads, EachKeyGetsOneCell) {
  constexpr int kThreads = 4;
  constexpr int kKeys = 2000;
  GKMemoryStore sut;
  std::vector<std::vector<GKMemoryCell*>> cells(kThreads);

  inThreads(kThreads, [&](int thread) {
    for (int i = 0; i < kKeys; ++i) {
      cells[static_cast<std::size_t>(thread)].push_back(&sut.cell("key" + std::to_string(i)));
    }
  });

  for (const auto& seen : cells) {
    EXPECT_EQ(seen, cells.front());
  }
  for (GKMemoryCell* cell : cells.front()) {
    cell->storeInt(0);
  }
  EXPECT_EQ(sut.size(), static_cast<std::size_t>(kKeys));
}

TEST(GKMemoryStoreWithThreads, WritesThroughTheAddressAndReadsDoNotRace) {
  constexpr int kRounds = 20000;
  GKMemoryStore sut;
  GKMemoryCell& cell = sut.cell(kHead);
  cell.storeFloat(0.0f);

  inThreads(3, [&](int thread) {
    float last = 0.0f;
    for (int round = 1; round <= kRounds; ++round) {
      if (thread == 0) {
        writeAt(cell.address(), static_cast<float>(round));
      } else {
        const float now = thread == 1 ? cell.load().toFloat() : readAt<float>(cell.address());
        EXPECT_GE(now, last);
        last = now;
      }
    }
  });

  EXPECT_EQ(cell.load(), GKValue(static_cast<float>(kRounds)));
}

/// Values of all types none of which has the bits of another one.
const std::vector<GKValue>& distinctValues() {
  static const std::vector<GKValue> values = {1.5f,
                                              7,
                                              true,
                                              GKValue(),
                                              "a text that is too long to be kept in place",
                                              -2.5f,
                                              123456,
                                              GKValue::Array{1, 2, 3}};
  return values;
}

bool isOneOf(const GKValue& value, const std::vector<GKValue>& values) {
  return std::find(values.begin(), values.end(), value) != values.end();
}

/// Reads the key many times while `writers` write to it again and again, each in a thread of its
/// own; expects one of `values` at each reading.
void readWhileWriting(GKMemoryStore& sut, const std::vector<std::function<void(int)>>& writers,
                      const std::vector<GKValue>& values) {
  constexpr int kReads = 500000;
  const int reader = static_cast<int>(writers.size());
  std::atomic<bool> isDone = false;
  inThreads(reader + 1, [&](int thread) {
    if (thread < reader) {
      for (int round = 0; !isDone; ++round) {
        writers[static_cast<std::size_t>(thread)](round);
      }
      return;
    }
    for (int read = 0; read < kReads && !testing::Test::HasFailure(); ++read) {
      const std::optional<GKValue> value = sut.get(kHead);
      EXPECT_TRUE(value.has_value()) << "an existing key stays there";
      EXPECT_TRUE(!value || isOneOf(*value, values)) << value->typeName();
    }
    isDone = true;
  });
}

TEST(GKMemoryStoreWithThreads, ReaderSeesNothingButWhatWasStoredWhileTheTypeChanges) {
  GKMemoryStore sut;
  sut.set(kHead, distinctValues().front());

  readWhileWriting(sut, {[&](int round) {
                     const auto index = static_cast<std::size_t>(round) % distinctValues().size();
                     sut.set(kHead, distinctValues()[index]);
                   }},
                   distinctValues());
}

TEST(GKMemoryStoreWithThreads, WritersOfDifferentTypesNeverMixTheirValues) {
  GKMemoryStore sut;
  sut.set(kHead, 1.5f);

  readWhileWriting(
      sut,
      {[&](int) { sut.set(kHead, 1.5f); }, [&](int) { sut.set(kHead, 7); },
       [&](int round) { sut.set(kHead, round % 2 == 0 ? GKValue("text") : GKValue(-2.5f)); }},
      {1.5f, 7, "text", -2.5f});
}

TEST(GKMemoryStoreWithThreads, KeysAppearWhileOthersAreRead) {
  constexpr int kKeys = 5000;
  GKMemoryStore sut;

  inThreads(2, [&](int thread) {
    for (int i = 0; i < kKeys; ++i) {
      const std::string key = "key" + std::to_string(i);
      if (thread == 0) {
        sut.set(key, i);
      } else {
        const std::optional<GKValue> value = sut.get(key);
        EXPECT_TRUE(!value || *value == GKValue(i));
      }
    }
  });

  EXPECT_EQ(sut.keys().size(), static_cast<std::size_t>(kKeys));
}

} // namespace
} // namespace GK
