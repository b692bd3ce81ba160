// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include <vorn/core/exception.hpp>

#include "support/test_filter.hpp"

namespace vorn {
namespace {

using test::TestFilter;

/// Counts the records alive, to see that they are shared, cloned and released as they should be.
struct CountedRecord : Record<CountedRecord> {
  CountedRecord() { ++alive; }
  CountedRecord(CountedRecord const& other) : Record(other), value(other.value) { ++alive; }
  ~CountedRecord() override { --alive; }
  int value = 0;
  static inline int alive = 0;
};

class Counted : public virtual ObjectBase {
public:
  Counted() : ObjectBase(new CountedRecord) {}
  int value() const { return static_cast<CountedRecord const&>(record()).value; }
  void setValue(int value) { static_cast<CountedRecord&>(ownRecord()).value = value; }
  int& reference() { return static_cast<CountedRecord&>(lendRecord()).value; }
  std::string const& getClassName() const override {
    static std::string const name = "vorn::Counted";
    return name;
  }
};

TEST(Object, CopiesShareTheirRecordUntilOneChanges) {
  {
    Counted a;
    Counted b = a;
    EXPECT_EQ(CountedRecord::alive, 1);
    b.setValue(5);
    EXPECT_EQ(CountedRecord::alive, 2);
    EXPECT_EQ(a.value(), 0);
    a = b;
    EXPECT_EQ(CountedRecord::alive, 1);
    EXPECT_EQ(a.value(), 5);
  }
  EXPECT_EQ(CountedRecord::alive, 0);
}

TEST(Object, AReferenceHandedOutNeverReachesIntoACopy) {
  Counted a;
  int& inside = a.reference();
  Counted const b = a;
  inside = 7;
  EXPECT_EQ(a.value(), 7);
  EXPECT_EQ(b.value(), 0);

  TestFilter filter;
  Property& radius = filter["Radius"];
  TestFilter const copy = filter;
  radius = 9;
  EXPECT_EQ(static_cast<int>(copy["Radius"]), 1);
}

TEST(Object, MovedFromAndFinalizedObjectsAreNullAndSaySo) {
  TestFilter a;
  a["Radius"] = 3;
  TestFilter b = std::move(a);
  EXPECT_EQ(static_cast<int>(b["Radius"]), 3);
  EXPECT_TRUE(a.isNull()); // NOLINT(bugprone-use-after-move): the state under test
  EXPECT_THROW(a["Radius"], Exception);
  a = b;
  EXPECT_EQ(static_cast<int>(a["Radius"]), 3);
  b.finalize();
  EXPECT_TRUE(b.isNull());
  EXPECT_FALSE(a.isNull());
  EXPECT_EQ(TestFilter(b).isNull(), true);
}

TEST(Object, CopiesMayLiveInDifferentThreads) {
  TestFilter const original;
  auto const work = [](TestFilter filter, int rounds) {
    for (int i = 0; i < rounds; ++i) {
      TestFilter copy = filter;
      copy["Radius"] = i % 32;
      ASSERT_EQ(static_cast<int>(copy["Radius"]), i % 32);
    }
  };
  constexpr int rounds = 2000;
  std::thread other(work, original, rounds);
  work(original, rounds);
  other.join();
  EXPECT_EQ(static_cast<int>(original["Radius"]), 1);
}

TEST(Object, ClassNameIsOneString) {
  std::string const* names[2] = {};
  std::thread first([&] { names[0] = &TestFilter().getClassName(); });
  std::thread second([&] { names[1] = &TestFilter().getClassName(); });
  first.join();
  second.join();
  EXPECT_EQ(names[0], names[1]);
  EXPECT_EQ(TestFilter().getInterfaces(),
            (std::vector<std::string>{"vorn::IObject", "vorn::IJsonSerializable"}));
}

} // namespace
} // namespace vorn
