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

TEST(TprefKeyframe, CommandNamesTheTypesItKnows) {
  const TprefKeyframe defaults;
  EXPECT_EQ(defaults.flags(), 17u);
  EXPECT_EQ(commandOf(defaults),
            "keyTangent -global -inTangentType spline -outTangentType spline "
            "-weightedTangents false;");
  struct Row {
    TtangentType in, out;
    bool weighted;
    const char* command;
  } const rows[] = {
      {kTangentFlat, kTangentStep, true,
       "keyTangent -global -inTangentType flat -outTangentType step -weightedTangents true;"},
      // Types without a name in the command write nothing after the flag.
      {kTangentSmooth, kTangentSpline, false,
       "keyTangent -global -inTangentType -outTangentType spline -weightedTangents false;"},
      {static_cast<TtangentType>(77), kTangentClampedSmooth, false,
       "keyTangent -global -inTangentType -outTangentType -weightedTangents false;"},
  };
  for (const Row& r : rows) {
    TprefKeyframe pref;
    pref.setWeightedTangents(r.weighted);
    pref.setInTangentType(r.in);
    pref.setOutTangentType(r.out);
    EXPECT_EQ(commandOf(pref), r.command);
  }
  // Writing appends to what the string holds.
  Tstring out("x");
  defaults.writeAsCommand(out);
  defaults.writeAsCommand(out);
  EXPECT_EQ(std::string(out.c_str()), "x" + commandOf(defaults) + commandOf(defaults));
}

TEST(TprefKeyframe, RegisteredAtStartAsItem201) {
  TpreferenceItem* item = nullptr;
  ASSERT_TRUE(TglobalPrefMgr::global().getPrefItem(201, item));
  ASSERT_NE(item, nullptr);
  ASSERT_NE(TprefKeyframeTmeta, nullptr);
  EXPECT_EQ(item->itemType(), 201);
  EXPECT_TRUE(item->typeof()->istype(TprefKeyframeTmeta));
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
