// The meshcore command: inspect and convert 3D files.
#include "meshcore/meshcore.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace {

void PrintUsage(std::FILE* out) {
  std::fprintf(out, "usage: meshcore [--version] [--help] <command> [args]\n"
                    "\n"
                    "commands:\n"
                    "  demo        build a small mesh in memory and describe it\n");
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    PrintUsage(stderr);
    return 2;
  }
  std::string cmd = argv[1];
  if (cmd == "demo") {
    std::printf("meshcore %s: nothing to demonstrate yet\n", meshcore::GetVersionString());
    return 0;
  }
  if (cmd == "--version" || cmd == "version") {
    std::printf("meshcore %s\n", meshcore::GetVersionString());
    return 0;
  }
  if (cmd == "--help" || cmd == "-h" || cmd == "help") {
    PrintUsage(stdout);
    return 0;
  }
  std::fprintf(stderr, "meshcore: unknown command '%s'\n", cmd.c_str());
  PrintUsage(stderr);
  return 2;
}
