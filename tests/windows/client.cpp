// The system's header first, with all its macros.
#include <windows.h>

#include <cstdio>
#include <string>

#include "fusion_api.h"

std::string NameBehind();

int main() {
  FusionParam param;
  CBroveyFusion fusion(&param);
  fusion.Process();
  const bool same = NameBehind() == fusion::Methods().front().name;
  std::printf("%d %zu methods\n", fusion.GetLastErrorType(), fusion::Methods().size());
  return same && fusion.GetLastErrorType() != 0 ? 0 : 1;
}
