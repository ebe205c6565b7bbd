#pragma once
// The VRML 1.0 text of a scene: one separator per written node, each with its
// own coordinates, materials and face or line set. Numbers are written in the
// C locale whatever the process's locale is.

#include <string>

namespace meshcore {

class C3DScene;

namespace vrml {

enum class WriteResult { Ok, Cancelled };

// Appends the whole file's text to out.
WriteResult WriteVrmlScene(C3DScene& scene, std::string& out);

// A node name reduced to its ASCII letters, or "Object" when none is left.
std::string VrmlLabel(const std::string& name);

} // namespace vrml
} // namespace meshcore
