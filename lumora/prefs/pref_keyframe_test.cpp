#include "lumora/prefs/pref_keyframe.h"

#include <gtest/gtest.h>

#include "lumora/base/string.h"
#include "lumora/keys/keyframe.h"

namespace lumora {
namespace {

std::string commandOf(const TprefKeyframe& pref) {
  Tstring out;
  pref.writeAsCommand(out);
  return out.c_str();
}

TEST(TprefKeyframe, DefaultCommand) {
  const TprefKeyframe pref;
  EXPECT_EQ(pref.itemType(), 201);
  EXPECT_EQ(pref.flags(), 17u);
  EXPECT_EQ(commandOf(pref),
            "keyTangent -global -inTangentType spline -outTangentType spline "
            "-weightedTangents false;");
}

TEST(TprefKeyframe, CommandForOtherSettings) {
  TprefKeyframe pref;
  pref.setWeightedTangents(true);
  pref.setInTangentType(kTangentFlat);
  pref.setOutTangentType(kTangentStep);
  EXPECT_EQ(commandOf(pref),
            "keyTangent -global -inTangentType flat -outTangentType step -weightedTangents true;");
}

TEST(TprefKeyframe, UnnamedTypesWriteNothing) {
  TprefKeyframe pref;
  pref.setInTangentType(kTangentSmooth);
  EXPECT_EQ(commandOf(pref),
            "keyTangent -global -inTangentType -outTangentType spline -weightedTangents false;");
  pref.setInTangentType(static_cast<TtangentType>(77));
  pref.setOutTangentType(kTangentClampedSmooth);
  EXPECT_EQ(commandOf(pref),
            "keyTangent -global -inTangentType -outTangentType -weightedTangents false;");
}

TEST(TprefKeyframe, WritingAppends) {
  const TprefKeyframe pref;
  Tstring out("x");
  pref.writeAsCommand(out);
  pref.writeAsCommand(out);
  const std::string one = commandOf(pref);
  EXPECT_EQ(std::string(out.c_str()), "x" + one + one);
}

TEST(TprefKeyframe, RegisteredAtStartAsItem201) {
  TpreferenceItem* item = nullptr;
  ASSERT_TRUE(TglobalPrefMgr::global().getPrefItem(201, item));
  ASSERT_NE(item, nullptr);
  ASSERT_NE(TprefKeyframeTmeta, nullptr);
  EXPECT_TRUE(item->typeof()->istype(TprefKeyframeTmeta));
  EXPECT_TRUE(item->typeof()->istype(TpreferenceItemTmeta));
  EXPECT_STREQ(TprefKeyframeTmeta->name(), "TprefKeyframe");
  EXPECT_EQ(item->cast(TprefKeyframeTmeta), static_cast<void*>(item));
  EXPECT_EQ(TprefKeyframe::construct(nullptr), nullptr);
  EXPECT_EQ(TprefKeyframe::construct(TpreferenceItemTmeta), nullptr);
}

TEST(TprefKeyframe, KeysTakeTheirDefaultTypesFromTheItem) {
  TpreferenceItem* item = nullptr;
  ASSERT_TRUE(TglobalPrefMgr::global().getPrefItem(201, item));
  auto* pref = static_cast<TprefKeyframe*>(item);
  pref->setInTangentType(kTangentClamped);
  pref->setOutTangentType(kTangentLinear);
  const Tkeyframe k(0.0f, 1.0);
  Tkeyframe explicitIn(0.0f, 1.0, kTangentFlat, kTangentGlobal);
  pref->setInTangentType(kTangentSpline);
  pref->setOutTangentType(kTangentSpline);
  EXPECT_EQ(k.tanInType(), kTangentClamped);
  EXPECT_EQ(k.tanOutType(), kTangentLinear);
  EXPECT_EQ(explicitIn.tanInType(), kTangentFlat);
  explicitIn.setTanInType(kTangentGlobal);
  EXPECT_EQ(explicitIn.tanInType(), kTangentSpline);
}

}  // namespace
}  // namespace lumora
