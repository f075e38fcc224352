#define FUSE_USE_VERSION 312

#include "support/camera/FuseNode.h"

#include <fcntl.h>
#include <fuse3/fuse_lowlevel.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

namespace qeltest {

/// Who waits in poll, and where the node's numbers end.
struct FuseNode::Polls {
  using Handle = std::unique_ptr<fuse_pollhandle, decltype(&fuse_pollhandle_destroy)>;

  void keep(CameraModel::File file, fuse_pollhandle* handle) {
    const std::lock_guard lock(mutex);
    handles.insert_or_assign(file, Handle(handle, fuse_pollhandle_destroy));
  }
  void forget(CameraModel::File file) {
    const std::lock_guard lock(mutex);
    handles.erase(file);
  }
  /// Outside of the lock: the system may ask at once.
  void wake() {
    std::map<CameraModel::File, Handle> woken;
    {
      const std::lock_guard lock(mutex);
      woken.swap(handles);
    }
    for (const auto& [file, handle] : woken) fuse_lowlevel_notify_poll(handle.get());
  }

  std::mutex mutex;
  std::map<CameraModel::File, Handle> handles;
};

/// What the system calls.
struct FuseNode::Calls {
  static FuseNode& node(fuse_req_t request) { return *static_cast<FuseNode*>(fuse_req_userdata(request)); }

  static void getattr(fuse_req_t request, fuse_ino_t inode, fuse_file_info*) {
    struct stat status {};
    status.st_ino = inode;
    status.st_mode = S_IFREG | node(request).mode_;
    status.st_nlink = 1;
    status.st_uid = ::getuid();
    status.st_gid = ::getgid();
    status.st_size = static_cast<off_t>(CameraModel::kRegion * CameraModel::kRegions);
    fuse_reply_attr(request, &status, 1);
  }
  static void setattr(fuse_req_t request, fuse_ino_t inode, struct stat*, int, fuse_file_info* file) {
    getattr(request, inode, file);
  }
  static void open(fuse_req_t request, fuse_ino_t, fuse_file_info* file) {
    FuseNode& self = node(request);
    if (self.model_->isGone()) {
      fuse_reply_err(request, ENODEV);
      return;
    }
    // The number tells whether the caller waits: later calls do not.
    file->fh = ++self.lastFile_ << 1 | (file->flags & O_NONBLOCK ? 1 : 0);
    file->keep_cache = 1;
    file->nonseekable = 0;
    self.model_->open(file->fh);
    fuse_reply_open(request, file);
  }
  static void release(fuse_req_t request, fuse_ino_t, fuse_file_info* file) {
    node(request).polls_->forget(file->fh);
    node(request).model_->release(file->fh);
    fuse_reply_err(request, 0);
  }
  /// Pages that nothing was stored in; and what read() is told.
  static void read(fuse_req_t request, fuse_ino_t, std::size_t size, off_t, fuse_file_info*) {
    const std::vector<char> nothing(size);
    fuse_reply_buf(request, nothing.data(), nothing.size());
  }
  /// What somebody drew into a picture.
  static void write(fuse_req_t request, fuse_ino_t, const char*, std::size_t size, off_t, fuse_file_info*) {
    fuse_reply_write(request, size);
  }
  static void poll(fuse_req_t request, fuse_ino_t, fuse_file_info* file, fuse_pollhandle* handle) {
    FuseNode& self = node(request);
    // Before the look, so that nothing falls between the two.
    if (handle) self.polls_->keep(file->fh, handle);
    fuse_reply_poll(request, static_cast<unsigned>(self.model_->events(file->fh)));
  }
  static void interrupted(fuse_req_t, void* data) {
    const auto& [model, file] = *static_cast<std::pair<CameraModel*, CameraModel::File>*>(data);
    model->interrupt(file);
  }
  static void takeBuffer(fuse_req_t request, fuse_file_info* file, const void* argument) {
    FuseNode& self = node(request);
    v4l2_buffer buffer;
    std::memcpy(&buffer, argument, sizeof buffer);
    const bool waits = !(file->fh & 1);
    auto who = std::make_shared<std::pair<CameraModel*, CameraModel::File>>(self.model_.get(), file->fh);
    if (waits) fuse_req_interrupt_func(request, interrupted, who.get());
    self.model_->dequeue(file->fh, buffer, waits, [request, who](int error, const v4l2_buffer& answer) {
      if (error) {
        fuse_reply_err(request, error);
      } else {
        fuse_reply_ioctl(request, 0, &answer, sizeof answer);
      }
    });
  }
  static void ioctl(fuse_req_t request, fuse_ino_t, unsigned command, void*, fuse_file_info* file, unsigned,
                    const void* input, std::size_t inputSize, std::size_t outputSize) {
    // Commands have 32 bits; numbers that look negative come sign-extended.
    std::array<std::byte, 1 << _IOC_SIZEBITS> argument{};
    if (input) std::memcpy(argument.data(), input, std::min(inputSize, argument.size()));
    if (command == VIDIOC_DQBUF) return takeBuffer(request, file, argument.data());
    const int error = node(request).model_->control(file->fh, command, argument.data());
    // Waiters learn what a call may have changed for them.
    if (command == VIDIOC_STREAMOFF || command == VIDIOC_STREAMON) node(request).polls_->wake();
    if (error) {
      fuse_reply_err(request, error);
    } else {
      fuse_reply_ioctl(request, 0, argument.data(), std::min(outputSize, argument.size()));
    }
  }

  static const fuse_lowlevel_ops& operations() {
    static const fuse_lowlevel_ops all = [] {
      fuse_lowlevel_ops ops{};
      ops.getattr = getattr;
      ops.setattr = setattr;
      ops.open = open;
      ops.release = release;
      ops.read = read;
      ops.write = write;
      ops.poll = poll;
      ops.ioctl = ioctl;
      return ops;
    }();
    return all;
  }
};

FuseNode::FuseNode(std::string path, unsigned mode)
    : path_(std::move(path)), mode_(mode), polls_(std::make_unique<Polls>()) {}

std::unique_ptr<FuseNode> FuseNode::mount(const std::string& path, const CameraOptions& options,
                                          unsigned mode) {
  std::unique_ptr<FuseNode> node(new FuseNode(path, mode));
  const int file = ::open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
  node->isFileOurs_ = file >= 0;
  if (file >= 0) ::close(file);

  std::array<char*, 4> arguments{const_cast<char*>("camera"), const_cast<char*>("-o"),
                                 const_cast<char*>("fsname=camera,subtype=v4l2"), nullptr};
  fuse_args parsed = FUSE_ARGS_INIT(3, arguments.data());
  node->session_ = fuse_session_new(&parsed, &Calls::operations(), sizeof(fuse_lowlevel_ops), node.get());
  fuse_opt_free_args(&parsed);
  if (!node->session_) return nullptr;
  node->model_ = std::make_unique<CameraModel>(
      options,
      [session = node->session_](std::uint64_t offset, const std::vector<std::uint8_t>& bytes) {
        fuse_bufvec buffer = FUSE_BUFVEC_INIT(bytes.size());
        buffer.buf[0].mem = const_cast<std::uint8_t*>(bytes.data());
        fuse_lowlevel_notify_store(session, FUSE_ROOT_ID, static_cast<off_t>(offset), &buffer,
                                   static_cast<fuse_buf_copy_flags>(0));
      },
      [polls = node->polls_.get()] { polls->wake(); });
  if (fuse_session_mount(node->session_, path.c_str()) != 0) return nullptr;
  node->isMounted_ = true;
  return node;
}

FuseNode::~FuseNode() {
  remove();
  polls_->handles.clear();
  if (session_) fuse_session_destroy(session_);
}

int FuseNode::descriptor() const { return fuse_session_exited(session_) ? -1 : fuse_session_fd(session_); }

bool FuseNode::serve() {
  fuse_buf buffer{};
  const int size = fuse_session_receive_buf(session_, &buffer);
  if (size > 0) fuse_session_process_buf(session_, &buffer);
  std::free(buffer.mem);  // NOLINT(cppcoreguidelines-no-malloc): the library's
  return size > 0 || size == -EINTR || size == -EAGAIN;
}

void FuseNode::remove() {
  if (!std::exchange(isMounted_, false)) return;
  // Where that takes a right that we do not have, the program for it does it.
  if (::umount2(path_.c_str(), MNT_DETACH) != 0) {
    // NOLINTNEXTLINE(cert-env33-c): the path is the test's own
    (void)!std::system(("fusermount3 -u -z '" + path_ + "'").c_str());
  }
  if (isFileOurs_) ::unlink(path_.c_str());
}

}  // namespace qeltest
