#pragma once
// Point welding: merges the points of an object that share or touch a cell of
// the proximity grid, rewrites the faces to use one point of each cluster and
// removes what became degenerate.

namespace meshcore {

class C3DBaseObject;

// Welds object's points with the given tolerance (see proximity.h for what
// "close" means). Clusters are the connected components of the neighbour
// relation, so a chain of close points collapses into one point. The point
// that survives is the first of its cluster met in the proximity result's
// iteration order; it keeps its coordinates. removedPoints and removedFaces
// receive how many points and faces disappeared. Returns 0.
//
// The calling thread's cancel request (SetCancel) stops the work within a few
// milliseconds, as long as nothing has been changed yet; the object is then
// left as it was, both counters are 0 and the result is kWeldCancelled.
// Progress is reported (ReportProgress) while the clusters are found.
inline constexpr int kWeldCancelled = -1;
int Weld3DPoints(C3DBaseObject& object, float tolerance, int& removedPoints, int& removedFaces);

} // namespace meshcore
