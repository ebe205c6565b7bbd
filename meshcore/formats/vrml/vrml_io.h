#pragma once
// The codec of VRML 1.0 files (and Inventor 2.x ascii files, which share the
// syntax): reads them into a scene, writes a scene as a VRML 1.0 text file.

#include "meshcore/io/parser_3d.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace meshcore {

class C3DBaseObject;
class C3DMaterial;
class C3DScene;
class C3DSceneNode;
class QvNode;
class QvState;

// Face modes a read object gets from the shape hints in force (bits).
inline constexpr unsigned kVrmlFaceModeClockwise = 1;
inline constexpr unsigned kVrmlFaceModeCounterClockwise = 2;
inline constexpr unsigned kVrmlFaceModeSolid = 4;

// Makes CVrmlIo the codec of "VRML" files (".wrl" and ".iv"); called at library start.
void RegisterVrmlCodec();

class CVrmlIo : public C3DParser {
public:
  explicit CVrmlIo(CFileIo& owner);
  ~CVrmlIo() override;

  // A new scene, or null with the owner's error set: -3 when the file is not a
  // VRML 1.0 or Inventor ascii file, -9 when cancelled, -7 when nothing results.
  // A file that cannot be opened leaves the error code as it was.
  C3DScene* Read(const std::string& name, unsigned flags) override;
  // 1, or 0 with -1 (cannot open), -5/-6 (write failed), -9 (cancelled). A scene
  // without nodes gives a file without shapes.
  int Save(const std::string& name, C3DScene* scene, unsigned flags) override;

  // The same from and to memory. `baseDir` is where File nodes are looked for.
  C3DScene* ReadFromMemory(const void* data, std::size_t size, unsigned flags,
                           const std::string& baseDir = std::string());
  int SaveToMemory(C3DScene* scene, unsigned flags, std::string& out);

  // Called by the traversal, through the reader registered for the thread.
  void FaceSetCallback(QvNode& shape, QvState& state);
  void LineSetCallback(QvNode& shape, QvState& state);
  void PointSetCallback(QvNode& shape, QvState& state);
  void PrimitiveCallback(QvNode& shape, QvState& state);

private:
  struct ReadContext;
  struct ShapeFaces;
  // `parsed` is called once the text is no longer needed.
  C3DScene* ReadText(const char* data, std::size_t size, unsigned flags, const std::string& baseDir,
                     const std::function<void()>& parsed);
  // Material ids for the state's colours, made on first use.
  unsigned MaterialFromState(QvState& state, std::size_t entry);
  void BuildMesh(const QvNode& shape, QvState& state, const ShapeFaces& faces);
  void AddObjectNode(C3DBaseObject* object, const QvNode& shape, QvState& state);

  std::unique_ptr<ReadContext> m_read;
  std::string m_rootFile; // the file being read, when it is one
};

// The codec reading on the calling thread, or null (used by the traversal's callbacks).
CVrmlIo* GetVrmlReaderOfThread();

} // namespace meshcore
