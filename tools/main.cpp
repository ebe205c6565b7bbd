// The meshcore command: inspect and convert 3D files.
#include "tools/tool.h"

#include <unistd.h>

int main(int argc, char** argv) {
  meshcore::tool::Output output;
  output.progress = isatty(STDERR_FILENO) != 0;
  return meshcore::tool::RunTool(argc, argv, output);
}
