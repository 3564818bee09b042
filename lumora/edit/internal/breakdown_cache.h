// The breakdown records of the edit under way on one curve.
//
//   TbreakdownCache cache;
//   cache.append(curve.getBreakdownData(index));   // takes ownership
//   int at = cache.find(key);                       // -1 when not recorded
//
// Records are kept in the order they were made and found by key object in
// constant time, so gathering the breakdown keys of many moved keys stays
// linear. Not installed.
#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "lumora/edit/breakdown.h"

namespace lumora::internal {

class TbreakdownCache {
 public:
  /// Appends `record` (owned from now on); null is ignored.
  void append(TbreakdownData* record);
  /// The position of the record of `key`, or -1.
  int find(const Tkeyframe* key) const;
  unsigned count() const { return static_cast<unsigned>(fRecords.size()); }
  TbreakdownData* at(unsigned i) const { return i < fRecords.size() ? fRecords[i].get() : nullptr; }

 private:
  std::vector<std::unique_ptr<TbreakdownData>> fRecords;
  std::unordered_map<const Tkeyframe*, int> fByKey;
};

}  // namespace lumora::internal
