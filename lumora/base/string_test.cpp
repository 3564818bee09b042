#include "lumora/base/string.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <utility>
#include <vector>

namespace lumora {
namespace {

TEST(Tstring, NullTextsAndExplicitLengths) {
  EXPECT_STREQ(Tstring().c_str(), "");
  EXPECT_STREQ(Tstring(nullptr).c_str(), "");
  EXPECT_EQ(Tstring(nullptr, 5).length(), 0u);
  EXPECT_STREQ(Tstring("keyTangent", 3).c_str(), "key");
  // An explicit length keeps NUL bytes.
  const Tstring withNul("a\0b", 3);
  EXPECT_EQ(withNul.length(), 3u);
  EXPECT_EQ(std::memcmp(withNul.c_str(), "a\0b", 4), 0);
  EXPECT_FALSE(withNul == "a" || Tstring("ab") == "ac");

  Tstring s("abc");
  EXPECT_TRUE(s.set(nullptr) && s.empty() && s == nullptr);
  EXPECT_TRUE(s.set("xyz") && s.catenate(nullptr) && s.catenate(nullptr, 4));
  EXPECT_STREQ(s.c_str(), "xyz");
  EXPECT_TRUE(s.set("xyz", 0) && s.empty());
}

TEST(Tstring, CopiesShareUntilChanged) {
  const Tstring original("curve");
  Tstring copy = original, second = original, third = original;
  EXPECT_EQ(copy.c_str(), original.c_str());  // one block
  EXPECT_TRUE(copy.catenate("1") && second.set("other"));
  third.clear();
  EXPECT_STREQ(copy.c_str(), "curve1");
  EXPECT_STREQ(second.c_str(), "other");
  EXPECT_STREQ(original.c_str(), "curve");

  Tstring a("first");
  a = second;
  EXPECT_EQ(a.c_str(), second.c_str());
  const Tstring& alias = a;
  a = alias;  // self-assignment keeps the contents
  Tstring moved(std::move(a));
  EXPECT_TRUE(a.empty());  // NOLINT: moved-from state is documented
  second = std::move(moved);
  EXPECT_TRUE(second == Tstring("other") && !(second == Tstring("othe")));

  // Once the other owners are gone a string changes its block in place.
  const char* block = second.c_str();
  EXPECT_TRUE(second.set("xy"));
  EXPECT_EQ(second.c_str(), block);
  EXPECT_STREQ(second.c_str(), "xy");
}

TEST(Tstring, CatenatesItsOwnCharacters) {
  // Each of the first three calls moves to a bigger block while reading the
  // old one; the last two work in place.
  Tstring s("ab");
  EXPECT_TRUE(s.catenate(s) && s.catenate(s));
  EXPECT_STREQ(s.c_str(), "abababab");
  EXPECT_TRUE(s.catenate(s.c_str() + 6, 2));
  EXPECT_STREQ(s.c_str(), "ababababab");
  EXPECT_TRUE(s.set(s.c_str() + 8) && s.catenate(s));
  EXPECT_STREQ(s.c_str(), "abab");

  // A shared block is never written, even with room to spare.
  const Tstring shared = s;
  EXPECT_TRUE(s.catenate(s));
  EXPECT_STREQ(s.c_str(), "abababab");
  EXPECT_STREQ(shared.c_str(), "abab");

  Tstring grown;
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(grown.catenate("0123456789"));
  EXPECT_EQ(std::strlen(grown.c_str()), grown.length());
  EXPECT_EQ(grown.length(), 10000u);
}

TEST(Tstring, CopiesReleasedOnTwoThreads) {
  Tstring original("shared across threads");
  std::vector<Tstring> left(20000, original), right(20000, original);
  const auto churn = [](std::vector<Tstring>& copies) {
    for (Tstring& s : copies) {
      Tstring extra = s;
      s.clear();
      if (extra.length() != 21) std::abort();
    }
  };
  std::thread a(churn, std::ref(left)), b(churn, std::ref(right));
  a.join();
  b.join();
  // Every count went back down: the original is the sole owner again and so
  // changes its block in place.
  const char* block = original.c_str();
  EXPECT_TRUE(original.set("done"));
  EXPECT_EQ(original.c_str(), block);
}

}  // namespace
}  // namespace lumora
