#include "lumora/base/string.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <utility>
#include <vector>

namespace lumora {
namespace {

TEST(Tstring, ConstructionAndNullInputs) {
  const Tstring empty;
  EXPECT_STREQ(empty.c_str(), "");
  EXPECT_TRUE(empty.empty());

  const Tstring fromNull(nullptr);
  const Tstring fromNullWithLength(nullptr, 5);
  EXPECT_STREQ(fromNull.c_str(), "");
  EXPECT_EQ(fromNullWithLength.length(), 0u);

  const Tstring prefix("keyTangent", 3);
  EXPECT_STREQ(prefix.c_str(), "key");
  EXPECT_EQ(prefix.length(), 3u);

  // An explicit length keeps NUL bytes.
  const Tstring withNul("a\0b", 3);
  EXPECT_EQ(withNul.length(), 3u);
  EXPECT_EQ(std::memcmp(withNul.c_str(), "a\0b", 4), 0);
  EXPECT_FALSE(withNul == "a");

  Tstring s("abc");
  EXPECT_TRUE(s.set(nullptr));
  EXPECT_TRUE(s.empty());
  EXPECT_TRUE(s.set("xyz"));
  EXPECT_TRUE(s.catenate(nullptr));
  EXPECT_TRUE(s.catenate(nullptr, 4));
  EXPECT_TRUE(s.set("xyz", 0));
  EXPECT_TRUE(s.empty());
  EXPECT_TRUE(Tstring() == nullptr);
}

TEST(Tstring, CopiesShareUntilChanged) {
  const Tstring original("curve");
  Tstring copy = original;
  EXPECT_EQ(copy.c_str(), original.c_str());  // one block

  EXPECT_TRUE(copy.catenate("1"));
  EXPECT_STREQ(copy.c_str(), "curve1");
  EXPECT_STREQ(original.c_str(), "curve");

  Tstring second = original;
  EXPECT_TRUE(second.set("other"));
  EXPECT_STREQ(original.c_str(), "curve");
  EXPECT_STREQ(second.c_str(), "other");

  Tstring third = original;
  third.clear();
  EXPECT_STREQ(original.c_str(), "curve");

  // Once the other owners are gone a string changes its block in place.
  Tstring sole("abcdef");
  const char* block = sole.c_str();
  EXPECT_TRUE(sole.set("xy"));
  EXPECT_EQ(sole.c_str(), block);
  EXPECT_STREQ(sole.c_str(), "xy");
}

TEST(Tstring, AssignmentAndMove) {
  Tstring a("first");
  Tstring b("second");
  a = b;
  EXPECT_EQ(a.c_str(), b.c_str());
  const Tstring& alias = a;
  a = alias;  // self-assignment keeps the contents
  EXPECT_STREQ(a.c_str(), "second");

  Tstring moved(std::move(a));
  EXPECT_STREQ(moved.c_str(), "second");
  EXPECT_TRUE(a.empty());  // NOLINT: moved-from state is documented
  b = std::move(moved);
  EXPECT_STREQ(b.c_str(), "second");
  EXPECT_TRUE(b == Tstring("second"));
  EXPECT_FALSE(b == Tstring("secon"));
}

TEST(Tstring, CatenatesItsOwnCharacters) {
  Tstring s("ab");
  EXPECT_TRUE(s.catenate(s));
  EXPECT_STREQ(s.c_str(), "abab");
  EXPECT_TRUE(s.catenate(s));  // now in place: doubling left room
  EXPECT_STREQ(s.c_str(), "abababab");
  EXPECT_TRUE(s.catenate(s.c_str() + 6, 2));
  EXPECT_STREQ(s.c_str(), "ababababab");
  EXPECT_TRUE(s.set(s.c_str() + 8));
  EXPECT_STREQ(s.c_str(), "ab");

  // The same through a shared block.
  Tstring shared("xy");
  Tstring copy = shared;
  EXPECT_TRUE(copy.catenate(copy));
  EXPECT_STREQ(copy.c_str(), "xyxy");
  EXPECT_STREQ(shared.c_str(), "xy");

  Tstring grown;
  for (int i = 0; i < 1000; ++i) EXPECT_TRUE(grown.catenate("0123456789"));
  EXPECT_EQ(grown.length(), 10000u);
  EXPECT_EQ(std::strlen(grown.c_str()), 10000u);
}

TEST(Tstring, CopiesReleasedOnTwoThreads) {
  Tstring original("shared across threads");
  constexpr int kCopies = 20000;
  std::vector<Tstring> left(kCopies, original);
  std::vector<Tstring> right(kCopies, original);
  const auto churn = [](std::vector<Tstring>& copies) {
    for (Tstring& s : copies) {
      Tstring extra = s;
      s.clear();
      if (extra.length() != 21) std::abort();
    }
  };
  std::thread a(churn, std::ref(left));
  std::thread b(churn, std::ref(right));
  a.join();
  b.join();
  EXPECT_STREQ(original.c_str(), "shared across threads");
  // Every count went back down: the original is the sole owner again and so
  // changes its block in place.
  const char* block = original.c_str();
  EXPECT_TRUE(original.set("done"));
  EXPECT_EQ(original.c_str(), block);
}

}  // namespace
}  // namespace lumora
