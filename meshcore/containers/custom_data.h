#pragma once
// A typed property bag: values of any size stored under 32-bit ids in one
// contiguous block, so that a record is copied, compared and saved in a few
// block operations. It carries every format's options ("io.prefs") and any
// application data attached to points, faces, objects, nodes and scenes.

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

namespace meshcore {

class CArchive;

// A small fixed-size descriptor that applications store as one value.
struct CCustomDataClass {
  std::uint32_t classCode = 0;
  std::uint32_t version = 0;
  char name[56] = {};
};

class CCustomData {
public:
  // Entry layout: id (4), size (4), link (8), data (size), 7 spare bytes.
  // Entries follow one another without alignment; the serialised form and
  // the preferences files depend on this spacing.
  static constexpr std::uint32_t kHeaderSize = 16;
  static constexpr std::uint32_t kEntryOverhead = 23;
  static constexpr std::uint32_t kMagic = 0x43555354; // "CUST"

  CCustomData() = default;
  CCustomData(const CCustomData& other);
  CCustomData(CCustomData&& other) noexcept;
  virtual ~CCustomData();
  CCustomData& operator=(const CCustomData& other);
  CCustomData& operator=(const CCustomData* other);
  CCustomData& operator=(CCustomData&& other) noexcept;

  // Raw values. GetCustom copies only when an entry of exactly this size exists.
  void SetCustom(unsigned id, const void* data, unsigned size);
  int GetCustom(unsigned id, void* buffer, unsigned size) const;
  // Pointer to the entry's data (not aligned: copy out with memcpy), or null.
  void* GetCustomPtr(unsigned id);
  const void* GetCustomPtr(unsigned id) const;
  unsigned GetDataSize(unsigned id) const;
  int HasData(unsigned id) const;
  int HasData() const { return m_block != nullptr; }
  int GetCount() const;

  void SetInt(unsigned id, int value) { SetCustom(id, &value, sizeof value); }
  void SetUInt(unsigned id, unsigned value) { SetCustom(id, &value, sizeof value); }
  void SetLong(unsigned id, std::int32_t value) { SetCustom(id, &value, sizeof value); }
  void SetULong(unsigned id, std::uint32_t value) { SetCustom(id, &value, sizeof value); }
  void SetBool(unsigned id, bool value);
  void SetFloat(unsigned id, float value) { SetCustom(id, &value, sizeof value); }
  void SetDouble(unsigned id, double value) { SetCustom(id, &value, sizeof value); }
  void SetPtr(unsigned id, void* value);
  void SetString(unsigned id, const std::string& value);
  void SetStringArray(unsigned id, const std::vector<std::string>& values);
  void SetStringList(unsigned id, const std::list<std::string>& values);
  void SetCustomData(unsigned id, const CCustomData& value);
  void SetCustomClass(unsigned id, const CCustomDataClass& value);

  int GetInt(unsigned id, int& value, int defaultValue = 0) const;
  int GetUInt(unsigned id, unsigned& value, unsigned defaultValue = 0) const;
  int GetLong(unsigned id, std::int32_t& value, std::int32_t defaultValue = 0) const;
  int GetULong(unsigned id, std::uint32_t& value, std::uint32_t defaultValue = 0) const;
  int GetBool(unsigned id, bool& value, bool defaultValue = false) const;
  int GetFloat(unsigned id, float& value, float defaultValue = 0.0f) const;
  int GetDouble(unsigned id, double& value, double defaultValue = 0.0) const;
  int GetPtr(unsigned id, void*& value, void* defaultValue = nullptr) const;
  int GetString(unsigned id, std::string& value, const std::string& defaultValue = {}) const;
  // Replace the collection's contents; 0 (and an empty collection) when missing.
  int GetStringArray(unsigned id, std::vector<std::string>& values) const;
  int GetStringList(unsigned id, std::list<std::string>& values) const;
  // out is emptied first; 0 when there is no such nested record.
  int GetCustomData(unsigned id, CCustomData& out) const;
  int GetCustomClass(unsigned id, CCustomDataClass& value) const;

  void RemoveCustom(unsigned id);
  void RemoveInt(unsigned id) { RemoveCustom(id); }
  void RemoveUInt(unsigned id) { RemoveCustom(id); }
  void RemoveFloat(unsigned id) { RemoveCustom(id); }
  void RemoveBool(unsigned id) { RemoveCustom(id); }
  void RemoveString(unsigned id) { RemoveCustom(id); }
  void RemoveAll();

  // The raw entry block, for callers that keep it elsewhere. SetData takes a
  // copy; a block that does not hold well-formed entries leaves the record empty
  // and returns 0.
  int SetData(const void* block, unsigned size);
  const void* GetData(unsigned& size) const;

  // Merges other into the nested record id (keeping its values if keepExisting).
  void AddToCustomData(unsigned id, const CCustomData& other, int keepExisting);
  // Mode without bits 1 and 2: assignment. Otherwise every entry of other is set
  // here; with bit 1, ids this record already has are kept.
  void Copy(const CCustomData* other, unsigned mode);
  // Copies the listed ids (the list ends with 0) that other has.
  void CopyID(const CCustomData* other, unsigned id, ...);

  // Same ids with the same bytes, in any order.
  int IsEqual(const CCustomData& other) const;

  // "CUST", the block size and the block, little-endian.
  void Serialize(CArchive& ar);

  // Per-class records in a preferences file (see custom_data.cpp for the layout).
  int SaveToPrefs(const std::string& file, unsigned classCode, unsigned direction) const;
  int LoadFromPrefs(const std::string& file, unsigned classCode, unsigned direction);

  // Checks that block holds well-formed entries: each within the block, every
  // link but the last non-zero, the last entry ending exactly at the end.
  static bool IsValidBlock(const std::uint8_t* block, std::size_t size);

protected:
  // Overwrites the data of an entry with this id and size; 1 if one was found.
  int ReplaceCustom(unsigned id, const void* data, unsigned size);
  // Rewrites the links: 1 in every entry but the last, 0 in the last.
  void UpdateDataPointers();

private:
  // Offset of the entry with this id, or -1.
  std::ptrdiff_t FindEntry(unsigned id) const;
  void AssignBlock(const std::uint8_t* block, std::uint32_t size);
  template <class Container> int GetStrings(unsigned id, Container& values) const;

  std::uint8_t* m_block = nullptr; // C heap, so that it can grow in place
  std::uint32_t m_blockSize = 0;
};

} // namespace meshcore
