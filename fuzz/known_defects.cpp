#include "fuzz/known_defects.h"

#include <iterator>
#include <string>

namespace lumora::fuzz {
namespace {

constexpr const char* kWorkaroundNames[] = {
    "remove-all",      "removal-handles",    "forgotten-keys",        "silent-key-objects",
    "owning-insert",   "tangent-type-range", "snapshot-deletes-keys", "static-flag",
    "auto-tangents",   "no-update-order",    "block-mode-remove",     "weighting-undo",
    "insert-overflow", "cycle-key-image",    "linear-span-bit",       "undo-key-content"};
static_assert(std::size(kWorkaroundNames) == kWorkaroundCount, "one name per workaround");
bool gStrict[kWorkaroundCount] = {};

}  // namespace

void readStrictSetting(const char* setting) {
  if (!setting) return;
  const std::string s = "," + std::string(setting) + ",";
  const bool all = s == ",all," || s == ",1,";
  for (unsigned w = 0; w < kWorkaroundCount; ++w) {
    gStrict[w] = all || s.find("," + std::string(kWorkaroundNames[w]) + ",") != std::string::npos;
  }
}

bool workaround(Tworkaround w) {
  return !gStrict[w];
}

}  // namespace lumora::fuzz
