// The tool's command code (all of tools/ but main), built into the tests so that
// commands can run in-process against codecs that the tests register.
#include "tools/commands.cpp"
#include "tools/demo_scene.cpp"
#include "tools/runner.cpp"
#include "tools/scene_report.cpp"
