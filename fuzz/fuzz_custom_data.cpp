// Feeds arbitrary bytes to the custom-data reader, once as a serialised record
// and once as a preferences file, and checks that whatever loads round-trips.

#include "meshcore/containers/custom_data.h"
#include "meshcore/platform/archive.h"
#include "meshcore/platform/byte_stream.h"
#include "meshcore/platform/exceptions.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

using namespace meshcore;

namespace {

std::vector<std::uint8_t> Store(CCustomData& cd) {
  CMemFile mem;
  CArchive ar(&mem, CArchive::store);
  cd.Serialize(ar);
  return mem.Data();
}

void Exercise(CCustomData& cd) {
  // Lookups and edits must stay within the block whatever it held.
  std::string s;
  std::vector<std::string> names;
  CCustomData nested;
  unsigned size = 0;
  const auto* block = static_cast<const std::uint8_t*>(cd.GetData(size));
  for (unsigned pos = 0; pos + 8 <= size;) {
    unsigned id = 0, len = 0;
    std::memcpy(&id, block + pos, 4);
    std::memcpy(&len, block + pos + 4, 4);
    cd.GetString(id, s);
    cd.GetStringArray(id, names);
    cd.GetCustomData(id, nested);
    pos += len + CCustomData::kEntryOverhead;
  }
  CCustomData copy(cd);
  if (!copy.IsEqual(cd) || Store(copy) != Store(cd))
    std::abort();
  copy.SetInt(0x54455354, 1);
  copy.Copy(&cd, 2);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CCustomData cd;
  try {
    CMemFile mem(data, size);
    CArchive ar(&mem, CArchive::load);
    cd.Serialize(ar);
    const std::vector<std::uint8_t> again = Store(cd);
    if (again.size() > size)
      std::abort();
    Exercise(cd);
  } catch (const CException&) {
  }

  static const std::string file = "/tmp/fuzz_custom_data_" + std::to_string(::getpid()) + ".prefs";
  if (std::FILE* f = std::fopen(file.c_str(), "wb")) {
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    CCustomData prefs;
    for (unsigned dir = 0; dir < 2; ++dir)
      if (prefs.LoadFromPrefs(file, 0x4C494754, dir))
        Exercise(prefs);
    prefs.SetInt(0x494F434C, 1);
    prefs.SaveToPrefs(file, 0x4C494754, 1);
    if (!prefs.LoadFromPrefs(file, 0x4C494754, 1))
      std::abort();
    std::remove(file.c_str());
  }
  return 0;
}
