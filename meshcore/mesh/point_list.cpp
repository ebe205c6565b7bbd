#include "meshcore/mesh/point_list.h"

#include "meshcore/containers/custom_data.h"
#include "meshcore/containers/next_prime.h"
#include "meshcore/mesh/face_list.h"

#include <vector>

namespace meshcore {

MESHCORE_IMPLEMENT_DYNAMIC(CPointList, CElementArray)

CPointList::CPointList(std::uint32_t memoryRecordSize, std::uint32_t archiveRecordSize)
    : CElementArray(memoryRecordSize) {
  SetArchiveRecordSize(archiveRecordSize);
}

CPointList& CPointList::operator=(const CPointList& src) {
  if (&src != this) {
    CElementArray::operator=(src);
    Inherit(src);
  }
  return *this;
}

int CPointList::UpdateList(CGeomInfo*) {
  if (!IsFlagSet(PL_CHANGED))
    return 0;
  SetFlag(PL_CHANGED, 0);
  return 1;
}

void CPointList::SetFlag(_POINT_PROPERTIES flag, int on) {
  if (!HasPointElements())
    return;
  for (int i = 0; i < GetSize(); ++i)
    ElementAt(i).SetFlag(flag, on);
}

int CPointList::GetNumberOfPoints(_POINT_PROPERTIES flag, int set) const {
  if (!HasPointElements() || (set != 0 && set != 1))
    return 0;
  int n = 0;
  for (int i = 0; i < GetSize(); ++i)
    n += ElementAt(i).IsFlagSet(flag) == (set == 1);
  return n;
}

void CPointList::SavePointsIndex() {
  if (!HasPointElements())
    return;
  for (int i = 0; i < GetSize(); ++i)
    ElementAt(i).GetCustomData(1)->SetInt(kPointIndexKey, i);
}

void CPointList::InvalidatePoints(CGeomInfo*, const CIndexMap& keep) {
  if (!HasPointElements())
    return;
  for (int i = 0; i < GetSize(); ++i)
    if (!keep.Contains(i))
      ElementAt(i).SetFlag(PT_INVALID, 1);
}

void CPointList::SetBorderPointsStatus(const CEdgeGraph& edges) {
  if (!HasPointElements())
    return;
  const int n = GetSize();
  for (const auto& [edge, faces] : edges) {
    const _POINT_PROPERTIES flag = faces.GetSize() == 1 ? PT_BORDER : PT_INNER_EDGE;
    if (edge.first >= 0 && edge.first < n)
      ElementAt(edge.first).SetFlag(flag, 1);
    if (edge.second >= 0 && edge.second < n)
      ElementAt(edge.second).SetFlag(flag, 1);
  }
}

int CPointList::Clean(CFaceList* faces, CIndexMap* oldToNew) {
  std::vector<int> table;
  const int changed = Clean(faces, table);
  if (oldToNew) {
    oldToNew->RemoveAll();
    if (!table.empty()) {
      const int kept = GetSize();
      oldToNew->Reserve(NextPrime(static_cast<unsigned>(static_cast<float>(kept) * 1.2f)));
      for (std::size_t i = 0; i < table.size(); ++i)
        if (table[i] >= 0)
          oldToNew->SetAt(static_cast<int>(i), table[i]);
    }
  }
  return changed;
}

int CPointList::Clean(CFaceList* faces, std::vector<int>& oldToNew) {
  if (!faces)
    return Clean(static_cast<const std::vector<unsigned char>*>(nullptr), oldToNew);
  // Points used by valid faces. Indices are bounded by the list, so a flat
  // table replaces a hashed set.
  const int n = GetSize();
  std::vector<unsigned char> used(static_cast<std::size_t>(n), 0);
  for (int f = 0; f < faces->GetSize(); ++f) {
    const CFace& face = (*faces)[f];
    if (face.IsOneFlagSet(FACE_INVALID | FACE_EXCLUDED))
      continue;
    const int* idx = face.GetData();
    const int size = face.GetSize();
    for (int k = 0; k < size; ++k)
      if (idx[k] >= 0 && idx[k] < n)
        used[static_cast<std::size_t>(idx[k])] = 1;
  }
  return Clean(&used, oldToNew);
}

int CPointList::Clean(const std::vector<unsigned char>* used, std::vector<int>& oldToNew) {
  oldToNew.clear();
  if (!HasPointElements())
    return 0;
  const int n = GetSize();
  // One pass flags, keeps and moves; the table starts at the first point
  // that goes, so that a list with nothing to remove pays for none.
  int write = 0;
  for (int i = 0; i < n; ++i) {
    CPt& p = ElementAt(i);
    // A point that goes is overwritten or destroyed below: flagging it as
    // well would only dirty its memory.
    if ((used && !(*used)[static_cast<std::size_t>(i)]) || p.IsFlagSet(PT_INVALID)) {
      if (oldToNew.empty()) {
        oldToNew.assign(static_cast<std::size_t>(n), -1);
        for (int k = 0; k < i; ++k)
          oldToNew[static_cast<std::size_t>(k)] = k;
      }
      continue;
    }
    if (write != i) {
      oldToNew[static_cast<std::size_t>(i)] = write;
      // The virtual assignment, as for any point move: custom data travels
      // only when the source has some.
      ElementAt(write) = p;
    } else if (!oldToNew.empty()) {
      oldToNew[static_cast<std::size_t>(i)] = write;
    }
    ++write;
  }
  if (write == n)
    return 0;
  if (write == 0)
    oldToNew.clear();
  SetSize(write, -1);
  return 1;
}

} // namespace meshcore
