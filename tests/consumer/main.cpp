// A user's program: links the installed library and uses its public headers.
#include <cstdio>

#include <lumora/lumora.h>

#include "readme_example.h"

int main() {
  using namespace lumora;
  Tkeyframe key(1.0f, 2.5, kTangentGlobal, kTangentGlobal);
  if (key.tanInType() != kTangentSpline) return 1;

  TpreferenceItem* item = nullptr;
  if (!TglobalPrefMgr::global().getPrefItem(TprefKeyframe::kItemNumber, item) || !item) return 2;
  Tstring line;
  item->writeAsCommand(line);
  std::printf("%s\n", line.c_str());

  // The README's example samples a cycling curve after an undone removal.
  std::printf("readme example: %.17g\n", readmeExample());
  return 0;
}
