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
int Weld3DPoints(C3DBaseObject& object, float tolerance, int& removedPoints, int& removedFaces);

} // namespace meshcore
