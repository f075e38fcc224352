#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <new>
#include <span>

namespace qeltest {

/// Room for bytes that end where memory ends: whoever reads one byte further is killed, libraries without
/// sanitizers and their vector instructions included.
class GuardedBytes {
 public:
  explicit GuardedBytes(std::size_t capacity) {
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    room_ = (capacity + page - 1) / page * page;
    mapped_ = room_ + page;
    void* const memory = ::mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    memory_ = static_cast<std::byte*>(memory);
    if (::mprotect(memory_ + room_, page, PROT_NONE) != 0) std::terminate();
  }
  GuardedBytes(const GuardedBytes&) = delete;
  GuardedBytes& operator=(const GuardedBytes&) = delete;
  ~GuardedBytes() { ::munmap(memory_, mapped_); }

  /// A copy, of at most the capacity, that lasts until the next one.
  std::span<const std::byte> hold(std::span<const std::uint8_t> bytes) {
    std::byte* const first = memory_ + room_ - bytes.size();
    if (!bytes.empty()) std::memcpy(first, bytes.data(), bytes.size());
    return {first, bytes.size()};
  }

 private:
  std::byte* memory_ = nullptr;
  std::size_t room_ = 0;
  std::size_t mapped_ = 0;
};

}  // namespace qeltest
