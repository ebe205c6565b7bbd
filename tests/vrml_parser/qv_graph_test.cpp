#include "qv_test_util.h"

#include <gtest/gtest.h>

#include <chrono>

using namespace meshcore;
using namespace meshcore::test;

namespace {

std::string Vrml(const std::string& body) {
  return kVrmlHeader + body;
}

} // namespace

TEST(QvGraph, ReadsNodesFieldsAndChildren) {
  Parsed p(Vrml("Separator {\n"
                "  renderCulling OFF\n"
                "  Material { diffuseColor [ 1 0 0, 0 1 0 ] transparency 0.5 }\n"
                "  Cone { parts (SIDES|BOTTOM) height 3 }\n"
                "  Switch { whichChild 0 Group { Cube { width 4 } } }\n"
                "}\n"));
  ASSERT_TRUE(p.graph);
  EXPECT_EQ("", p.errors());
  QvGroup* sep = p.group();
  ASSERT_EQ(QV_NODE_TYPE::Separator, sep->GetType());
  EXPECT_EQ(QvSeparator::OFF, static_cast<QvSeparator*>(sep)->renderCulling.value);
  ASSERT_EQ(3u, sep->children.size());
  auto* mat = static_cast<QvMaterial*>(sep->children[0]);
  EXPECT_EQ(2, mat->diffuseColor.GetNum());
  EXPECT_EQ(0.5f, mat->transparency.values[0]);
  EXPECT_EQ(QvCone::ALL, static_cast<QvCone*>(sep->children[1])->parts.value);
  auto* sw = static_cast<QvSwitch*>(sep->children[2]);
  ASSERT_EQ(1u, sw->children.size());
  EXPECT_EQ(QV_NODE_TYPE::Group, sw->children[0]->GetType());
  EXPECT_EQ(6u, p.graph->GetNodeCount());
}

TEST(QvGraph, DefAndUseShareNodesAndTheLastDefWins) {
  Parsed p(Vrml("Separator {\n"
                "  DEF box Cube { width 1 }\n"
                "  USE box\n"
                "  DEF box Cube { width 2 }\n"
                "  USE box\n"
                "  DEF Wheel_1 Sphere {}\n"
                "}\n"));
  ASSERT_TRUE(p.graph);
  EXPECT_EQ("", p.errors());
  auto& kids = p.group()->children;
  ASSERT_EQ(5u, kids.size());
  EXPECT_EQ(kids[0], kids[1]);
  EXPECT_EQ(kids[2], kids[3]);
  EXPECT_NE(kids[0], kids[2]);
  EXPECT_EQ("box", kids[3]->GetName());
  EXPECT_EQ("Wheel_1", kids[4]->GetName());
  EXPECT_EQ(2.0f, static_cast<QvCube*>(kids[3])->width.value);
}

TEST(QvGraph, NodeMessages) {
  struct Case {
    const char* body;
    const char* message;
    int line;
  };
  const Case cases[] = {
      {"Separator { USE nothing }", "Unknown reference \"nothing\"", 2},
      {"Separator {\n DEF", "Premature end of file after DEF", 3},
      {"Separator {\n USE ", "Premature end of file after USE", 3},
      {"DEF { }", "No name given after", 2},
      {"DEF 1abc Cube {}", "Invalid definition of 1abc", 2},
      {"DEF a.b Cube {}", "Invalid definition of a.b", 2},
      {"Cube 5", "Expected '{'; got '5'", 2},
      {"Cube", "Expected '{'; got EOF", 2},
      {"Cube {\n", "Expected '}'; got EOF", 3},
      {"Cube { color 1 0 0 }", "Unknown field \"color\"", 2},
      // In a node with children, a word is a child only when a body follows it.
      {"Separator { bogus 1 Cube { } }", "Unknown field \"bogus\"", 2},
      {"Ext { fields [ SFFloat size ] colour 2 Cube { } }", "Unknown field \"colour\"", 2},
      {"Cube { width x }", "Couldn't read value for field \"width\"", 2},
      {"Cube { [ }", "Expected '}'; got '['", 2},
      {"Ext { fields [ SFNoSuchType t ] }", "Bad field specifications for node", 2},
      {"Ext { fields [ SFFloat ] }", "Bad field specifications for node", 2},
  };
  for (const Case& c : cases) {
    Parsed p(Vrml(c.body));
    EXPECT_FALSE(p.graph) << c.body;
    EXPECT_EQ(ReadError(c.message, c.line), p.errors()) << c.body;
  }
}

TEST(QvGraph, InventorNamesAndIgnoreFlags) {
  Parsed p("#Inventor V2.1 ascii\n"
           "Separator {\n"
           "  DEF +0 Material { ambientColor 0.2 0.2 0.2 ~ shininess ~ }\n"
           "  USE +0\n"
           "  IndexedFaceSet {\n"
           "    vertexProperty VertexProperty { vertex [ 0 0 0, 1 0 0, 0 1 0 ] texCoord [] }\n"
           "    coordIndex [ 0, 1, 2, -1 ]\n"
           "  }\n"
           "  PointSet { vertexProperty NULL }\n"
           "}\n");
  ASSERT_TRUE(p.graph);
  EXPECT_EQ("", p.errors());
  auto& kids = p.group()->children;
  ASSERT_EQ(4u, kids.size());
  EXPECT_EQ(kids[0], kids[1]);
  EXPECT_TRUE(static_cast<QvMaterial*>(kids[0])->shininess.IsDefault());
  auto* ifs = static_cast<QvIndexedFaceSet*>(kids[2]);
  ASSERT_TRUE(ifs->vertexProperty.value);
  auto* vp = static_cast<QvVertexProperty*>(ifs->vertexProperty.value);
  EXPECT_EQ(3, vp->vertex.point.GetNum());
  EXPECT_EQ(0, vp->texCoord.point.GetNum());
  EXPECT_EQ(4, ifs->coordIndex.GetNum());
  EXPECT_EQ(nullptr, static_cast<QvPointSet*>(kids[3])->vertexProperty.value);
}

TEST(QvGraph, UnknownClassesAreSkippedAndSelfDescribingOnesRead) {
  Parsed p(Vrml("Separator {\n"
                "  DEF strip Strips { label \"a } in a string\" inner { x 1 } # } in a comment\n"
                "  }\n"
                "  USE strip\n"
                "  Extension { fields [ SFFloat size, MFString isA, SFEnum mode ]\n"
                "    size 2 isA [ \"Cube\" ] mode FAST\n"
                "    Cube { }\n"
                "  }\n"
                "  Cube { fields [ SFFloat width ] width 3 }\n"
                "  Sphere { }\n"
                "}\n"));
  ASSERT_TRUE(p.graph);
  EXPECT_EQ(ReadError("Unknown class \"Strips\"", 3), p.errors());
  auto& kids = p.group()->children;
  ASSERT_EQ(5u, kids.size());
  EXPECT_EQ(QV_NODE_TYPE::Unknown, kids[0]->GetType());
  EXPECT_EQ("Strips", kids[0]->GetClassName());
  EXPECT_EQ(kids[0], kids[1]);
  auto* ext = static_cast<QvUnknownNode*>(kids[2]);
  EXPECT_EQ("Extension", ext->GetClassName());
  ASSERT_TRUE(ext->GetField("size"));
  EXPECT_EQ(2.0f, static_cast<QvSFFloat*>(ext->GetField("size"))->value);
  EXPECT_EQ(std::vector<std::string>({"Cube"}),
            static_cast<QvMFString*>(ext->GetField("isA"))->values);
  ASSERT_EQ(1u, ext->children.size());
  EXPECT_EQ(3.0f, static_cast<QvCube*>(kids[3])->width.value);
  EXPECT_EQ(QV_NODE_TYPE::Sphere, kids[4]->GetType());

  Parsed open(Vrml("Separator { Strips { \"}\n"));
  EXPECT_FALSE(open.graph);
  EXPECT_NE(std::string::npos, open.errors().find("EOF reached before end of string"));
}

TEST(QvGraph, TopLevelNodesAndExtraCharacters) {
  Parsed two(Vrml("Cube {}\nSphere {}\n"));
  ASSERT_TRUE(two.graph);
  EXPECT_EQ(QV_NODE_TYPE::Group, two.root()->GetType());
  EXPECT_EQ(2u, two.group()->children.size());

  Parsed extra(Vrml("Separator { Cube {} }\n}\n"));
  ASSERT_TRUE(extra.graph); // what came before is kept
  EXPECT_EQ(QV_NODE_TYPE::Separator, extra.root()->GetType());
  EXPECT_EQ(ReadError("Extra characters ('}') found in input", 3), extra.errors());

  Parsed empty(Vrml("# nothing but a comment\n"));
  EXPECT_FALSE(empty.graph);
  EXPECT_EQ("", empty.errors());
}

TEST(QvGraph, HostileInputFailsCleanlyAndQuickly) {
  const auto start = std::chrono::steady_clock::now();
  {
    std::string deep = kVrmlHeader;
    for (int i = 0; i < 10000; ++i)
      deep += "Group {\n";
    Parsed p(deep);
    EXPECT_FALSE(p.graph);
    EXPECT_EQ(ReadError("Nodes nested deeper than 1000 levels", 1002), p.errors());
  }
  {
    // Unknown bodies nest without recursion, however deep.
    std::string deep = Vrml("Separator { Foo ");
    deep += std::string(100000, '{') + std::string(100000, '}') + " }";
    Parsed p(deep);
    EXPECT_TRUE(p.graph);
  }
  {
    // Millions of tiny nodes would take a hundred times their text in memory.
    std::string many = Vrml("Separator {\n");
    for (std::size_t i = 0; i < QvReader::kMaxNodes; ++i)
      many += "Group{}";
    Parsed p(many + "}");
    EXPECT_FALSE(p.graph);
    EXPECT_EQ(ReadError("More than 1048576 nodes in file", 3), p.errors());
  }
  {
    std::string fields = Vrml("Ext { fields [ SFFloat f0");
    for (std::size_t i = 1; i <= QvUnknownNode::kMaxDeclaredFields; ++i)
      fields += ", SFFloat f" + std::to_string(i);
    Parsed p(fields + " ] }");
    EXPECT_EQ(ReadError("Bad field specifications for node", 2), p.errors());
  }
  {
    Parsed p(Vrml("Separator { Coordinate3 { point [ 1 2 3, 4 5"));
    EXPECT_FALSE(p.graph);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}
