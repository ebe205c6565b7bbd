#pragma once
// The contract every scene codec implements.

#include "meshcore/io/file_parser.h"

#include <string>

namespace meshcore {

class C3DScene;

class C3DParser : public CFileParser {
public:
  explicit C3DParser(CFileIo& owner) : CFileParser(owner) {}
  ~C3DParser() override = default;

  virtual std::string GetParametersInfo();
  virtual int LoadOptionsDialog() { return 1; }
  // A new scene owned by the caller, or null with the owner's error set.
  virtual C3DScene* Read(const std::string& name, unsigned flags);
  virtual int SaveOptionsDialog(C3DScene*) { return 1; }
  // The default answers "unknown file type": a reading-only codec keeps it.
  virtual int Save(const std::string& name, C3DScene* scene, unsigned flags);
};

} // namespace meshcore
