#pragma once
// Runs the meshcore command inside the test process, capturing its output.

#include "tools/tool.h"

#include <cstdio>
#include <string>
#include <vector>

namespace meshcore::test {

struct Captured {
  int status = -1;
  std::string out, err;
};

inline std::string ReadBack(std::FILE* f) {
  std::string text;
  std::rewind(f);
  for (int c; (c = std::fgetc(f)) != EOF;)
    text += static_cast<char>(c);
  std::fclose(f);
  return text;
}

inline Captured RunInProcess(std::vector<std::string> args) {
  args.insert(args.begin(), "meshcore");
  std::vector<char*> argv;
  for (std::string& a : args)
    argv.push_back(a.data());
  tool::Output output;
  output.out = std::tmpfile();
  output.err = std::tmpfile();
  Captured c;
  c.status = tool::RunTool(static_cast<int>(argv.size()), argv.data(), output);
  c.out = ReadBack(output.out);
  c.err = ReadBack(output.err);
  return c;
}

} // namespace meshcore::test
