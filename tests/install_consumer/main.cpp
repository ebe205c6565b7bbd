#include <meshcore/meshcore.h>

#include <cstdio>

int main() {
  std::printf("%s\n", meshcore::GetVersionString());
  return 0;
}
