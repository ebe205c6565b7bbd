#pragma once
// Reads a file into a scene and saves a scene to a file through the codec of
// the file's class.

#include "meshcore/io/file_io.h"
#include "meshcore/io/parser_3d.h"

#include <memory>

namespace meshcore {

class C3DScene;

class C3DIo : public CFileIo {
public:
  C3DIo(const std::string& name, unsigned flags, HostWindow parent = nullptr)
      : CFileIo(name, flags, parent) {}
  ~C3DIo() override = default;

  // Builds a fresh codec for the file's class (null and -2 when there is none)
  // and loads its parameters.
  CFileParser* InitParser() override;
  // The caller owns the scene; null on failure (see GetIoError).
  virtual C3DScene* Read(int showDialog = 0, unsigned flags = 0);
  virtual int Save(int showDialog, C3DScene* scene, unsigned flags = 0);

  // Read and Save with the ownership spelt out: the scene read is the
  // caller's from the start, and a save borrows the scene for its duration.
  // Same results and errors as Read and Save.
  std::unique_ptr<C3DScene> ReadScene(int showDialog = 0, unsigned flags = 0);
  int SaveScene(C3DScene& scene, int showDialog = 0, unsigned flags = 0);
  C3DParser* GetParser() const { return static_cast<C3DParser*>(m_parser.get()); }

  static std::string GetParametersInfo(const CCustomData& data, unsigned classCode, int loading);
};

} // namespace meshcore
