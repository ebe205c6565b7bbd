// The peer's whole-process import, timed against `meshcore info`: one raw
// import of argv[1] with no post-processing, then the counts and exit.
#include <assimp/Importer.hpp>
#include <assimp/scene.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s FILE\n", argv[0]);
    return 2;
  }
  Assimp::Importer importer;
  const aiScene* scene = importer.ReadFile(argv[1], 0);
  if (!scene) {
    std::fprintf(stderr, "%s: %s\n", argv[1], importer.GetErrorString());
    return 1;
  }
  unsigned long long faces = 0;
  for (unsigned i = 0; i < scene->mNumMeshes; ++i)
    faces += scene->mMeshes[i]->mNumFaces;
  std::printf("%u meshes, %llu faces\n", scene->mNumMeshes, faces);
  return 0;
}
