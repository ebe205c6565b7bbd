#pragma once
// Shared by the VRML codec tests.

#include "meshcore/io/file_io.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include <string>
#include <vector>

namespace meshcore::vrmltest {

constexpr unsigned kSilent = FILE_PARSER_SILENT | FILE_PARSER_NO_PREFS;

inline std::vector<C3DSceneNode*> Nodes(const C3DScene& scene) {
  std::vector<C3DSceneNode*> nodes;
  const C3DBaseObject* object = nullptr;
  C3DSceneNode* cursor = scene.GetFirstNode(nullptr);
  while (cursor)
    if (C3DSceneNode* n = scene.GetNextNode(object, cursor, nullptr))
      nodes.push_back(n);
  return nodes;
}

inline C3DSceneNode* Named(const C3DScene& scene, const std::string& name) {
  for (C3DSceneNode* n : Nodes(scene))
    if (n->GetName() == name)
      return n;
  return nullptr;
}

} // namespace meshcore::vrmltest
