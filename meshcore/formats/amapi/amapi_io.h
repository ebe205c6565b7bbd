#pragma once
// The codec of AMAPI model files (".a3d"): reads the big-endian tagged chunks
// of a model into a scene of meshes, curves and groups. It writes nothing.

#include "meshcore/io/parser_3d.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace meshcore {

class C3DPointList;
class C3DFaceList;
class C3DScene;
class C3DSceneNode;

// Makes CAmapiIo the codec of "AMAP" files; called at library start.
void RegisterAmapiCodec();

class CAmapiIo : public C3DParser {
public:
  // What the chunks of one object told about it while they were read.
  struct FileDescription {
    bool ended = false; // a chunk of size 0 closed the object
    bool open = false;  // info flag bit 0: a curve that is not closed
    bool flag1 = false, flag2 = false;
    bool forceFlag = false; // info flag bit 3: the node's flag 1 is forced on
    bool isCurve = false;
    bool nodeFlag = false; // third info byte 0: becomes the node's flag 1
    std::uint32_t pointCount = 0;
    std::uint32_t skipCount = 0; // 8-byte records after the points, not used
    std::uint32_t faceCount = 0;
    std::uint32_t faceWords = 0;
    std::uint32_t unused[4] = {0, 0, 0, 0};
    std::uint32_t materialId = 0;
    std::string name;
  };

  explicit CAmapiIo(CFileIo& owner);
  ~CAmapiIo() override;

  // A new scene, or null: -1 (cannot open), -3 (the chunks loop back on
  // themselves), -7 (no object), -9 (cancelled). A file that does not begin
  // with "AMAP" gives null and leaves the error code as it was, with a detail.
  C3DScene* Read(const std::string& name, unsigned flags) override;
  C3DScene* ReadFromMemory(const void* data, std::size_t size, unsigned flags);

  std::uint32_t GetVersion() const { return m_version; }

  // Objects nested deeper than this (groups in groups, control chunks) are
  // skipped: the scene tree stays shallow enough for recursive walks.
  static constexpr int kMaxDepth = 200;

protected:
  struct Input;
  // One object and what it holds; the node to add, or null.
  C3DSceneNode* LoadAmapiObject(Input& in, FileDescription& description, C3DSceneNode* parent,
                                int depth);
  // The id and size of a chunk whose tag was read; the position after them.
  std::size_t StartChunk(Input& in, std::uint32_t& id, std::uint32_t& size);
  void FinishChunk(Input& in, std::size_t start, std::uint32_t size);

private:
  struct Geometry;
  void ReadGeometry(Input& in, FileDescription& description, Geometry& geometry);
  void AddNode(C3DSceneNode* parent, C3DSceneNode* node);

  C3DScene* m_scene = nullptr;
  std::uint32_t m_version = 0;
  int m_nodeCount = 0;
  bool m_cancelled = false;
};

} // namespace meshcore
