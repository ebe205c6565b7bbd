#pragma once
// The channels of an object, in insertion order; indices are positions.

#include "meshcore/containers/array_id.h"
#include "meshcore/containers/int_array_id.h"
#include "meshcore/mesh/channel.h"
#include "meshcore/mesh/index_map.h"
#include "meshcore/platform/object.h"

namespace meshcore {

class CFaceNormalChannel;
class CPointNormalChannel;
class CUVWChannel;
class CUVWFaceList;
class CUVWPointList;
class CVCChannel;
class CVCFaceList;
class CVCPointList;

class CDependentChannels : public CObject {
  MESHCORE_DECLARE_SERIAL(CDependentChannels)

public:
  CDependentChannels() = default;
  CDependentChannels(const CDependentChannels&) = delete;
  ~CDependentChannels() override;
  // Removes every channel, then appends a copy (same id) of each of src's.
  CDependentChannels& operator=(const CDependentChannels& src);

  // Writes the channels that do not skip serialisation, each as its class
  // reference and its own form; reading replaces every channel.
  void Serialize(CArchive& ar) override;

  // Takes ownership; returns the channel's index.
  int AddChannel(CChannel* channel);
  // Throws CInvalidArgException for a bad index.
  void RemoveChannel(int index);
  // 0 when the channel is not in the set.
  int RemoveChannel(CChannel* channel);
  // Removes the channels whose type is in typeMask (only the invalid ones when
  // onlyInvalid); returns how many.
  int RemoveChannels(int typeMask, int onlyInvalid);
  void RemoveAll();

  int GetSize() const { return m_channels.GetSize(); }
  // Null for a bad index.
  CChannel* GetChannel(int index) const;
  CChannel* GetChannel(int index, CFaceList*& faces, CPointList*& points) const;
  // The first channel with that id.
  CChannel* GetChannel(unsigned id) const;
  // That channel only when it also has the type.
  CChannel* GetChannel(unsigned id, _Channel3DType type) const;
  // The n-th channel (from 0) of that type.
  CChannel* GetChannel(int n, _Channel3DType type) const;
  CUVWChannel* GetUVWChannel(unsigned id, CUVWFaceList** faces = nullptr,
                             CUVWPointList** points = nullptr) const;
  CUVWChannel* GetUVWChannel(int n, CUVWFaceList** faces = nullptr,
                             CUVWPointList** points = nullptr) const;
  CVCChannel* GetVCChannel(unsigned id, CVCFaceList** faces = nullptr,
                           CVCPointList** points = nullptr) const;
  CVCChannel* GetVCChannel(int n, CVCFaceList** faces = nullptr,
                           CVCPointList** points = nullptr) const;
  CPointNormalChannel* GetPointNormalChannel() const;
  CFaceNormalChannel* GetFaceNormalChannel() const;
  // 0 for a bad index.
  int GetChannelType(int index) const;

  // Channels whose type is in typeMask, without the invalid ones when skipInvalid.
  int GetChannelsNumber(int typeMask, int skipInvalid) const;
  // Their indices into out; returns their number.
  int GetChannels(int typeMask, CIntArrayID& out, int skipInvalid) const;
  // Flags invalid every channel whose type is in typeMask.
  void Invalidate(int typeMask);
  // Appends copies of src's channels of typeMask (see _ChannelCopyFlags);
  // returns the number of source channels selected.
  int CopyChannels(const CDependentChannels& src, int typeMask, unsigned flags);
  // Every channel's Clean after a mesh clean; returns how many became invalid.
  int CleanChannels(CGeomInfo* info, const CIndexMap* faceMap, const CIndexMap* pointMap);

private:
  CArrayID<CChannel*, CChannel*> m_channels;
};

} // namespace meshcore
