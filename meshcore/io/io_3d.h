#pragma once
// Reads a file into a scene and saves a scene to a file through the codec of
// the file's class.

#include "meshcore/io/file_io.h"
#include "meshcore/io/parser_3d.h"

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
  C3DParser* GetParser() const { return static_cast<C3DParser*>(m_parser.get()); }

  static std::string GetParametersInfo(const CCustomData& data, unsigned classCode, int loading);
};

} // namespace meshcore
