// OBJ text into scenes: corner forms, indices, nodes, materials and the text
// forms that files in the wild come in.

#include "obj_test_util.h"
#include "tests/support/mesh_fixtures.h"
#include "tests/support/test_env.h"

#include <cmath>
#include <fstream>

using namespace meshcore;
using namespace meshcore::objtest;

namespace {

class WavefrontRead : public ::testing::Test {
protected:
  static void SetUpTestSuite() { InitMeshcore(); }
};

void WriteFile(const std::filesystem::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

const char* kSquare = "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\n";

} // namespace

TEST_F(WavefrontRead, CornerFormsShareMeshPointsAndKeepSeamsInChannels) {
  // Two quads over a shared edge, written in the four corner forms; the second
  // quad uses other texture coordinates on the shared points (a seam) and
  // negative indices.
  std::string text = std::string(kSquare) + "v 2 0 0\nv 2 1 0\n"
                                            "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nvt 0.5 0.25 0.75\n"
                                            "vn 0 0 1\n"
                                            "f 1/1/1 2/2/1 3/3/1 4/4/1\n"
                                            "f -5/-1/-1 -2/-2/-1 -1/-3/-1 -4/-4/-1\n"
                                            "f 1 2 3\nf 1//1 2//1 3//1\nf 1/1 2/2 3/3\n";
  auto r = ReadObjText(text);
  ASSERT_TRUE(r.scene) << r.detail;
  auto nodes = GeometryNodes(*r.scene);
  ASSERT_EQ(nodes.size(), 1u);
  C3DBaseObject* o = nodes[0]->GetBaseObject();
  EXPECT_EQ(o->GetPointNbr(), 6);
  ASSERT_EQ(o->GetFaceNbr(), 5);
  // Faces run the other way round: the first corner of the file is the last.
  const C3DPointList& points = *o->GetPointList();
  const C3DFace& f0 = (*o->GetFaceList())[0];
  EXPECT_EQ(points[f0[3]].x, 0.0f);
  EXPECT_EQ(points[f0[0]].y, 1.0f);
  const C3DFace& f1 = (*o->GetFaceList())[1];
  EXPECT_EQ(f1[3], f0[2]); // -5 of six vertices is vertex 2, shared with the first quad
  EXPECT_EQ(points[f1[1]].x, 2.0f);
  // The shared point has different texture points in the two faces.
  EXPECT_EQ(CornerUV(o, 0, 2).u, 1.0f); // vertex 2, vt 2 = (1, 0)
  // Vertex 2, vt -1 = (0.5, 0.25, 0.75); the model's v runs downwards.
  EXPECT_TRUE(CornerUV(o, 1, 3) == CUVWPoint(0.5f, -0.25f, 0.75f));
  // Channels stay parallel to the mesh; corners without a coordinate share a default.
  auto* uvw = FirstChannel<CUVWChannel>(o, CHANNEL_UVW);
  ASSERT_TRUE(uvw);
  EXPECT_EQ(uvw->GetID(), o->GetGlobalUVWChannel());
  EXPECT_EQ(uvw->GetUVWFaceList()->GetSize(), o->GetFaceNbr());
  EXPECT_EQ(CornerUV(o, 2, 0).u, 0.0f);
  EXPECT_EQ((*uvw->GetUVWFaceList())[2][0], (*uvw->GetUVWFaceList())[3][1]);
  // One normal everywhere: a point normal channel, valid.
  auto* normals = FirstChannel<CPointNormalChannel>(o, CHANNEL_POINT_NORMAL);
  ASSERT_TRUE(normals);
  EXPECT_TRUE(normals->IsValid());
  EXPECT_EQ((*normals->GetNormalList())[0].z, 1.0f);
}

TEST_F(WavefrontRead, NormalsAndColoursTakeTheModelsPerPointOrPerFaceForm) {
  // A hard edge: point 2 and 3 carry two normals, but each face has one.
  auto r = ReadObjText("v 0 0 0 1 0 0\nv 1 0 0 0 1 0\nv 1 1 0 0 0 1\nv 0 1 0\nv 2 0 1\n"
                       "vn 0 0 1\nvn 1 0 0\n"
                       "f 1//1 2//1 3//1 4//1\nf 2//2 5//2 3//2\n");
  ASSERT_TRUE(r.scene) << r.detail;
  C3DBaseObject* o = GeometryNodes(*r.scene)[0]->GetBaseObject();
  EXPECT_FALSE(FirstChannel<CPointNormalChannel>(o, CHANNEL_POINT_NORMAL));
  auto* faceNormals = FirstChannel<CFaceNormalChannel>(o, CHANNEL_FACE_NORMAL);
  ASSERT_TRUE(faceNormals);
  EXPECT_EQ((*faceNormals->GetNormalList())[1].x, 1.0f);
  // Colours: per vertex; a vertex without one is white.
  auto* vc = FirstChannel<CVCChannel>(o, CHANNEL_VC);
  ASSERT_TRUE(vc);
  const CVCFaceList& vf = *vc->GetVCFaceList();
  EXPECT_TRUE((*vc->GetVCPointList())[vf[0][3]].GetColor() == CRGBColor(255, 0, 0, 255));
  EXPECT_TRUE((*vc->GetVCPointList())[vf[0][0]].GetColor() == CRGBColor(255, 255, 255, 255));

  // Per-corner normals that fit neither form are averaged per point.
  r = ReadObjText("v 0 0 0\nv 1 0 0\nv 0 1 0\nv 1 1 0\nvn 1 0 0\nvn 0 1 0\n"
                  "f 1//1 2//1 3//2\nf 2//2 4//2 3//1\n");
  ASSERT_TRUE(r.scene);
  auto* pn = FirstChannel<CPointNormalChannel>(GeometryNodes(*r.scene)[0]->GetBaseObject(),
                                               CHANNEL_POINT_NORMAL);
  ASSERT_TRUE(pn);
  EXPECT_NEAR((*pn->GetNormalList())[1].x, std::sqrt(0.5f), 1e-6);
}

TEST_F(WavefrontRead, ObjectsGroupsLinesAndPointsBecomeNodesInFileOrder) {
  auto r = ReadObjText(std::string(kSquare) + "f 1 2 3\n"
                                              "o my robot\ng left arm\nf 1 2 3 4\n"
                                              "g right\nf 2 3 4\nl 1 2 3\nl 3 4\np 1 2 -1\n"
                                              "g left\nf 1 3 4\n"
                                              "o plain\nf 4 3 2\n");
  ASSERT_TRUE(r.scene) << r.detail;
  auto nodes = GeometryNodes(*r.scene);
  ASSERT_EQ(nodes.size(), 7u);
  // Per node: name, kind, points (only those its faces use) and faces. The
  // faces before any `o` or `g` come first, named by the import; "g left arm"
  // puts the face in the first group; the `p` points are a node of their own.
  std::string summary;
  for (C3DSceneNode* n : nodes)
    summary += (n == nodes[0] ? "-" : n->GetName()) +
               (n->GetBaseObject()->GetKindOf() == OBJECT_CURVE ? " curve " : " mesh ") +
               std::to_string(n->GetBaseObject()->GetPointNbr()) + "/" +
               std::to_string(n->GetBaseObject()->GetFaceNbr()) + " ";
  EXPECT_EQ(summary, "- mesh 3/1 left mesh 4/2 right mesh 3/1 right curve 3/0 right curve 2/0 "
                     "right mesh 3/0 plain mesh 3/1 ");
  EXPECT_EQ(r.scene->GetParent(nodes[1])->GetName(), "my robot");
  EXPECT_TRUE(r.scene->IsSceneRoot(r.scene->GetParent(nodes[6])));

  // Smoothing groups: all off gives a flat object, anything else the usual angle.
  r = ReadObjText(std::string(kSquare) + "o flat\ns off\nf 1 2 3\no smooth\ns 2\nf 1 3 4\n");
  ASSERT_TRUE(r.scene);
  nodes = GeometryNodes(*r.scene);
  EXPECT_EQ(nodes[0]->GetBaseObject()->GetSmoothAngle(), 0.0f);
  EXPECT_NE(nodes[1]->GetBaseObject()->GetSmoothAngle(), 0.0f);
}

TEST_F(WavefrontRead, MaterialsComeFromTheLibrariesBesideTheFile) {
  auto dir = test::ScratchDir("obj_mtl");
  std::filesystem::create_directories(dir / "sub");
  WriteFile(dir / "sub" / "first lib.mtl",
            "newmtl red paint\nKa 0.5 0 0\nKd 1 0 0\nKs 0.25\nd 0.75\n"
            "map_Kd -s 2 2 -o 0.5 -bm 1 -clamp on textures\\red wall.png\n"
            "map_bump -bm 2 bump.png\n"
            "newmtl glass\nTr 0.5\nmap_d mask.png\nmap_Ka -o 1 amb.png\nmap_Ks shine.png\n");
  WriteFile(dir / "b.mtl", "newmtl red paint\nKd 0 1 0\nnewmtl blue\nKd 0 0 1\nillum 2\nNs 10\n");
  const std::string obj = std::string("mtllib sub/first lib.mtl\nmtllib b.mtl missing.mtl\n") +
                          kSquare +
                          "usemtl red paint\nf 1 2 3\nusemtl nowhere\nf 1 3 4\n"
                          "usemtl blue\nf 2 3 4\nusemtl glass\nl 1 2\n";
  auto r = ReadObjText(obj, dir.string());
  ASSERT_TRUE(r.scene) << r.detail;
  C3DScene& s = *r.scene;
  C3DObject* o = *GeometryNodes(s)[0]->GetBaseObject();
  const C3DFaceList& faces = *o->GetFaceList();
  C3DMaterial* red = s.GetMaterial(faces[0].GetMaterialID());
  ASSERT_TRUE(red);
  EXPECT_EQ(red->GetName(), "red paint");
  EXPECT_TRUE(red->GetDiffuseColor() == CRGBColor(255, 0, 0, 255)); // the first definition wins
  EXPECT_TRUE(red->GetAmbientColor() == CRGBColor(128, 0, 0, 255));
  EXPECT_TRUE(red->GetSpecularColor() == CRGBColor(64, 64, 64, 255)); // one value for three
  EXPECT_EQ(red->GetAmbientFactor(), 1.0f);
  EXPECT_FLOAT_EQ(red->GetTransparencyFactor(), 0.25f);
  ASSERT_TRUE(red->GetDiffuseMaps());
  EXPECT_EQ(red->GetDiffuseMaps()->GetFileName(), "textures/red wall.png");
  EXPECT_EQ(faces[1].GetMaterialID(), 0u); // an unknown material: the default one
  EXPECT_EQ(s.GetMaterial(faces[2].GetMaterialID())->GetName(), "blue");
  C3DMaterial* glass =
      s.GetMaterial(static_cast<C3DCurve*>(GeometryNodes(s)[1]->GetBaseObject())->GetMaterialID());
  EXPECT_EQ(glass->GetName(), "glass");
  EXPECT_EQ(glass->GetTransparencyFactor(), 0.5f);
  EXPECT_EQ(glass->GetTransparencyMaps()->GetFileName(), "mask.png");
  EXPECT_EQ(glass->GetAmbientMaps()->GetFileName(), "amb.png");
  EXPECT_EQ(glass->GetSpecularMaps()->GetFileName(), "shine.png");

  // Without the libraries the file still loads, every face on the default material.
  r = ReadObjText(obj);
  ASSERT_TRUE(r.scene);
  o = *GeometryNodes(*r.scene)[0]->GetBaseObject();
  for (int f = 0; f < o->GetFaceNbr(); ++f)
    EXPECT_EQ((*o->GetFaceList())[f].GetMaterialID(), 0u);

  // Libraries that are folders, devices or the file itself are skipped.
  WriteFile(dir / "self.obj", std::string("mtllib self.obj\nmtllib sub\nmtllib /dev/zero\n") +
                                  kSquare + "usemtl x\nf 1 2 3\n");
  C3DIo io((dir / "self.obj").string(), FILE_PARSER_SILENT);
  std::unique_ptr<C3DScene> scene(io.Read());
  ASSERT_TRUE(scene) << io.GetIoErrorDetail();
  EXPECT_EQ(scene->GetMaterialNumber(), 1);
}

TEST_F(WavefrontRead, TextFormsAndNumberForms) {
  const std::string plain = "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3";
  // CRLF, CR, a byte-order mark, no final line feed, comments, continuation
  // lines and odd blanks all give the same triangle.
  for (std::string text :
       {plain, std::string("\xEF\xBB\xBF") + plain,
        std::string("# c\r\nv 0 0 0\r\nv 1 0 0\rv 0 1 0\r\nf 1 2 3\r\n"),
        std::string("v 0 0 0 # origin\nv 1 \\\n 0 0\nv\t0\v1\f0 \nf 1 \\\n2 \\\n3 # end\n\n")}) {
    auto r = ReadObjText(text);
    ASSERT_TRUE(r.scene) << r.detail;
    C3DBaseObject* o = GeometryNodes(*r.scene)[0]->GetBaseObject();
    ASSERT_EQ(o->GetFaceNbr(), 1);
    EXPECT_EQ((*o->GetPointList())[1].x, 1.0f);
    EXPECT_EQ((*o->GetPointList())[0].y, 1.0f); // corners reversed: file vertex 3 first
  }
  // UTF-16 of both byte orders, with a name outside ASCII.
  const std::u16string wide = u"o T\u00e9te\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n";
  for (bool little : {true, false}) {
    std::string bytes = little ? "\xFF\xFE" : "\xFE\xFF";
    for (char16_t c : wide) {
      char lo = char(c & 0xFF), hi = char(c >> 8);
      bytes += little ? std::string{lo, hi} : std::string{hi, lo};
    }
    auto r = ReadObjText(bytes);
    ASSERT_TRUE(r.scene) << r.detail;
    EXPECT_EQ(GeometryNodes(*r.scene)[0]->GetName(), "T\xC3\xA9te");
  }
  // Number forms; a number followed by junk reads as its leading part.
  auto r = ReadObjText("v +1 .5 2.\nv -1e2 +2.E-1 3.1+e2\nv 1e10 -.25e+1 0\nf 1 2 3\n");
  ASSERT_TRUE(r.scene) << r.detail;
  const C3DBaseObject& o = *GeometryNodes(*r.scene)[0]->GetBaseObject();
  EXPECT_EQ((std::vector<test::P3>{test::At(o, 0), test::At(o, 1), test::At(o, 2)}),
            (std::vector<test::P3>{{1e10f, -2.5f, 0}, {-100, 0.2f, 3.1f}, {1, 0.5f, 2}}));
  // NaN, infinities and words are refused with the line that holds them.
  for (const char* bad : {"v nan 0 0\n", "v 0 inf 0\n", "v 0 0 -infinity\n", "v 0 x 0\n"}) {
    auto b = ReadObjText(std::string("v 0 0 0\n") + bad);
    EXPECT_FALSE(b.scene);
    EXPECT_EQ(b.error, IO_FILE_BAD_FORMAT);
    EXPECT_NE(b.detail.find("line 2"), std::string::npos) << b.detail;
  }
}
