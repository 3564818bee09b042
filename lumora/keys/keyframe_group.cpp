#include "lumora/keys/keyframe_group.h"

namespace lumora {

bool TkeyframeGroup::operator<(const TkeyframeGroup& other) const {
  if (fTime < other.fTime) return true;
  if (other.fTime < fTime) return false;
  if (fNumCurves != other.fNumCurves) return fNumCurves < other.fNumCurves;
  if (fNumSelected != other.fNumSelected) return fNumSelected < other.fNumSelected;
  return fFlags < other.fFlags;
}

}  // namespace lumora
