#include "meshcore/formats/amapi/amapi_io.h"

#include "meshcore/formats/common/detail/binary_cursor.h"
#include "meshcore/formats/common/detail/file_input.h"
#include "meshcore/io/codec_registry.h"
#include "meshcore/io/file_registry.h"
#include "meshcore/mesh/face_list_3d.h"
#include "meshcore/mesh/point_list_3d.h"
#include "meshcore/platform/cancel.h"
#include "meshcore/platform/string_ids.h"
#include "meshcore/platform/string_table.h"
#include "meshcore/scene/curve_3d.h"
#include "meshcore/scene/group_3d.h"
#include "meshcore/scene/material.h"
#include "meshcore/scene/object_3d.h"
#include "meshcore/scene/scene.h"
#include "meshcore/scene/scene_node.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

namespace meshcore {

namespace {

constexpr std::uint32_t Tag(const char (&s)[5]) {
  return std::uint32_t(std::uint8_t(s[0])) << 24 | std::uint32_t(std::uint8_t(s[1])) << 16 |
         std::uint32_t(std::uint8_t(s[2])) << 8 | std::uint32_t(std::uint8_t(s[3]));
}

constexpr std::uint32_t kMagic = Tag("AMAP");
constexpr std::uint32_t kBlock = Tag("BLOK");
constexpr std::uint32_t kShape = Tag("SHAP");
constexpr std::uint32_t kObjectBlock = Tag("blok");
constexpr std::uint32_t kObjectEnd = Tag("eof ");
constexpr std::uint32_t kName = Tag("name");
constexpr std::uint32_t kColour = Tag("colr");
constexpr std::uint32_t kGeometry = Tag("geom");
constexpr std::uint32_t kGroup = Tag("grup");
constexpr std::uint32_t kControl = Tag("ctrl");

constexpr std::uint32_t kNodeFlag = 1;
constexpr std::size_t kNameBytes = 20;
constexpr std::size_t kInfoBytes = 39;
constexpr std::size_t kPointBytes = 16;

// Chunk sizes may send the reader back over bytes it has read (a size shorter
// than the body, a control chunk's search for its end): past a few passes over
// the file the chunks are looping and the file is refused.
constexpr std::uint64_t kPassesAllowed = 8;

struct Cancelled {};
struct Looping {
  std::size_t offset;
};

} // namespace

// The file's bytes with a position that chunks may move anywhere within them.
struct CAmapiIo::Input {
  Input(const std::uint8_t* data, std::size_t size)
      : base(data), size(size), budget(kPassesAllowed * size + 4096),
        cursor(data, data, data + size, codec::ByteOrder::Big) {}

  std::size_t Pos() const { return cursor.Offset(); }
  void Seek(std::size_t pos) {
    if (pos > size)
      pos = size;
    cursor = codec::CBinaryCursor(base, base + pos, base + size, codec::ByteOrder::Big);
  }
  // Counts bytes visited; throws once the chunks have gone round too often.
  void Charge(std::uint64_t bytes) {
    work += bytes;
    if (work > budget)
      throw Looping{Pos()};
  }
  // A four-character tag, or false at the end of the file.
  bool ReadTag(std::uint32_t& tag) {
    if (cursor.Remaining() < 4)
      return false;
    Charge(4);
    tag = cursor.Id();
    return true;
  }
  void Poll() {
    if (cancel.Tick())
      throw Cancelled{};
  }

  const std::uint8_t* base;
  std::size_t size;
  std::uint64_t budget;
  std::uint64_t work = 0;
  codec::CBinaryCursor cursor;
  CCancelCheck cancel{0, 64};
};

// The lists one "geom" chunk filled.
struct CAmapiIo::Geometry {
  std::unique_ptr<C3DPointList> points;
  std::unique_ptr<C3DFaceList> faces;
};

void RegisterAmapiCodec() {
  fileRegisterCodecOf<CAmapiIo>(fileMakeClassCode("AMAP"));
}

CAmapiIo::CAmapiIo(CFileIo& owner) : C3DParser(owner) {}
CAmapiIo::~CAmapiIo() = default;

C3DScene* CAmapiIo::Read(const std::string& name, unsigned flags) {
  codec::CFileInput input;
  if (input.Open(name) != IO_FILE_OK) {
    SetIoError(IO_FILE_CANT_OPEN);
    return nullptr;
  }
  return ReadFromMemory(input.GetData(), input.GetSize(), flags);
}

C3DScene* CAmapiIo::ReadFromMemory(const void* data, std::size_t size, unsigned flags) {
  Input in(static_cast<const std::uint8_t*>(data), size);
  std::uint32_t magic = 0;
  if (!in.ReadTag(magic) || magic != kMagic) {
    // Other programs use ".a3d" too: such a file is not ours, which is not an
    // error of the file, so the code stays as it was.
    m_fileIo->SetIoErrorDetail("not an AMAPI file: it does not begin with \"AMAP\"");
    return nullptr;
  }
  auto scene = std::make_unique<C3DScene>();
  m_scene = scene.get();
  m_nodeCount = 0;
  m_cancelled = false;
  try {
    std::uint32_t version = 0;
    if (in.ReadTag(version))
      m_version = version;
    std::uint32_t tag = 0;
    while (in.ReadTag(tag) && tag == kBlock) {
      if (ShouldCancel())
        throw Cancelled{};
      std::uint32_t id = 0, chunkSize = 0;
      const std::size_t start = StartChunk(in, id, chunkSize);
      if (id != kShape) {
        in.Seek(start + std::size_t(chunkSize));
        continue;
      }
      FileDescription description;
      if (C3DSceneNode* node = LoadAmapiObject(in, description, nullptr, 0))
        AddNode(nullptr, node);
      if (description.ended)
        FinishChunk(in, start, chunkSize);
    }
  } catch (const Cancelled&) {
    m_scene = nullptr;
    SetIoError(IO_FILE_CANCELLED);
    return nullptr;
  } catch (const Looping& looping) {
    m_scene = nullptr;
    SetIoError(IO_FILE_BAD_FORMAT,
               codec::DescribeFailure("blok", looping.offset,
                                      "chunk sizes lead the reader round in circles"));
    return nullptr;
  } catch (const std::bad_alloc&) {
    m_scene = nullptr;
    SetIoError(IO_FILE_NO_MEMORY);
    return nullptr;
  }
  m_scene = nullptr;
  scene->CheckoutImport(int(flags));
  if (scene->GetNodeNbr(1) == 0) {
    SetIoError(IO_FILE_EMPTY, "the file holds no mesh or curve");
    return nullptr;
  }
  return scene.release();
}

std::size_t CAmapiIo::StartChunk(Input& in, std::uint32_t& id, std::uint32_t& size) {
  id = 0;
  size = 0;
  // A header cut by the end of the file reads as an empty chunk there.
  if (in.cursor.Remaining() >= 8) {
    in.Charge(8);
    id = in.cursor.Id();
    size = in.cursor.U32();
  } else {
    in.Seek(in.size);
  }
  return in.Pos();
}

void CAmapiIo::FinishChunk(Input& in, std::size_t start, std::uint32_t size) {
  const std::size_t end = start + std::size_t(size);
  if (in.Pos() != end)
    in.Seek(end);
}

void CAmapiIo::AddNode(C3DSceneNode* parent, C3DSceneNode* node) {
  m_scene->AddNode(parent, node);
  ++m_nodeCount;
}

C3DSceneNode* CAmapiIo::LoadAmapiObject(Input& in, FileDescription& description,
                                        C3DSceneNode* parent, int depth) {
  Geometry geometry;
  C3DSceneNode* group = nullptr;
  std::uint32_t tag = 0;
  while (in.ReadTag(tag) && tag == kObjectBlock) {
    in.Poll();
    std::uint32_t id = 0, size = 0;
    const std::size_t start = StartChunk(in, id, size);
    if (size == 0) {
      description.ended = true;
      break;
    }
    const bool nested = id == kGroup || id == kControl;
    if (nested && depth >= kMaxDepth) {
      FinishChunk(in, start, size);
      continue;
    }
    if (id == kName) {
      const std::size_t n = std::min(kNameBytes, in.cursor.Remaining());
      in.Charge(n);
      std::string_view raw = in.cursor.Bytes(n);
      // A name that fills all 20 bytes has no terminator: take the 20.
      description.name = std::string(raw.substr(0, raw.find('\0')));
      if (description.name.empty())
        description.name = LoadString(IDS_OBJECT) + " " + std::to_string(m_nodeCount);
    } else if (id == kColour) {
      if (in.cursor.Remaining() < 3) {
        in.Seek(in.size);
        continue;
      }
      in.Charge(3);
      // Stored blue, green, red.
      const std::uint8_t b = in.cursor.U8(), g = in.cursor.U8(), r = in.cursor.U8();
      C3DMaterial* material = m_scene->CreateNewMaterial();
      material->SetDiffuseColor(CRGBColor(int(r), int(g), int(b)));
      description.materialId = material->GetMaterialID();
    } else if (id == kGeometry) {
      ReadGeometry(in, description, geometry);
      FinishChunk(in, start, size);
    } else if (id == kGroup) {
      if (in.cursor.Remaining() < 4) {
        in.Seek(in.size);
        continue;
      }
      in.Charge(4);
      const std::uint32_t children = in.cursor.U32();
      group = new C3DSceneNode(new C3DGroup(), 0);
      AddNode(parent, group);
      for (std::uint32_t i = 0; i < children; ++i) {
        // A child that finds nothing left to read is the end of the group,
        // whatever its count says.
        const std::size_t from = in.Pos();
        FileDescription child;
        if (C3DSceneNode* node = LoadAmapiObject(in, child, group, depth + 1))
          AddNode(group, node);
        if (in.Pos() == from)
          break;
      }
    } else if (id == kControl) {
      FileDescription child;
      if (C3DSceneNode* node = LoadAmapiObject(in, child, parent, depth + 1))
        AddNode(parent, node);
      FinishChunk(in, start, size);
      // The object ends at the next "eof ": stop just before it.
      const std::uint8_t* from = in.cursor.Data();
      const std::uint8_t* end = in.cursor.End();
      const char* marker = "eof ";
      const std::uint8_t* found =
          std::search(from, end, marker, marker + 4,
                      [](std::uint8_t a, char b) { return a == std::uint8_t(b); });
      in.Charge(std::uint64_t(found - from));
      in.Seek(in.cursor.OffsetOf(found));
    } else {
      FinishChunk(in, start, size);
    }
  }

  std::unique_ptr<C3DPointList> points = std::move(geometry.points);
  std::unique_ptr<C3DFaceList> faces = std::move(geometry.faces);
  const bool hasPoints = points && points->GetSize() > 0;
  const bool hasFaces = faces && faces->GetSize() > 0;
  if (!hasPoints) {
    if (!hasFaces && group)
      group->SetName(description.name);
    return nullptr;
  }
  std::unique_ptr<C3DBaseObject> object;
  if (hasFaces) {
    for (int f = 0; f < faces->GetSize(); ++f)
      (*faces)[f].SetMaterialID(description.materialId);
    object = std::make_unique<C3DObject>();
  } else if (description.isCurve) {
    auto curve = std::make_unique<C3DCurve>();
    curve->SetMaterialID(description.materialId);
    object = std::move(curve);
    faces.reset();
  } else {
    return nullptr;
  }
  object->SetPointList(points.release());
  if (faces)
    object->SetFaceList(faces.release());
  auto node = std::make_unique<C3DSceneNode>(object.release(), 0);
  node->SetName(description.name);
  node->SetFlag(kNodeFlag, description.nodeFlag || description.forceFlag);
  return node.release();
}

void CAmapiIo::ReadGeometry(Input& in, FileDescription& d, Geometry& geometry) {
  codec::CBinaryCursor& c = in.cursor;
  // A damaged chunk changes nothing: the object keeps what it had before it.
  const FileDescription before = d;
  Geometry read;
  try {
    c.Need(kInfoBytes);
    in.Charge(kInfoBytes);
    const std::uint8_t flags = c.U8();
    d.open = (flags & 1) != 0;
    d.flag1 = (flags & 2) != 0;
    d.flag2 = (flags & 4) != 0;
    d.forceFlag = (flags & 8) != 0;
    d.isCurve = c.U8() != 0;
    d.nodeFlag = c.U8() == 0;
    d.pointCount = c.U32();
    d.skipCount = c.U32();
    d.faceCount = c.U32();
    d.faceWords = c.U32();
    for (std::uint32_t& word : d.unused)
      word = c.U32();
    c.U32();

    if (d.pointCount > 0) {
      c.NeedRecords(d.pointCount, kPointBytes, "points");
      in.Charge(std::uint64_t(d.pointCount) * kPointBytes);
      auto points = std::make_unique<C3DPointList>();
      const bool closeCurve = d.isCurve && !d.open;
      points->SetSize(int(d.pointCount) + (closeCurve ? 1 : 0));
      C3DPoint* out = points->GetFirst();
      for (std::uint32_t i = 0; i < d.pointCount; ++i) {
        in.Poll();
        out[i].x = c.F32();
        out[i].y = c.F32();
        out[i].z = c.F32();
        c.F32();
      }
      // A closed curve repeats its first point at the end.
      if (closeCurve)
        out[d.pointCount] = out[0];
      read.points = std::move(points);
    }
    c.NeedRecords(d.skipCount, 8, "records");
    c.Skip(std::size_t(d.skipCount) * 8);
    in.Charge(std::uint64_t(d.skipCount) * 8);
    if (d.faceCount > 0) {
      c.NeedRecords(d.faceWords, 4, "face words");
      in.Charge(std::uint64_t(d.faceWords) * 4);
      // Every face takes one word at least, for its vertex count.
      if (d.faceCount > d.faceWords)
        c.Fail("more faces than face words");
      codec::CBinaryCursor block = c.Sub(std::size_t(d.faceWords) * 4);
      const int pointCount = read.points ? int(d.pointCount) : 0;
      auto faces = std::make_unique<C3DFaceList>();
      // Only faces of three corners or more are kept, four words each at least.
      faces->SetSize(int(std::min(d.faceCount, d.faceWords / 4)));
      int kept = 0;
      for (std::uint32_t f = 0; f < d.faceCount; ++f) {
        in.Poll();
        const std::uint32_t corners = block.U32();
        block.NeedRecords(corners, 4, "face corners");
        // Faces that cannot be drawn (fewer than three corners, a corner
        // outside the point list) are left out.
        bool drawable = corners >= 3;
        for (std::uint32_t k = 0; k < corners && drawable; ++k)
          drawable = codec::LoadU32BE(block.Data() + 4 * k) < std::uint32_t(pointCount);
        if (!drawable) {
          block.Skip(std::size_t(corners) * 4);
          continue;
        }
        C3DFace& face = (*faces)[kept++];
        face.SetSize(int(corners));
        int* idx = face.GetData();
        for (std::uint32_t k = 0; k < corners; ++k)
          idx[k] = int(block.U32());
      }
      faces->SetSize(kept);
      read.faces = std::move(faces);
    }
  } catch (const codec::CFormatError&) {
    d = before;
    return;
  }
  // A later "geom" of the same object replaces the lists of an earlier one.
  geometry = std::move(read);
}

} // namespace meshcore
