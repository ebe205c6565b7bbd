#pragma once
// Untyped storage of fixed-size element records, the base of every point and
// face list. Each list kind supplies the four element hooks; records are moved
// as raw bytes, so element types must be trivially relocatable (no pointers
// into themselves).

#include "meshcore/platform/object.h"

#include <cstdint>

namespace meshcore {

class CArchive;

class CElementArray : public CObject {
  MESHCORE_DECLARE_DYNAMIC(CElementArray)

public:
  CElementArray();
  explicit CElementArray(std::uint32_t recordSize);
  CElementArray(const CElementArray&) = delete;
  // Frees the block only: element hooks cannot run once the derived part is
  // gone, so every derived kind calls RemoveAll() in its own destructor.
  ~CElementArray() override;

  void Serialize(CArchive& ar) override;
  // Copy: takes the other's identity number along with its elements.
  virtual CElementArray& operator=(const CElementArray& other);

  virtual void ConstructElement(void* element) = 0;
  virtual void DestructElement(void* element) = 0;
  virtual void CopyElement(void* dst, void* src) = 0;
  virtual void SerializeElement(CArchive& ar, void* element) = 0;
  // The same over n consecutive records. These run for every resize and copy,
  // so kinds that know their element type override them with a typed loop
  // instead of one virtual call per record.
  virtual void ConstructElements(void* p, int n);
  virtual void DestructElements(void* p, int n);
  virtual void CopyElements(void* dst, const void* src, int n);
  // Fewest bytes one element takes in an archive; used to refuse counts that
  // the rest of a stream cannot hold. Kinds with larger records override it.
  virtual std::uint32_t GetMinArchivedElementSize() const { return 1; }

  std::uint32_t GetID() const { return m_id; }
  int GetSize() const { return m_size; }
  int GetCount() const { return m_size; }
  int GetUpperBound() const { return m_size - 1; }
  int GetCapacity() const { return m_capacity; }
  int GetGrowBy() const { return m_growBy; }
  std::uint32_t GetRecordSize() const { return m_recordSize; }
  // The record size written to archives; it equals the storage record size
  // unless a kind whose stored layout differs from its memory layout sets it.
  std::uint32_t GetArchiveRecordSize() const { return m_archiveRecordSize; }
  void SetArchiveRecordSize(std::uint32_t size) { m_archiveRecordSize = size; }

  // Address of record i; no bounds test.
  void* operator[](int i) { return m_data + static_cast<std::size_t>(i) * m_recordSize; }
  const void* operator[](int i) const {
    return m_data + static_cast<std::size_t>(i) * m_recordSize;
  }
  void* GetFirst() { return m_data; }
  const void* GetFirst() const { return m_data; }
  void* GetData() { return m_data; }
  const void* GetData() const { return m_data; }
  void* GetNext(void* p) const { return static_cast<unsigned char*>(p) + m_recordSize; }
  const void* GetNext(const void* p) const {
    return static_cast<const unsigned char*>(p) + m_recordSize;
  }

  // growBy -1 keeps the stored grow-by; 0 means automatic.
  void SetSize(int n, int growBy = -1);
  void RemoveAll() { SetSize(0, -1); }
  void SetAt(int i, const void* element);
  void SetAtGrow(int i, const void* element);
  int Add(const void* element);
  void InsertAt(int i, const void* element, int n = 1);
  void InsertAt(int i, CElementArray* other);
  void RemoveAt(int i, int n = 1);
  int Append(const CElementArray& other);
  void Copy(const CElementArray& other);
  void FreeExtra();
  // For arrays too large to construct in one go: an empty array makes room
  // for exactly n records and constructs none, so that the caller can
  // construct ranges of them with ConstructElements (from more than one thread
  // if it likes) and then declare the first n constructed with
  // AdoptConstructed(n). Returns the block; null for n <= 0 or a non-empty array.
  void* AllocateUnconstructed(int n);
  void AdoptConstructed(int n);

  void MyConstructElements(void* p, int n);
  void MyDestructElements(void* p, int n);
  void MyCopyElements(void* dst, const void* src, int n);

private:
  unsigned char* Record(int i) const { return m_data + static_cast<std::size_t>(i) * m_recordSize; }
  // Byte offset of p inside the block, or -1 when p is elsewhere; lets an
  // element of the array itself be passed to Add/InsertAt across a reallocation.
  std::intptr_t OffsetOf(const void* p) const;
  void Reallocate(int capacity);

  std::uint32_t m_id;
  unsigned char* m_data = nullptr;
  std::uint32_t m_recordSize;
  std::uint32_t m_archiveRecordSize;
  int m_size = 0;
  int m_capacity = 0;
  int m_growBy = 0;
};

} // namespace meshcore
