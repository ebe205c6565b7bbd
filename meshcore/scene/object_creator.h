#pragma once
// Decides which concrete classes new objects and copies get, so that a host can
// substitute subclasses of its own.

namespace meshcore {

class C3DBaseObject;
class C3DFaceList;
class C3DPointList;

class C3DObjectCreator {
public:
  C3DObjectCreator() = default;
  virtual ~C3DObjectCreator() = default;

  // A new empty object of the argument's kind; null for an unknown kind.
  virtual C3DBaseObject* GetNewObjectFrom(const C3DBaseObject* source);
  virtual int IsCopyAllowed(const C3DBaseObject*) { return 1; }
  // Called after every copy; does nothing here.
  virtual void CopyDone(C3DBaseObject*, const C3DBaseObject*) {}
  virtual C3DFaceList* GetNewFaceList();
  virtual C3DPointList* GetNewPointList();
  // Mesh and patch get both lists, a curve only points, a group none.
  virtual C3DBaseObject* GetNewPolygonalObject();
  virtual C3DBaseObject* GetNewCurveObject();
  virtual C3DBaseObject* GetNewPatchObject();
  virtual C3DBaseObject* GetNewGroupObject();
};

// Makes every copy a plain mesh, whatever the source's kind (so a curve,
// which copies only into a curve, cannot be copied through it).
class C3DMeshObjectCreator : public C3DObjectCreator {
public:
  C3DBaseObject* GetNewObjectFrom(const C3DBaseObject* source) override;
};

} // namespace meshcore
