#include "platform/linux/v4l2/UdevNodes.h"

#include <libudev.h>
#include <unistd.h>

#include <string_view>
#include <utility>

namespace QelUtilVideo {

namespace {

template <auto release>
struct Releaser {
  template <class T>
  void operator()(T* object) const {
    (void)release(object);
  }
};
using Udev = std::unique_ptr<udev, Releaser<udev_unref>>;
using UdevDevice = std::unique_ptr<udev_device, Releaser<udev_device_unref>>;
using UdevEnumerate = std::unique_ptr<udev_enumerate, Releaser<udev_enumerate_unref>>;
using UdevMonitor = std::unique_ptr<udev_monitor, Releaser<udev_monitor_unref>>;

constexpr const char* kSubsystem = "video4linux";
/// A burst of events, as when a hub is plugged in, must not be lost.
constexpr int kMonitorBytes = 1 << 20;

std::string property(udev_device& device, const char* name) {
  const char* value = udev_device_get_property_value(&device, name);
  return value ? value : "";
}

std::string attribute(udev_device& device, const char* name) {
  const char* value = udev_device_get_sysattr_value(&device, name);
  return value ? value : "";
}

/// Empty for a node that is not called as those of video are: the parts of a camera have nodes, too.
std::string path(udev_device& device) {
  constexpr std::string_view start = "video";
  const char* name = udev_device_get_sysname(&device);
  const char* node = udev_device_get_devnode(&device);
  return name && node && std::string_view(name).starts_with(start) ? node : "";
}

/// Properties are there only if the rules of the system set them.
CameraNode describe(udev_device& device) {
  CameraNode node;
  node.path = path(device);
  node.name = property(device, "ID_V4L_PRODUCT");
  if (node.name.empty()) node.name = attribute(device, "name");
  node.serial = property(device, "ID_SERIAL");
  node.port = property(device, "ID_PATH");
  node.index = attribute(device, "index");
  const std::string capabilities = property(device, "ID_V4L_CAPABILITIES");
  if (!capabilities.empty()) node.canCapture = capabilities.find(":capture:") != std::string::npos;
  return node;
}

class UdevWatch final : public NodeSource {
 public:
  UdevWatch(EventLoop& loop, NodeEvents events) : loop_(loop), events_(std::move(events)) {
    // Before the list, so that no node falls between the two.
    if (udev_) monitor_.reset(udev_monitor_new_from_netlink(udev_.get(), "udev"));
    if (monitor_) {
      (void)udev_monitor_filter_add_match_subsystem_devtype(monitor_.get(), kSubsystem, nullptr);
      (void)udev_monitor_set_receive_buffer_size(monitor_.get(), kMonitorBytes);
      if (udev_monitor_enable_receiving(monitor_.get()) < 0) monitor_.reset();
    }
    for (const CameraNode& node : listUdevNodes()) events_.added(node);
    if (monitor_) loop_.watch(udev_monitor_get_fd(monitor_.get()), [this] { take(); });
  }
  UdevWatch(const UdevWatch&) = delete;
  UdevWatch& operator=(const UdevWatch&) = delete;
  ~UdevWatch() override {
    if (monitor_) loop_.unwatch(udev_monitor_get_fd(monitor_.get()));
  }

 private:
  void take() {
    while (const UdevDevice device{udev_monitor_receive_device(monitor_.get())}) {
      const char* action = udev_device_get_action(device.get());
      const std::string node = path(*device);
      if (!action || node.empty()) continue;
      if (std::string_view(action) == "remove") {
        events_.removed(node);
      } else {
        events_.added(describe(*device));
      }
    }
  }

  EventLoop& loop_;
  const NodeEvents events_;
  const Udev udev_{udev_new()};
  UdevMonitor monitor_;
};

}  // namespace

std::vector<CameraNode> listUdevNodes() {
  std::vector<CameraNode> nodes;
  const Udev udev{udev_new()};
  const UdevEnumerate enumerate{udev ? udev_enumerate_new(udev.get()) : nullptr};
  if (!enumerate || udev_enumerate_add_match_subsystem(enumerate.get(), kSubsystem) < 0 ||
      udev_enumerate_scan_devices(enumerate.get()) < 0) {
    return nodes;
  }
  for (auto* entry = udev_enumerate_get_list_entry(enumerate.get()); entry;
       entry = udev_list_entry_get_next(entry)) {
    const UdevDevice device{udev_device_new_from_syspath(udev.get(), udev_list_entry_get_name(entry))};
    if (device && !path(*device).empty()) nodes.push_back(describe(*device));
  }
  sortByNumber(nodes);
  return nodes;
}

std::unique_ptr<NodeSource> watchUdevNodes(EventLoop& loop, NodeEvents events) {
  return std::make_unique<UdevWatch>(loop, std::move(events));
}

bool isUdevRunning() { return ::access("/run/udev/control", F_OK) == 0; }

}  // namespace QelUtilVideo
