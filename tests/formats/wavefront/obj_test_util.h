#pragma once
// Reading OBJ text held in a string, and comparing scenes the way the format
// can carry them: per node its points, faces, materials and per-corner values.

#include "meshcore/formats/library.h"
#include "meshcore/formats/wavefront/wavefront_io.h"
#include "meshcore/io/file_io.h"
#include "meshcore/io/io_3d.h"
#include "meshcore/mesh/dependent_channels.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/face_normal_channel.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/mesh/point_normal_channel.h"
#include "meshcore/mesh/uvw_channel.h"
#include "meshcore/mesh/vc_channel.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/material_map.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

namespace meshcore::objtest {

struct ReadResult {
  std::unique_ptr<C3DScene> scene;
  int error = 1;
  std::string detail;
};

inline ReadResult ReadObjText(const std::string& text, const std::string& folder = {}) {
  C3DIo io("memory.obj", FILE_PARSER_SILENT);
  CWavefrontIo codec(io);
  ReadResult r;
  r.scene.reset(codec.ReadFromMemory(text.data(), text.size(), 0, folder));
  r.error = io.GetIoError();
  r.detail = io.GetIoErrorDetail();
  return r;
}

// The nodes that hold geometry, in scene order.
inline std::vector<C3DSceneNode*> GeometryNodes(const C3DScene& scene) {
  std::vector<C3DSceneNode*> nodes;
  const C3DBaseObject* object = nullptr;
  for (C3DSceneNode* cursor = scene.GetFirstNode(nullptr); cursor;) {
    C3DSceneNode* node = scene.GetNextNode(object, cursor, nullptr);
    if (node && node->GetBaseObject() && node->GetBaseObject()->GetKindOf() != OBJECT_GROUP)
      nodes.push_back(node);
  }
  return nodes;
}

template <class Channel> Channel* FirstChannel(C3DBaseObject* object, unsigned type) {
  CDependentChannels* channels = object->GetChannels();
  for (int c = 0; channels && c < channels->GetSize(); ++c)
    if (channels->GetChannel(c)->GetType() == type)
      return static_cast<Channel*>(channels->GetChannel(c));
  return nullptr;
}

// Texture coordinate of corner k of face f.
inline CUVWPoint CornerUV(C3DBaseObject* object, int f, int k) {
  auto* ch = FirstChannel<CUVWChannel>(object, CHANNEL_UVW);
  return (*ch->GetUVWPointList())[(*ch->GetUVWFaceList())[f][k]];
}

inline void ExpectSameMaterial(const C3DMaterial& a, const C3DMaterial& b) {
  auto key = [](const C3DMaterial& m) {
    std::vector<std::string> maps;
    for (MapType role : {MAP_DIFFUSE, MAP_AMBIENT, MAP_SPECULAR, MAP_TRANSPARENCY})
      maps.push_back(m.GetMaterialMap(role) ? m.GetMaterialMap(role)->GetFileName() : "-");
    return std::tuple(m.GetName(), m.GetAmbientColor(), m.GetDiffuseColor(), m.GetSpecularColor(),
                      m.GetAmbientFactor(), m.GetDiffuseFactor(), m.GetSpecularFactor(),
                      m.GetTransparencyFactor(), maps);
  };
  EXPECT_TRUE(key(a) == key(b)) << a.GetName() << " / " << b.GetName();
}

// Equal geometry, channels and materials, node by node.
inline void ExpectSameScene(C3DScene& a, C3DScene& b) {
  auto na = GeometryNodes(a), nb = GeometryNodes(b);
  ASSERT_EQ(na.size(), nb.size());
  for (std::size_t i = 0; i < na.size(); ++i) {
    SCOPED_TRACE("node " + std::to_string(i));
    C3DBaseObject* oa = na[i]->GetBaseObject();
    C3DBaseObject* ob = nb[i]->GetBaseObject();
    ASSERT_EQ(oa->GetKindOf(), ob->GetKindOf());
    ASSERT_EQ(oa->GetPointNbr(), ob->GetPointNbr());
    for (int p = 0; p < oa->GetPointNbr(); ++p)
      ASSERT_TRUE((*oa->GetPointList())[p] == (*ob->GetPointList())[p]) << "point " << p;
    if (oa->GetKindOf() == OBJECT_CURVE) {
      ExpectSameMaterial(*a.GetMaterial(static_cast<C3DCurve*>(oa)->GetMaterialID()),
                         *b.GetMaterial(static_cast<C3DCurve*>(ob)->GetMaterialID()));
      continue;
    }
    ASSERT_EQ(oa->GetFaceNbr(), ob->GetFaceNbr());
    EXPECT_EQ(oa->GetSmoothAngle(), ob->GetSmoothAngle());
    const bool uv = FirstChannel<CUVWChannel>(oa, CHANNEL_UVW) != nullptr;
    ASSERT_EQ(uv, FirstChannel<CUVWChannel>(ob, CHANNEL_UVW) != nullptr);
    auto* vca = FirstChannel<CVCChannel>(oa, CHANNEL_VC);
    auto* vcb = FirstChannel<CVCChannel>(ob, CHANNEL_VC);
    ASSERT_EQ(vca == nullptr, vcb == nullptr);
    for (int f = 0; f < oa->GetFaceNbr(); ++f) {
      const C3DFace &fa = (*oa->GetFaceList())[f], &fb = (*ob->GetFaceList())[f];
      ASSERT_EQ(fa.GetSize(), fb.GetSize());
      for (int k = 0; k < fa.GetSize(); ++k) {
        ASSERT_EQ(fa[k], fb[k]);
        if (uv) {
          ASSERT_TRUE(CornerUV(oa, f, k) == CornerUV(ob, f, k));
        }
        if (vca) {
          ASSERT_TRUE((*vca->GetVCPointList())[(*vca->GetVCFaceList())[f][k]].GetColor() ==
                      (*vcb->GetVCPointList())[(*vcb->GetVCFaceList())[f][k]].GetColor());
        }
      }
      if (f == 0 || fa.GetMaterialID() != (*oa->GetFaceList())[f - 1].GetMaterialID())
        ExpectSameMaterial(*a.GetMaterial(fa.GetMaterialID()), *b.GetMaterial(fb.GetMaterialID()));
    }
    for (unsigned type : {unsigned(CHANNEL_POINT_NORMAL), unsigned(CHANNEL_FACE_NORMAL)}) {
      auto* ca = FirstChannel<CFaceNormalChannel>(oa, type);
      auto* cb = FirstChannel<CFaceNormalChannel>(ob, type);
      ASSERT_EQ(ca == nullptr, cb == nullptr);
      if (!ca)
        continue;
      ASSERT_EQ(ca->GetNormalList()->GetSize(), cb->GetNormalList()->GetSize());
      for (int n = 0; n < ca->GetNormalList()->GetSize(); ++n) {
        const C3DVector &va = (*ca->GetNormalList())[n], &vb = (*cb->GetNormalList())[n];
        ASSERT_TRUE(va.x == vb.x && va.y == vb.y && va.z == vb.z) << "normal " << n;
      }
    }
  }
}

} // namespace meshcore::objtest
