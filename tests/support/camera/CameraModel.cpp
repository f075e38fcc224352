#include "support/camera/CameraModel.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <thread>
#include <utility>

namespace qeltest {

namespace {

constexpr std::uint32_t kType = V4L2_BUF_TYPE_VIDEO_CAPTURE;
/// Pictures are made once and shown in turn.
constexpr std::uint32_t kPictures = 8;

template <std::size_t size>
void copyText(__u8 (&field)[size], const std::string& text) {
  std::memset(field, 0, size);
  std::memcpy(field, text.data(), std::min(text.size(), size - 1));
}

std::uint32_t bufferFlags(std::uint32_t more) { return V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC | more; }

/// As the kernel describes them.
const char* formatText(std::uint32_t format) {
  static const std::map<std::uint32_t, const char*> texts{{V4L2_PIX_FMT_YUYV, "YUYV 4:2:2"},
                                                          {V4L2_PIX_FMT_UYVY, "UYVY 4:2:2"},
                                                          {V4L2_PIX_FMT_YVYU, "YVYU 4:2:2"},
                                                          {V4L2_PIX_FMT_VYUY, "VYUY 4:2:2"},
                                                          {V4L2_PIX_FMT_NV12, "Y/CbCr 4:2:0"},
                                                          {V4L2_PIX_FMT_NV21, "Y/CrCb 4:2:0"},
                                                          {V4L2_PIX_FMT_YUV420, "Planar YUV 4:2:0"},
                                                          {V4L2_PIX_FMT_YVU420, "Planar YVU 4:2:0"},
                                                          {V4L2_PIX_FMT_YUV422P, "Planar YUV 4:2:2"},
                                                          {V4L2_PIX_FMT_MJPEG, "Motion-JPEG"},
                                                          {V4L2_PIX_FMT_RGB24, "24-bit RGB 8-8-8"},
                                                          {V4L2_PIX_FMT_BGR24, "24-bit BGR 8-8-8"},
                                                          {V4L2_PIX_FMT_BGR32, "32-bit BGRA/X 8-8-8-8"},
                                                          {V4L2_PIX_FMT_GREY, "8-bit Greyscale"},
                                                          {V4L2_PIX_FMT_H264, "H.264"}};
  const auto found = texts.find(format);
  return found == texts.end() ? "Unknown" : found->second;
}

int errorNumber(const std::string& name) {
  static const std::map<std::string, int> numbers{{"EIO", EIO},     {"ENODEV", ENODEV}, {"ENOSPC", ENOSPC},
                                                  {"EBUSY", EBUSY}, {"EINVAL", EINVAL}, {"EPIPE", EPIPE}};
  const auto found = numbers.find(name);
  return found == numbers.end() ? EIO : found->second;
}

}  // namespace

CameraModel::CameraModel(CameraOptions options, Store store, std::function<void()> wake)
    : options_(std::move(options)), store_(std::move(store)), wake_(std::move(wake)) {
  v4l2_format format{};
  format.type = kType;
  format.fmt.pix.pixelformat = mode().format;
  format.fmt.pix.width = mode().width;
  format.fmt.pix.height = mode().height;
  setFormat(format, false);
}

void CameraModel::open(File file) {
  const Lock lock(mutex_);
  files_[file] = V4L2_PRIORITY_DEFAULT;
  ++opens_;
}

void CameraModel::release(File file) {
  interrupt(file);
  const Lock lock(mutex_);
  files_.erase(file);
  if (owner_ != file) return;
  stopStream();
  buffers_.clear();
  owner_.reset();
}

bool CameraModel::isBusyFor(File file) const { return isBusy_ || (owner_ && owner_ != file); }

bool CameraModel::isGone() {
  const Lock lock(mutex_);
  return isGone_;
}

int CameraModel::control(File file, std::uint32_t request, void* argument) {
  Lock lock(mutex_);
  if (isGone_) return ENODEV;
  if (request == VIDIOC_S_FMT && slowOpening_.count() > 0) {
    const auto pause = slowOpening_;
    lock.unlock();
    std::this_thread::sleep_for(pause);
    lock.lock();
  }
  switch (request) {
    case VIDIOC_QUERYCAP: {
      auto& capability = *static_cast<v4l2_capability*>(argument);
      capability = {};
      copyText(capability.driver, "emulated");
      copyText(capability.card, options_.card);
      copyText(capability.bus_info, options_.bus);
      capability.version = 6 << 16 | 1 << 8;
      capability.device_caps = options_.capabilities | V4L2_CAP_EXT_PIX_FORMAT;
      capability.capabilities = capability.device_caps | V4L2_CAP_DEVICE_CAPS;
      return 0;
    }
    case VIDIOC_ENUM_FMT:
      return describeFormat(*static_cast<v4l2_fmtdesc*>(argument));
    case VIDIOC_ENUM_FRAMESIZES:
      return options_.listsSizes ? describeSize(*static_cast<v4l2_frmsizeenum*>(argument)) : ENOTTY;
    case VIDIOC_ENUM_FRAMEINTERVALS:
      return options_.listsSizes ? describeInterval(*static_cast<v4l2_frmivalenum*>(argument)) : ENOTTY;
    case VIDIOC_G_FMT: {
      auto& format = *static_cast<v4l2_format*>(argument);
      format.fmt.pix.pixelformat = shape_.format;
      format.fmt.pix.width = shape_.width;
      format.fmt.pix.height = shape_.height;
      return setFormat(format, true);
    }
    case VIDIOC_TRY_FMT:
      return setFormat(*static_cast<v4l2_format*>(argument), true);
    case VIDIOC_S_FMT:
      if (isBusyFor(file) || !buffers_.empty()) return EBUSY;
      return setFormat(*static_cast<v4l2_format*>(argument), false);
    case VIDIOC_G_PARM:
    case VIDIOC_S_PARM:
      if (request == VIDIOC_S_PARM && (isBusyFor(file) || isStreaming_)) return EBUSY;
      return parameters(*static_cast<v4l2_streamparm*>(argument), request == VIDIOC_S_PARM);
    case VIDIOC_ENUMINPUT: {
      auto& input = *static_cast<v4l2_input*>(argument);
      if (input.index != 0) return EINVAL;
      input = {};
      copyText(input.name, "Camera 1");
      input.type = V4L2_INPUT_TYPE_CAMERA;
      return 0;
    }
    case VIDIOC_G_INPUT:
      *static_cast<int*>(argument) = 0;
      return 0;
    case VIDIOC_S_INPUT:
      return *static_cast<int*>(argument) == 0 ? 0 : EINVAL;
    case VIDIOC_G_PRIORITY: {
      std::uint32_t highest = V4L2_PRIORITY_UNSET;
      for (const auto& [each, priority] : files_) highest = std::max<std::uint32_t>(highest, priority);
      *static_cast<std::uint32_t*>(argument) = highest;
      return 0;
    }
    case VIDIOC_S_PRIORITY: {
      const auto priority = *static_cast<std::uint32_t*>(argument);
      if (priority == V4L2_PRIORITY_UNSET || priority > V4L2_PRIORITY_RECORD) return EINVAL;
      const auto isAbove = [&](const auto& other) { return other.second > files_[file]; };
      if (std::ranges::any_of(files_, isAbove)) return EBUSY;
      files_[file] = static_cast<v4l2_priority>(priority);
      return 0;
    }
    case VIDIOC_REQBUFS:
      return this->request(file, *static_cast<v4l2_requestbuffers*>(argument));
    case VIDIOC_QUERYBUF: {
      auto& buffer = *static_cast<v4l2_buffer*>(argument);
      if (buffer.type != kType || buffer.index >= buffers_.size()) return EINVAL;
      describe(buffer.index, buffer);
      return 0;
    }
    case VIDIOC_QBUF:
      if (owner_ && owner_ != file) return EBUSY;
      return queue(*static_cast<v4l2_buffer*>(argument));
    case VIDIOC_STREAMON:
    case VIDIOC_STREAMOFF:
      return stream(file, *static_cast<int*>(argument), request == VIDIOC_STREAMON);
    default:
      return ENOTTY;
  }
}

int CameraModel::describeFormat(v4l2_fmtdesc& description) const {
  if (description.type != kType) return EINVAL;
  std::vector<std::uint32_t> formats;
  for (const OfferedMode& each : options_.modes) {
    if (std::ranges::find(formats, each.format) == formats.end()) formats.push_back(each.format);
  }
  const std::uint32_t index = description.index;
  if (index >= formats.size()) return EINVAL;
  description = {};
  description.index = index;
  description.type = kType;
  description.pixelformat = formats[index];
  const bool isCompressed = formats[index] == V4L2_PIX_FMT_MJPEG || formats[index] == V4L2_PIX_FMT_H264;
  description.flags = isCompressed ? V4L2_FMT_FLAG_COMPRESSED : 0;
  copyText(description.description, formatText(formats[index]));
  return 0;
}

int CameraModel::describeSize(v4l2_frmsizeenum& size) const {
  std::uint32_t left = size.index;
  for (const OfferedMode& each : options_.modes) {
    if (each.format != size.pixel_format || left-- > 0) continue;
    size = {size.index, each.format, V4L2_FRMSIZE_TYPE_DISCRETE, {}, {}};
    size.discrete = {each.width, each.height};
    return 0;
  }
  return EINVAL;
}

int CameraModel::describeInterval(v4l2_frmivalenum& interval) const {
  for (const OfferedMode& each : options_.modes) {
    if (each.format != interval.pixel_format || each.width != interval.width ||
        each.height != interval.height || interval.index >= each.rates.size()) {
      continue;
    }
    interval.type = V4L2_FRMIVAL_TYPE_DISCRETE;
    interval.discrete = {1, each.rates[interval.index]};
    std::ranges::fill(interval.reserved, 0U);
    return 0;
  }
  return EINVAL;
}

/// The mode nearest to what is asked for, as drivers choose it.
int CameraModel::setFormat(v4l2_format& format, bool isTrial) {
  if (format.type != kType) return EINVAL;
  v4l2_pix_format& pixels = format.fmt.pix;
  const auto distance = [&](const OfferedMode& each) {
    const auto off = [](std::uint32_t a, std::uint32_t b) { return a > b ? a - b : b - a; };
    return std::pair(each.format != pixels.pixelformat,
                     off(each.width, pixels.width) + off(each.height, pixels.height));
  };
  const auto chosen = std::ranges::min_element(options_.modes, {}, distance);
  const PictureShape shape = pictureShape(chosen->format, chosen->width, chosen->height, options_.padding);
  pixels = {};
  pixels.pixelformat = shape.format;
  pixels.width = shape.width;
  pixels.height = shape.height;
  pixels.field = V4L2_FIELD_NONE;
  pixels.bytesperline = shape.bytesPerLine;
  pixels.sizeimage = shape.size;
  pixels.colorspace = shape.format == V4L2_PIX_FMT_MJPEG ? V4L2_COLORSPACE_JPEG : V4L2_COLORSPACE_SMPTE170M;
  pixels.priv = V4L2_PIX_FMT_PRIV_MAGIC;
  if (isTrial) return 0;
  mode_ = static_cast<std::size_t>(chosen - options_.modes.begin());
  rate_ = chosen->rates.front();
  shape_ = shape;
  pictures_.clear();
  return 0;
}

int CameraModel::parameters(v4l2_streamparm& parameters, bool isSet) {
  if (parameters.type != kType) return EINVAL;
  v4l2_captureparm& capture = parameters.parm.capture;
  if (isSet) {
    const v4l2_fract wanted = capture.timeperframe;
    const double rate =
        wanted.numerator && wanted.denominator ? double{1} * wanted.denominator / wanted.numerator : 0;
    const auto off = [&](std::uint32_t each) { return std::abs(each - rate); };
    rate_ = rate > 0 ? *std::ranges::min_element(mode().rates, {}, off) : mode().rates.front();
  }
  parameters = {};
  parameters.type = kType;
  capture.capability = V4L2_CAP_TIMEPERFRAME;
  capture.timeperframe = {1, rate_};
  return 0;
}

int CameraModel::request(File file, v4l2_requestbuffers& request) {
  if (request.type != kType) return EINVAL;
  request.capabilities = V4L2_BUF_CAP_SUPPORTS_MMAP | V4L2_BUF_CAP_SUPPORTS_ORPHANED_BUFS;
  request.flags = 0;
  std::ranges::fill(request.reserved, 0);
  if (request.memory != V4L2_MEMORY_MMAP) return EINVAL;
  if (isBusyFor(file)) return EBUSY;
  stopStream();
  request.count = std::min(request.count, 8U);
  buffers_.assign(request.count, {});
  owner_ = request.count ? std::optional(file) : std::nullopt;
  if (request.count) ++generation_;
  return 0;
}

void CameraModel::describe(std::uint32_t index, v4l2_buffer& buffer) const {
  const Buffer& own = buffers_[index];
  buffer = {};
  buffer.index = index;
  buffer.type = kType;
  buffer.memory = V4L2_MEMORY_MMAP;
  buffer.bytesused = own.bytesUsed;
  buffer.flags = bufferFlags(own.flags | (own.place == Place::queued ? V4L2_BUF_FLAG_QUEUED : 0) |
                             (own.place == Place::done ? V4L2_BUF_FLAG_DONE : 0));
  buffer.field = V4L2_FIELD_NONE;
  buffer.sequence = own.sequence;
  const auto time =
      std::chrono::duration_cast<std::chrono::microseconds>(own.time.time_since_epoch()).count();
  buffer.timestamp = {time / 1'000'000, time % 1'000'000};
  const std::uint32_t step = (shape_.size + 4095) / 4096 * 4096;
  buffer.m.offset = static_cast<std::uint32_t>(generation_ % kRegions * kRegion) + index * step;
  buffer.length = shape_.size;
}

int CameraModel::queue(v4l2_buffer& buffer) {
  if (buffer.type != kType || buffer.memory != V4L2_MEMORY_MMAP || buffer.index >= buffers_.size())
    return EINVAL;
  Buffer& own = buffers_[buffer.index];
  if (own.place != Place::idle) return EINVAL;
  own.place = Place::queued;
  own.flags = 0;
  queued_.push_back(buffer.index);
  describe(buffer.index, buffer);
  changed_.notify_all();
  return 0;
}

int CameraModel::stream(File file, int type, bool isOn) {
  if (type != static_cast<int>(kType)) return EINVAL;
  if (isBusyFor(file)) return EBUSY;
  if (!isOn) {
    stopStream();
    return 0;
  }
  if (buffers_.empty()) return EINVAL;
  while (pictures_.size() < kPictures) {
    pictures_.push_back(testPicture(shape_, static_cast<std::uint32_t>(pictures_.size())));
  }
  isStreaming_ = true;
  sequence_ = 0;
  changed_.notify_all();
  return 0;
}

void CameraModel::stopStream() {
  isStreaming_ = false;
  queued_.clear();
  done_.clear();
  for (Buffer& buffer : buffers_) buffer = {};
  changed_.notify_all();
}

int CameraModel::takeDone(v4l2_buffer& buffer) {
  if (isGone_) return ENODEV;
  if (const int fault = std::exchange(fault_, 0)) return fault;
  if (buffer.type != kType || buffer.memory != V4L2_MEMORY_MMAP || !isStreaming_) return EINVAL;
  if (done_.empty()) return EAGAIN;
  const std::uint32_t index = done_.front();
  done_.pop_front();
  buffers_[index].place = Place::idle;
  describe(index, buffer);
  return 0;
}

void CameraModel::dequeue(File file, const v4l2_buffer& request, bool waits, Reply reply) {
  v4l2_buffer buffer = request;
  int error = 0;
  {
    const Lock lock(mutex_);
    error = owner_ && owner_ != file ? EBUSY : takeDone(buffer);
    if (error == EAGAIN && waits) {
      waiting_.push_back({file, request, std::move(reply)});
      return;
    }
  }
  reply(error, buffer);
}

void CameraModel::interrupt(File file) {
  std::deque<Waiting> given;
  {
    const Lock lock(mutex_);
    for (auto& waiting : waiting_) {
      if (waiting.file == file) given.push_back(std::move(waiting));
    }
    std::erase_if(waiting_, [](const Waiting& waiting) { return !waiting.reply; });
  }
  for (const Waiting& waiting : given) waiting.reply(EINTR, waiting.request);
}

void CameraModel::answerWaiting(Lock& lock) {
  while (!waiting_.empty()) {
    v4l2_buffer buffer = waiting_.front().request;
    const int error = takeDone(buffer);
    if (error == EAGAIN) return;
    const Reply reply = std::move(waiting_.front().reply);
    waiting_.pop_front();
    lock.unlock();
    reply(error, buffer);
    lock.lock();
  }
}

short CameraModel::events(File file) {
  const Lock lock(mutex_);
  if (isGone_) return POLLERR | POLLHUP;
  if (owner_ != file || !isStreaming_ || (queued_.empty() && done_.empty())) return POLLERR;
  return done_.empty() && fault_ == 0 ? 0 : POLLIN | POLLRDNORM;
}

CameraModel::Time::duration CameraModel::period() const {
  if (slow_.count() > 0) return slow_;
  return std::chrono::nanoseconds(1'000'000'000 / std::max(rate_, 1U));
}

void CameraModel::run() {
  Lock lock(mutex_);
  while (!isEnded_) {
    changed_.wait(lock, [&] { return isEnded_ || isStreaming_; });
    Time due = std::chrono::steady_clock::now() + period();
    while (isStreaming_ && !isEnded_) {
      if (changed_.wait_until(lock, due, [&] { return !isStreaming_ || isEnded_; })) break;
      if (!isFrozen_ && !isGone_) fillNext(lock, due);
      due += period();
    }
  }
}

void CameraModel::fillNext(Lock& lock, Time due) {
  ++made_;
  const std::uint32_t sequence = sequence_++;
  if (queued_.empty()) {
    ++dropped_;
    return;
  }
  const std::uint32_t index = queued_.front();
  queued_.pop_front();
  std::vector<std::uint8_t> picture = pictures_[sequence % kPictures];
  if (corrupt_ > 0 && corrupt_--) {
    std::fill(picture.begin() + static_cast<std::ptrdiff_t>(picture.size() / 2), picture.end(),
              std::uint8_t{0xff});
  }
  if (short_ > 0 && short_--) picture.resize(picture.size() / 3);
  const bool isDamaged = damaged_ > 0 && damaged_--;
  v4l2_buffer buffer{};
  describe(index, buffer);
  const std::uint64_t generation = generation_;
  lock.unlock();
  store_(buffer.m.offset, picture);
  lock.lock();
  if (generation != generation_ || !isStreaming_ || index >= buffers_.size()) return;
  Buffer& own = buffers_[index];
  own.place = Place::done;
  own.bytesUsed = static_cast<std::uint32_t>(picture.size());
  own.sequence = sequence;
  own.flags = isDamaged ? V4L2_BUF_FLAG_ERROR : 0;
  own.time = due;
  done_.push_back(index);
  answerWaiting(lock);
  lock.unlock();
  wake_();
  lock.lock();
}

void CameraModel::end() {
  const Lock lock(mutex_);
  isEnded_ = true;
  changed_.notify_all();
}

std::string CameraModel::status() {
  std::ostringstream text;
  text << "{\"opens\": " << opens_ << ", \"streaming\": " << (isStreaming_ ? "true" : "false")
       << ", \"width\": " << shape_.width << ", \"height\": " << shape_.height << ", \"rate\": " << rate_
       << ", \"made\": " << made_ << ", \"dropped\": " << dropped_ << ", \"queued\": " << queued_.size()
       << "}";
  return text.str();
}

std::string CameraModel::command(const std::string& line) {
  std::istringstream words(line);
  std::string name, value;
  words >> name >> value;
  const bool isOn = value == "on";
  const int number = std::atoi(value.c_str());  // NOLINT(cert-err34-c)
  Lock lock(mutex_);
  if (name == "status") return status();
  if (name == "busy") {
    isBusy_ = isOn;
  } else if (name == "freeze") {
    isFrozen_ = isOn;
  } else if (name == "slow") {
    slow_ = std::chrono::milliseconds(number);
  } else if (name == "open-slow") {
    slowOpening_ = std::chrono::milliseconds(number);
  } else if (name == "short") {
    short_ = number;
  } else if (name == "damaged") {
    damaged_ = number;
  } else if (name == "corrupt") {
    corrupt_ = number;
  } else if (name == "fault") {
    fault_ = errorNumber(value);
  } else if (name == "vanish") {
    isGone_ = true;
    isStreaming_ = false;
  } else {
    return "what?";
  }
  changed_.notify_all();
  answerWaiting(lock);
  lock.unlock();
  wake_();
  return "ok";
}

std::vector<OfferedMode> parseModes(const std::string& text) {
  std::vector<OfferedMode> modes;
  std::istringstream entries(text);
  for (std::string entry; std::getline(entries, entry, ';');) {
    std::array<char, 5> code{};
    OfferedMode mode;
    int used = 0;
    // NOLINTNEXTLINE(cert-err34-c): what is missing stays zero
    (void)std::sscanf(entry.c_str(), "%4[^:]:%ux%u@%n", code.data(), &mode.width, &mode.height, &used);
    std::istringstream rates(used > 0 ? entry.substr(static_cast<std::size_t>(used)) : "");
    for (std::string rate; std::getline(rates, rate, ',');) {
      mode.rates.push_back(static_cast<std::uint32_t>(std::stoul(rate)));
    }
    for (std::size_t i = 0; i < 4; ++i)
      mode.format |= static_cast<std::uint32_t>(static_cast<unsigned char>(code[i])) << 8 * i;
    if (mode.rates.empty() || mode.width == 0) return {};
    modes.push_back(std::move(mode));
  }
  return modes;
}

}  // namespace qeltest
