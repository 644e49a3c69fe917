// Preloaded into a server: counts heap requests and their bytes into a file that is mapped shared, two 64-bit
// numbers. The file is named by KEELD_MALLOC_COUNT.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

struct Counters {
  std::atomic<std::uint64_t> requests;
  std::atomic<std::uint64_t> bytes;
};

Counters* counters = nullptr;

__attribute__((constructor)) void Start() {
  char const* const path = std::getenv("KEELD_MALLOC_COUNT");
  int const fd = path ? ::open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600) : -1;
  if (fd < 0 || ::ftruncate(fd, sizeof(Counters)) != 0) {
    return;
  }
  void* const memory = ::mmap(nullptr, sizeof(Counters), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  ::close(fd);
  if (memory != MAP_FAILED) {
    counters = static_cast<Counters*>(memory);
  }
}

void Count(std::size_t size) {
  if (counters) {
    counters->requests.fetch_add(1, std::memory_order_relaxed);
    counters->bytes.fetch_add(size, std::memory_order_relaxed);
  }
}

}  // namespace

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);

void* malloc(std::size_t size) {
  Count(size);
  return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
  Count(count * size);
  return __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) {
  Count(size);
  return __libc_realloc(memory, size);
}
}
