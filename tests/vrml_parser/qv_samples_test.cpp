#include "qv_test_util.h"

#include "meshcore/vrml_parser/qv_state.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>

using namespace meshcore;

namespace {

// Every IndexedFaceSet in the graph, each once however often it is used.
void CollectFaceSets(QvNode* node, std::set<QvNode*>& visited, std::set<QvNode*>& faceSets) {
  if (!visited.insert(node).second)
    return;
  if (node->GetType() == QV_NODE_TYPE::IndexedFaceSet)
    faceSets.insert(node);
  if (node->CanHaveChildren())
    for (QvNode* child : static_cast<QvGroup*>(node)->children)
      CollectFaceSets(child, visited, faceSets);
}

} // namespace

TEST(QvSamples, EveryInventorSampleParsesAndEveryFaceSetIsReached) {
  const std::filesystem::path dir = std::filesystem::path(MESHCORE_SAMPLES_DIR) / "inventor";
  ASSERT_TRUE(std::filesystem::is_directory(dir)) << dir;
  int files = 0;
  std::size_t totalFaceSets = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    if (entry.path().extension() != ".iv")
      continue;
    ++files;
    SCOPED_TRACE(entry.path().filename().string());
    QvTextSource in;
    std::string errors;
    in.SetErrorSink([&](const std::string& s) { errors += s; });
    ASSERT_TRUE(in.SetFile(entry.path().string()));
    std::unique_ptr<QvGraph> graph = QvGraph::Read(in);
    ASSERT_TRUE(graph) << errors;
    // Only Inventor node types we do not know may be reported.
    const std::string unknownClass = "VRML read error: Unknown class \"";
    for (std::size_t pos = errors.find("VRML"); pos != std::string::npos;
         pos = errors.find("VRML", pos + 1))
      EXPECT_EQ(0, errors.compare(pos, unknownClass.size(), unknownClass)) << errors;

    std::set<QvNode*> visited, faceSets, reached;
    CollectFaceSets(graph->GetRoot(), visited, faceSets);
    QvState state;
    state.SetCallback(QV_NODE_TYPE::IndexedFaceSet, [&](QvNode& shape, QvState& s) {
      reached.insert(&shape);
      const QvCoordinate3* coords = s.GetCoordinate3();
      ASSERT_TRUE(coords);
      EXPECT_GT(coords->point.GetNum(), 0);
    });
    EXPECT_TRUE(state.Traverse(*graph->GetRoot()));
    EXPECT_FALSE(faceSets.empty());
    EXPECT_EQ(faceSets, reached);
    totalFaceSets += faceSets.size();
  }
  EXPECT_EQ(18, files);
  EXPECT_EQ(174u, totalFaceSets);
}
