#include "meshcore/platform/version.h"

namespace meshcore {

const char* GetVersionString() {
  return "0.1.0";
}

} // namespace meshcore
