// Feeds arbitrary text to the VRML parser and walks whatever graph comes out: every
// input must end in a graph or none, without crashes, leaks, hangs or runaway memory.

#include "meshcore/vrml_parser/qv_graph.h"
#include "meshcore/vrml_parser/qv_nodes.h"
#include "meshcore/vrml_parser/qv_state.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace meshcore;
  // Most inputs should get past the header, so the fuzzer may pick one of ours.
  std::string text;
  if (size > 0 && data[0] < 3) {
    static const char* const kHeaders[] = {"#VRML V1.0 ascii\n", "#Inventor V2.1 ascii\n",
                                           "#Inventor V2.0 ascii\n"};
    text = kHeaders[data[0]];
    text.append(reinterpret_cast<const char*>(data) + 1, size - 1);
  } else {
    text.assign(reinterpret_cast<const char*>(data), size);
  }
  QvTextSource in;
  in.SetErrorSink([](const std::string&) {});
  in.SetBuffer(std::move(text));
  std::unique_ptr<QvGraph> graph = QvGraph::Read(in);
  if (!graph)
    return 0;

  QvState state;
  state.SetErrorSink([](const std::string&) {});
  state.SetShapeBudget(10000);
  state.SetVisitBudget(100000);
  std::size_t touched = 0;
  state.SetShapeCallback([&](QvNode& shape, QvState& s) {
    // Look at what a codec would read.
    if (const QvCoordinate3* c = s.GetCoordinate3())
      touched += c->point.values.size();
    if (const QvMaterial* m = s.GetMaterial())
      touched += m->diffuseColor.values.size();
    if (shape.GetType() == QV_NODE_TYPE::IndexedFaceSet)
      touched += static_cast<QvIndexedFaceSet&>(shape).coordIndex.values.size();
    touched += s.GetTransformNodes().size();
    touched += s.GetMatrix().IsIdentity() ? 1 : 0;
  });
  state.Traverse(*graph->GetRoot());
  return touched == 0xFFFFFFFF ? 1 : 0;
}
