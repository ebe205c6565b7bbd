// Reads objects, counts and strings from arbitrary bytes: every input must end
// in a clean result or a CException, without leaks or out-of-bounds access.

#include "meshcore/platform/archive.h"
#include "meshcore/platform/byte_stream.h"
#include "meshcore/platform/exceptions.h"

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

namespace meshcore {

// Every live fuzz object, so that the ones the archive handed out (possibly
// several times, through back-references) are each deleted exactly once.
static std::set<CObject*>& LiveObjects() {
  static std::set<CObject*> live;
  return live;
}

class CFuzzLeaf : public CObject {
  MESHCORE_DECLARE_SERIAL(CFuzzLeaf)
public:
  CFuzzLeaf() { LiveObjects().insert(this); }
  ~CFuzzLeaf() override { LiveObjects().erase(this); }
  void Serialize(CArchive& ar) override {
    std::uint32_t v = 0;
    ar >> v;
    std::string s;
    ar >> s;
  }
};
MESHCORE_IMPLEMENT_SERIAL(CFuzzLeaf, CObject, 1)

// Refers to other objects without owning them (the live set owns everything).
class CFuzzNode : public CObject {
  MESHCORE_DECLARE_SERIAL(CFuzzNode)
public:
  CFuzzNode() { LiveObjects().insert(this); }
  ~CFuzzNode() override { LiveObjects().erase(this); }
  void Serialize(CArchive& ar) override {
    const std::uint64_t n = ar.ReadCount(2);
    for (std::uint64_t i = 0; i < n && i < 64; ++i)
      ar.ReadObject(i % 2 ? MESHCORE_RUNTIME_CLASS(CFuzzLeaf) : nullptr);
    std::uint32_t schema = 0;
    ar.ReadClass(nullptr, &schema);
  }
};
MESHCORE_IMPLEMENT_SERIAL(CFuzzNode, CObject, 2)

} // namespace meshcore

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace meshcore;
  CMemFile mem(data, size);
  CArchive ar(&mem, CArchive::load);
  // Each step reads on from where the last one stopped, failed or not.
  for (int step = 0; step < 64 && ar.Remaining() > 0; ++step) {
    try {
      std::uint8_t op = 0;
      ar >> op;
      switch (op % 5) {
      case 0:
        ar.ReadObject(nullptr);
        break;
      case 1:
        ar.ReadObject(MESHCORE_RUNTIME_CLASS(CFuzzNode));
        break;
      case 2:
        ar.ReadCount();
        break;
      case 3: {
        std::string s;
        ar >> s;
        break;
      }
      case 4:
        ar.ReadClass();
        break;
      }
    } catch (const CException&) {
    }
  }
  while (!LiveObjects().empty())
    delete *LiveObjects().begin();
  return 0;
}
