#include "platform/linux/x11/ShmSegment.h"

#include "platform/linux/core/UniqueFD.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/shm.h>

#include <utility>

namespace QelUtilVideo {

namespace {

using Use = X11Connection::Use;

/// A System V segment that goes when the last process lets go of it.
class KeyedSegment {
 public:
  explicit KeyedSegment(std::size_t size) : id_(::shmget(IPC_PRIVATE, size, IPC_CREAT | 0600)) {}
  KeyedSegment(const KeyedSegment&) = delete;
  KeyedSegment& operator=(const KeyedSegment&) = delete;
  ~KeyedSegment() { remove(); }

  int id() const { return id_; }
  explicit operator bool() const { return id_ >= 0; }
  std::byte* map() const {
    void* memory = ::shmat(id_, nullptr, 0);
    return memory == reinterpret_cast<void*>(-1) ? nullptr : static_cast<std::byte*>(memory);
  }
  /// Those that have it mapped, and those that still map it while one has, keep it.
  void remove() {
    if (id_ >= 0 && !std::exchange(isRemoved_, true)) ::shmctl(id_, IPC_RMID, nullptr);
  }

 private:
  int id_;
  bool isRemoved_ = false;
};

}  // namespace

std::unique_ptr<ShmSegment> ShmSegment::make(const std::shared_ptr<X11Connection>& connection,
                                             std::size_t size) {
  if (size == 0 || !connection->hasSharedMemory()) return nullptr;
  if (auto segment = makeByDescriptor(connection, size)) return segment;
  return makeByKey(connection, size);
}

std::unique_ptr<ShmSegment> ShmSegment::makeByDescriptor(const std::shared_ptr<X11Connection>& connection,
                                                         std::size_t size) {
  if (!connection->hasDescriptorPassing()) return nullptr;
  UniqueFD file(::memfd_create("QelUtilVideo", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!file || ::ftruncate(file.get(), static_cast<off_t>(size)) != 0) return nullptr;
  // Whoever else has the file must not cut it short: reading beyond its end is a bus error.
  if (::fcntl(file.get(), F_ADD_SEALS, F_SEAL_SHRINK) != 0) return nullptr;
  void* mapped = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
  if (mapped == MAP_FAILED) return nullptr;
  Memory memory(static_cast<std::byte*>(mapped), [size](std::byte* bytes) { ::munmap(bytes, size); });

  const Use use(*connection);
  const xcb_shm_seg_t id = xcb_generate_id(use);
  // Sending closes the descriptor.
  if (!use.succeeded(xcb_shm_attach_fd_checked(use, id, file.release(), 0))) return nullptr;
  return std::make_unique<ShmSegment>(Token{}, connection, std::move(memory), size, id);
}

std::unique_ptr<ShmSegment> ShmSegment::makeByKey(const std::shared_ptr<X11Connection>& connection,
                                                  std::size_t size) {
  KeyedSegment keyed(size);
  if (!keyed) return nullptr;
  Memory memory(keyed.map(), [](std::byte* bytes) { ::shmdt(bytes); });
  if (!memory) return nullptr;
  keyed.remove();

  const Use use(*connection);
  const xcb_shm_seg_t id = xcb_generate_id(use);
  const auto attach = xcb_shm_attach_checked(use, id, static_cast<std::uint32_t>(keyed.id()), 0);
  if (!use.succeeded(attach)) return nullptr;
  return std::make_unique<ShmSegment>(Token{}, connection, std::move(memory), size, id);
}

ShmSegment::ShmSegment(Token, std::shared_ptr<X11Connection> connection, Memory memory, std::size_t size,
                       xcb_shm_seg_t id)
    : connection_(std::move(connection)), memory_(std::move(memory)), size_(size), id_(id) {}

ShmSegment::~ShmSegment() {
  const Use use(*connection_);
  xcb_discard_reply(use, xcb_shm_detach_checked(use, id_).sequence);
  xcb_flush(use);
}

}  // namespace QelUtilVideo
