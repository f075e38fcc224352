#pragma once

#include "platform/linux/v4l2/VideoNode.h"

#include <linux/videodev2.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <vector>

namespace QelUtilVideo {

/// Bytes on the heap, so that a sanitizer sees who reads beyond them.
struct HeapBuffer final : MappedBuffer {
  explicit HeapBuffer(std::size_t size) : content(size) {}
  [[nodiscard]] std::byte* bytes() const override { return content.data(); }
  [[nodiscard]] std::size_t size() const override { return content.size(); }
  mutable std::vector<std::byte> content;
};

/// A node whose answers the test gives.
class ScriptedNode final : public VideoNode {
 public:
  template <class T>
  void on(unsigned long request, std::function<int(T&)> answer) {
    answers_[request] = [answer](void* argument) { return answer(*static_cast<T*>(argument)); };
  }

  [[nodiscard]] int control(unsigned long request, void* argument) const override {
    calls.push_back(request);
    const auto found = answers_.find(request);
    return found == answers_.end() ? ENOTTY : found->second(argument);
  }
  [[nodiscard]] std::shared_ptr<MappedBuffer> map(std::size_t size, std::uint32_t offset) const override {
    return mapped[offset] = std::make_shared<HeapBuffer>(size);
  }
  [[nodiscard]] Awaited wait(int, std::optional<std::chrono::nanoseconds>) const override {
    return Awaited::stop;
  }

  mutable std::vector<unsigned long> calls;
  mutable std::map<std::uint32_t, std::shared_ptr<HeapBuffer>> mapped;  ///< by offset

 private:
  std::map<unsigned long, std::function<int(void*)>> answers_;
};

}  // namespace QelUtilVideo
