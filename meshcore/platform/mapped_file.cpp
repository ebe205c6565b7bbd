#include "meshcore/platform/mapped_file.h"

#if defined(__unix__) || defined(__APPLE__)
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#define MESHCORE_HAS_MMAP 1
#endif

namespace meshcore {

bool CMappedFile::Open([[maybe_unused]] const std::string& path) {
  Close();
#if defined(MESHCORE_HAS_MMAP)
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0)
    return false;
  struct stat info {};
  void* p = MAP_FAILED;
  if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0 &&
      static_cast<std::uint64_t>(info.st_size) <= SIZE_MAX) {
    int flags = MAP_PRIVATE;
#if defined(MAP_POPULATE)
    flags |= MAP_POPULATE; // the whole file is read at once: map it in one go
#endif
    p = ::mmap(nullptr, static_cast<std::size_t>(info.st_size), PROT_READ, flags, fd, 0);
  }
  ::close(fd); // the mapping keeps the file
  if (p == MAP_FAILED)
    return false;
  m_data = static_cast<const std::uint8_t*>(p);
  m_size = static_cast<std::size_t>(info.st_size);
  return true;
#else
  return false;
#endif
}

void CMappedFile::Close() {
#if defined(MESHCORE_HAS_MMAP)
  if (m_data)
    ::munmap(const_cast<std::uint8_t*>(m_data), m_size);
#endif
  m_data = nullptr;
  m_size = 0;
}

} // namespace meshcore
