#include "lumora/base/string.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <utility>
#include <vector>

namespace lumora {
namespace {

TEST(Tstring, ConstructionAndNullInputs) {
  EXPECT_TRUE(Tstring().empty());
  EXPECT_STREQ(Tstring().c_str(), "");
  EXPECT_STREQ(Tstring(nullptr).c_str(), "");
  EXPECT_EQ(Tstring(nullptr, 5).length(), 0u);
  const Tstring prefix("keyTangent", 3);
  EXPECT_STREQ(prefix.c_str(), "key");
  EXPECT_EQ(prefix.length(), 3u);

  // An explicit length keeps NUL bytes.
  const Tstring withNul("a\0b", 3);
  EXPECT_EQ(withNul.length(), 3u);
  EXPECT_EQ(std::memcmp(withNul.c_str(), "a\0b", 4), 0);
  EXPECT_FALSE(withNul == "a");

  Tstring s("abc");
  EXPECT_TRUE(s.set(nullptr) && s.empty());
  EXPECT_TRUE(s.set("xyz") && s.catenate(nullptr) && s.catenate(nullptr, 4));
  EXPECT_STREQ(s.c_str(), "xyz");
  EXPECT_TRUE(s.set("xyz", 0) && s.empty());
  EXPECT_TRUE(Tstring() == nullptr);
}

TEST(Tstring, CopiesShareUntilChanged) {
  const Tstring original("curve");
  Tstring copy = original;
  EXPECT_EQ(copy.c_str(), original.c_str());  // one block

  EXPECT_TRUE(copy.catenate("1"));
  EXPECT_STREQ(copy.c_str(), "curve1");
  EXPECT_STREQ(original.c_str(), "curve");

  Tstring second = original, third = original;
  EXPECT_TRUE(second.set("other"));
  third.clear();
  EXPECT_STREQ(second.c_str(), "other");
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
  EXPECT_TRUE(a.empty());  // NOLINT: moved-from state is documented
  b = std::move(moved);
  EXPECT_TRUE(b == Tstring("second") && !(b == Tstring("secon")));
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
  const Tstring shared("xy");
  Tstring copy = shared;
  EXPECT_TRUE(copy.catenate(copy));
  EXPECT_STREQ(copy.c_str(), "xyxy");
  EXPECT_STREQ(shared.c_str(), "xy");

  Tstring grown;
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(grown.catenate("0123456789"));
  EXPECT_EQ(std::strlen(grown.c_str()), grown.length());
  EXPECT_EQ(grown.length(), 10000u);
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
