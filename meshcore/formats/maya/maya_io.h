#pragma once
// The codec of Maya ASCII scene files (".ma"): writes a scene's meshes and
// curves, and on request its materials as lambert shaders. It reads nothing.

#include "meshcore/io/parser_3d.h"

#include <string>

namespace meshcore {

class C3DBaseObject;
class C3DScene;
class C3DSceneNode;
class IoFile;

// Makes CMayaIo the codec of "MAYA" files; called at library start.
void RegisterMayaCodec();

// Node names as written: Maya accepts ASCII letters, digits and underscores,
// not beginning with a digit. Every other byte becomes "_", a leading digit
// gets a "_" before it, and an empty name becomes fallback.
std::string MakeMayaName(const std::string& name, const std::string& fallback);

class CMayaIo : public C3DParser {
public:
  explicit CMayaIo(CFileIo& owner);
  ~CMayaIo() override;

  // Meshes and curves, no materials. 1, or 0 with -1 (cannot open), -5, -6
  // (the file could not be written) or -9 (cancelled; no file is written).
  int Save(const std::string& name, C3DScene* scene, unsigned flags) override;
  // The text Save writes for a file of that name; 0 with -9 when cancelled.
  int SaveToText(const std::string& name, C3DScene* scene, unsigned flags, std::string& out);

  // The lines of the file after the text so far in out.
  int SaveScene(std::string& out, const std::string& fileName, C3DScene* scene);
  // One lambert shader with its shading engine and material info per material.
  void SaveMaterials(std::string& out, C3DScene* scene);
  // Connects each shader to its engine, and each mesh to the engine of every
  // material its faces use.
  void ConnectMaterials(std::string& out, C3DScene* scene);
  // The same two, written to an open file.
  void SaveMaterials(IoFile* file, C3DScene* scene);
  void ConnectMaterials(IoFile* file, C3DScene* scene);
  // For hosts that want shading: appends both to a file Save wrote. 1, or 0
  // with the error; the file is left as it was on failure.
  int AppendMaterials(const std::string& name, C3DScene* scene);

  void AddTab() { ++m_tab; }
  void RemoveTab() { --m_tab; }

  // "%d " and "%f " (six decimals, C locale), each with its trailing blank.
  // Maya reads no "nan" or "inf": such values are written as 0.
  static std::string IntString(int value);
  static std::string FloatString(float value);

protected:
  void SaveHeader(std::string& out, const std::string& fileName);
  // 0 when cancelled.
  int SaveMesh(std::string& out, C3DSceneNode* node, C3DBaseObject* object,
               const std::string& nodeName);
  int SaveCurve(std::string& out, C3DSceneNode* node, C3DBaseObject* curve,
                const std::string& nodeName);
  // Appends text, first one tab per level when indent is non-zero.
  void WriteString(std::string& out, const char* text, int indent);

private:
  int m_tab = 0;
};

} // namespace meshcore
