#include "platform/linux/v4l2/VideoNode.h"

#include "platform/linux/core/UniqueFD.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

#include <array>
#include <cerrno>
#include <utility>

namespace QelUtilVideo {

namespace {

class Mapping final : public MappedBuffer {
 public:
  Mapping(void* bytes, std::size_t size) : bytes_(static_cast<std::byte*>(bytes)), size_(size) {}
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;
  ~Mapping() override { ::munmap(bytes_, size_); }

  [[nodiscard]] std::byte* bytes() const override { return bytes_; }
  [[nodiscard]] std::size_t size() const override { return size_; }

 private:
  std::byte* const bytes_;
  const std::size_t size_;
};

class OpenNode final : public VideoNode {
 public:
  explicit OpenNode(UniqueFD fd) : fd_(std::move(fd)) {}

  [[nodiscard]] int control(unsigned long request, void* argument) const override {
    for (;;) {
      if (::ioctl(fd_.get(), request, argument) == 0) return 0;
      if (errno != EINTR) return errno;
    }
  }

  [[nodiscard]] std::shared_ptr<MappedBuffer> map(std::size_t size, std::uint32_t offset) const override {
    // Whoever gets the picture may draw on it.
    void* bytes = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd_.get(), offset);
    if (bytes == MAP_FAILED) return nullptr;
    return std::make_shared<Mapping>(bytes, size);
  }

  [[nodiscard]] Awaited wait(int stop, std::optional<std::chrono::nanoseconds> patience) const override {
    using namespace std::chrono;
    const auto end = steady_clock::now() + patience.value_or(nanoseconds::zero());
    for (;;) {
      std::array<pollfd, 2> entries{{{stop, POLLIN, 0}, {fd_.get(), POLLIN, 0}}};
      const auto left = std::max<nanoseconds>(end - steady_clock::now(), nanoseconds::zero());
      const auto whole = duration_cast<seconds>(left);
      const timespec time{whole.count(), (left - whole).count()};
      const int ready = ::ppoll(entries.data(), entries.size(), patience ? &time : nullptr, nullptr);
      if (ready == 0) return Awaited::silence;
      if (ready < 0 && errno == EINTR) continue;
      return entries[0].revents ? Awaited::stop : Awaited::frame;
    }
  }

 private:
  const UniqueFD fd_;
};

}  // namespace

OpenedNode openVideoNode(const std::string& path) {
  UniqueFD fd(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  if (!fd) return {nullptr, errno};
  return {std::make_shared<OpenNode>(std::move(fd)), 0};
}

}  // namespace QelUtilVideo
