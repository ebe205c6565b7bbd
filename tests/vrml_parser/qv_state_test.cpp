#include "qv_test_util.h"

#include "meshcore/vrml_parser/qv_state.h"

#include <gtest/gtest.h>

#include <chrono>
#include <map>

using namespace meshcore;
using namespace meshcore::test;

namespace {

// What a shape callback saw.
struct Seen {
  std::string name;
  QV_NODE_TYPE type;
  const QvCoordinate3* coords;
  const QvMaterial* material;
  const QvTexture2* texture;
  int materialBinding;
  C4x4Matrix matrix;
  std::vector<const QvNode*> transforms;
};

struct Walk {
  explicit Walk(const std::string& body, const std::function<void(QvState&)>& setup = {})
      : parsed(kVrmlHeader + body) {
    state.SetErrorSink([this](const std::string& s) { errors += s; });
    state.SetShapeCallback([this](QvNode& shape, QvState& s) {
      seen.push_back({shape.GetName(),
                      shape.GetType(),
                      s.GetCoordinate3(),
                      s.GetMaterial(),
                      s.GetTexture2(),
                      s.GetMaterialBindingValue(),
                      s.GetMatrix(),
                      {s.GetTransformNodes().begin(), s.GetTransformNodes().end()}});
    });
    if (setup)
      setup(state);
    EXPECT_TRUE(parsed.graph) << parsed.errors();
    if (parsed.graph)
      ok = state.Traverse(*parsed.root());
  }
  const Seen& Shape(const std::string& name) const {
    for (const Seen& s : seen)
      if (s.name == name)
        return s;
    ADD_FAILURE() << "shape " << name << " not reached";
    return seen.front();
  }
  Parsed parsed;
  QvState state;
  std::vector<Seen> seen;
  std::string errors;
  bool ok = false;
};

float FirstX(const QvCoordinate3* c) {
  return c ? c->point.values.at(0)[0] : -999.0f;
}

void ExpectPoint(const C4x4Matrix& m, std::array<float, 3> in, std::array<float, 3> out) {
  const C4DVector r = m.Mult(in[0], in[1], in[2]);
  EXPECT_NEAR(out[0], r.x, 1e-5f);
  EXPECT_NEAR(out[1], r.y, 1e-5f);
  EXPECT_NEAR(out[2], r.z, 1e-5f);
}

} // namespace

TEST(QvState, SeparatorsScopePropertiesAndGroupsDoNot) {
  Walk w("Separator {\n"
         "  Coordinate3 { point 1 0 0 }\n"
         "  Material { diffuseColor 1 0 0 }\n"
         "  Separator {\n"
         "    Coordinate3 { point 2 0 0 }\n"
         "    Texture2 { filename \"wood.rgb\" }\n"
         "    MaterialBinding { value PER_FACE_INDEXED }\n"
         "    DEF inner IndexedFaceSet { coordIndex [ 0, 0, 0 ] }\n"
         "  }\n"
         "  DEF outer IndexedFaceSet { coordIndex [ 0, 0, 0 ] }\n"
         "  Group { Coordinate3 { point 3 0 0 } }\n"
         "  DEF afterGroup IndexedLineSet { coordIndex [ 0, 0 ] }\n"
         "  WWWAnchor { Coordinate3 { point 4 0 0 } }\n"
         "  DEF afterAnchor Sphere {}\n"
         "}\n");
  ASSERT_TRUE(w.ok);
  ASSERT_EQ(4u, w.seen.size());
  EXPECT_EQ(2.0f, FirstX(w.Shape("inner").coords));
  EXPECT_EQ("wood.rgb", w.Shape("inner").texture->filename.value);
  EXPECT_EQ(QV_BINDING_PER_FACE_INDEXED, w.Shape("inner").materialBinding);
  EXPECT_EQ(1.0f, FirstX(w.Shape("outer").coords));
  EXPECT_EQ(nullptr, w.Shape("outer").texture);
  EXPECT_EQ(QV_BINDING_OVERALL, w.Shape("outer").materialBinding);
  EXPECT_EQ(w.Shape("inner").material, w.Shape("outer").material);
  EXPECT_EQ(1.0f, w.Shape("inner").material->diffuseColor.values[0][0]);
  EXPECT_EQ(3.0f, FirstX(w.Shape("afterGroup").coords));
  EXPECT_EQ(QV_NODE_TYPE::IndexedLineSet, w.Shape("afterGroup").type);
  EXPECT_EQ(3.0f, FirstX(w.Shape("afterAnchor").coords));
}

TEST(QvState, TransformationsAccumulateInFileOrder) {
  Walk w("Separator {\n"
         "  Translation { translation 1 0 0 }\n"
         "  Rotation { rotation 0 0 1 1.5707963 }\n"
         "  Scale { scaleFactor 2 2 2 }\n"
         "  DEF a Cube {}\n"
         "  TransformSeparator {\n"
         "    MatrixTransform { matrix 1 0 0 0  0 1 0 0  0 0 1 0  0 0 5 1 }\n"
         "    Material { diffuseColor 0 0 1 }\n"
         "    DEF b Cube {}\n"
         "  }\n"
         "  DEF c Cube {}\n"
         "}\n"
         "DEF d Cube {}\n");
  ASSERT_TRUE(w.ok);
  // Scaled first, then turned a quarter turn about z, then moved.
  ExpectPoint(w.Shape("a").matrix, {1, 0, 0}, {1, 2, 0});
  ExpectPoint(w.Shape("b").matrix, {1, 0, 0}, {1, 2, 10});
  // The matrix's move along z (in its last row, as written) is scaled too.
  ExpectPoint(w.Shape("b").matrix, {0, 0, 0}, {1, 0, 10});
  // The transform separator restored the matrix but not the material.
  ExpectPoint(w.Shape("c").matrix, {0, 0, 0}, {1, 0, 0});
  EXPECT_EQ(0.0f, w.Shape("c").material->diffuseColor.values[0][0]);
  EXPECT_TRUE(w.Shape("d").matrix.IsIdentity());
  EXPECT_EQ(3u, w.Shape("a").transforms.size());
  EXPECT_EQ(4u, w.Shape("b").transforms.size());
  EXPECT_EQ(3u, w.Shape("c").transforms.size());
}

TEST(QvState, TransformNodeMatchesItsDecomposition) {
  const std::string parts = "translation 1 2 3 rotation 0 1 0 0.7 scaleFactor 2 3 4 "
                            "scaleOrientation 1 0 0 0.4 center 0.5 -1 2";
  Walk one("Separator { Transform { " + parts + " } DEF s Cube {} }");
  Walk many("Separator {\n"
            "  Translation { translation 1 2 3 }\n"
            "  Translation { translation 0.5 -1 2 }\n"
            "  Rotation { rotation 0 1 0 0.7 }\n"
            "  Rotation { rotation 1 0 0 0.4 }\n"
            "  Scale { scaleFactor 2 3 4 }\n"
            "  Rotation { rotation 1 0 0 -0.4 }\n"
            "  Translation { translation -0.5 1 -2 }\n"
            "  DEF s Cube {}\n"
            "}");
  for (std::array<float, 3> p : {std::array<float, 3>{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 2, 3}}) {
    const C4DVector want = many.Shape("s").matrix.Mult(p[0], p[1], p[2]);
    ExpectPoint(one.Shape("s").matrix, p, {want.x, want.y, want.z});
  }
}

TEST(QvState, SwitchLodAndCallbacksByType) {
  std::map<QV_NODE_TYPE, int> typed;
  Walk w("Separator {\n"
         "  Switch { DEF hidden Cube {} }\n"
         "  Switch { whichChild 1 DEF no Cube {} DEF yes Cube {} }\n"
         "  Switch { whichChild -3 DEF all1 Sphere {} DEF all2 Sphere {} }\n"
         "  Switch { whichChild 0 Group { Switch { whichChild -2 DEF inherited Cone {} } } }\n"
         "  Switch { whichChild 7 DEF outOfRange Cube {} }\n"
         "  LOD { range [ 10 ] DEF detailed Cylinder {} DEF coarse Cylinder {} }\n"
         "}\n",
         [&](QvState& s) {
           s.SetCallback(QV_NODE_TYPE::Sphere,
                         [&](QvNode&, QvState&) { ++typed[QV_NODE_TYPE::Sphere]; });
         });
  ASSERT_TRUE(w.ok);
  std::vector<std::string> names;
  for (const Seen& s : w.seen)
    names.push_back(s.name);
  // Spheres went to their own callback only.
  EXPECT_EQ(std::vector<std::string>({"yes", "inherited", "detailed"}), names);
  EXPECT_EQ(2, typed[QV_NODE_TYPE::Sphere]);
  EXPECT_EQ(5u, w.state.GetShapeCount());
}

TEST(QvState, VertexPropertyAppliesToItsShapeOnly) {
  Walk w("Separator {\n"
         "  Coordinate3 { point 1 0 0 }\n"
         "  DEF own IndexedFaceSet {\n"
         "    vertexProperty VertexProperty { vertex [ 5 0 0, 6 0 0, 7 0 0 ] }\n"
         "    coordIndex [ 0, 1, 2 ]\n"
         "  }\n"
         "  DEF plain IndexedFaceSet { coordIndex [ 0, 0, 0 ] }\n"
         "  VertexProperty { vertex 8 0 0 }\n"
         "  DEF afterNode IndexedFaceSet { coordIndex [ 0, 0, 0 ] }\n"
         "}\n");
  ASSERT_TRUE(w.ok);
  EXPECT_EQ(5.0f, FirstX(w.Shape("own").coords));
  EXPECT_EQ(1.0f, FirstX(w.Shape("plain").coords));
  EXPECT_EQ(8.0f, FirstX(w.Shape("afterNode").coords));
}

TEST(QvState, ExponentialGraphsAndDeepNestingAreBounded) {
  const auto start = std::chrono::steady_clock::now();
  std::string chain = "Separator {\nDEF g0 Cube {}\n";
  std::string groupsOnly = "Separator {\nDEF g0 Info {}\n";
  for (int i = 1; i <= 60; ++i) {
    const std::string prev = "g" + std::to_string(i - 1);
    chain += "DEF g" + std::to_string(i) + " Group { USE " + prev + " USE " + prev + " }\n";
    groupsOnly += "DEF g" + std::to_string(i) + " Group { USE " + prev + " USE " + prev + " }\n";
  }
  chain += "}\n";
  groupsOnly += "}\n";

  const auto countOnly = [](QvState& s) { s.SetShapeCallback([](QvNode&, QvState&) {}); };
  Walk shapes(chain, countOnly);
  EXPECT_FALSE(shapes.ok);
  EXPECT_EQ(QvState::kDefaultShapeBudget, shapes.state.GetShapeCount() - 1);
  EXPECT_EQ("VRML error in QvState::Traverse(): More than 1048576 shapes; the graph is too large "
            "to walk\n",
            shapes.errors);

  Walk visits(groupsOnly, countOnly);
  EXPECT_FALSE(visits.ok);
  EXPECT_NE(std::string::npos, visits.errors.find("More than 16777216 node visits"));

  Walk small(chain, [](QvState& s) { s.SetShapeBudget(10); });
  EXPECT_EQ(10u, small.seen.size());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));

  std::string nested;
  for (int i = 0; i < 30; ++i)
    nested += "Group { ";
  nested += "Cube {}" + std::string(30, '}');
  Walk deep(nested, [](QvState& s) { s.SetMaxDepth(20); });
  EXPECT_FALSE(deep.ok);
  EXPECT_TRUE(deep.seen.empty());
  EXPECT_NE(std::string::npos, deep.errors.find("nested deeper than 20 levels"));

  // Nesting just inside the reader's limit is read and walked to the bottom.
  std::string legal;
  for (int i = 0; i < QvReader::kMaxDepth - 1; ++i)
    legal += "Separator {\n";
  legal += "DEF bottom Cube {}" + std::string(QvReader::kMaxDepth - 1, '}');
  Walk legalDeep(legal);
  EXPECT_TRUE(legalDeep.ok);
  ASSERT_EQ(1u, legalDeep.seen.size());
  EXPECT_EQ("bottom", legalDeep.seen[0].name);

  // A callback can end the walk, and the next walk starts afresh.
  Walk stopped("Separator { Cube {} Cube {} Cube {} }", [](QvState& s) {
    s.SetCallback(QV_NODE_TYPE::Cube, [](QvNode&, QvState& st) { st.Stop(); });
  });
  EXPECT_TRUE(stopped.state.IsStopped());
  EXPECT_EQ(1u, stopped.state.GetShapeCount());
  EXPECT_TRUE(stopped.state.Traverse(*stopped.parsed.root()));
  EXPECT_EQ(1u, stopped.state.GetShapeCount());
}
