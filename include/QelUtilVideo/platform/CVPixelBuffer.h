#pragma once

#include <QelUtilVideo/platform/Export.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// A pixel format code: the format's four characters, most significant first, or a small number.
enum class OSType : std::uint32_t {};

constexpr OSType fourCharacterCode(const char (&text)[5]) {
  return OSType{static_cast<std::uint32_t>(static_cast<unsigned char>(text[0])) << 24 |
                static_cast<std::uint32_t>(static_cast<unsigned char>(text[1])) << 16 |
                static_cast<std::uint32_t>(static_cast<unsigned char>(text[2])) << 8 |
                static_cast<std::uint32_t>(static_cast<unsigned char>(text[3]))};
}

// 32 bits per pixel; the letters give the order of the bytes in memory.
inline constexpr OSType kCVPixelFormatType_32ARGB{32};
inline constexpr OSType kCVPixelFormatType_32BGRA = fourCharacterCode("BGRA");
inline constexpr OSType kCVPixelFormatType_32ABGR = fourCharacterCode("ABGR");
inline constexpr OSType kCVPixelFormatType_32RGBA = fourCharacterCode("RGBA");
// Packed YUV 4:2:2, BT.601 video range: "2vuy" is Cb Y0 Cr Y1 in memory, "yuvs" is Y0 Cb Y1 Cr.
inline constexpr OSType kCVPixelFormatType_422YpCbCr8 = fourCharacterCode("2vuy");
inline constexpr OSType kCVPixelFormatType_422YpCbCr8_yuvs = fourCharacterCode("yuvs");
// Bi-planar YUV 4:2:0, BT.601: plane 0 luma, plane 1 Cb and Cr interleaved at half the resolution in
// both directions, rounded up. 'v' is video range (luma 16 to 235, chroma 16 to 240), 'f' full range.
inline constexpr OSType kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange = fourCharacterCode("420v");
inline constexpr OSType kCVPixelFormatType_420YpCbCr8BiPlanarFullRange = fourCharacterCode("420f");

/// The format as text: its four characters, or "ARGB" for code 32, or the number.
[[nodiscard]] QEL_EXPORT std::string pixelFormatName(OSType format);

using CVReturn = std::int32_t;
inline constexpr CVReturn kCVReturnSuccess = 0;
inline constexpr CVReturn kCVReturnInvalidArgument = -6661;
inline constexpr CVReturn kCVReturnAllocationFailed = -6662;
inline constexpr CVReturn kCVReturnInvalidPixelFormat = -6680;
inline constexpr CVReturn kCVReturnInvalidSize = -6681;
inline constexpr CVReturn kCVReturnPixelBufferNotLocked = -6690;

/// One plane of a pixel buffer as it lies in memory, first row first.
struct PixelPlane {
  std::byte* baseAddress = nullptr;
  std::size_t width = 0;        ///< in pixels of the plane
  std::size_t height = 0;       ///< rows
  std::size_t bytesPerRow = 0;  ///< distance of two rows in bytes, padding included
};

/// How the bytes are going to be accessed: 0, or this.
using CVPixelBufferLockFlags = std::uint64_t;
inline constexpr CVPixelBufferLockFlags kCVPixelBufferLock_ReadOnly = 1;

class CVPixelBuffer;
using CVPixelBufferRef = std::shared_ptr<CVPixelBuffer>;
class PixelMemory;

/// A picture in memory: format, size and planes are fixed at creation; the bytes belong to it until the
/// last reference goes, and then go back to where they came from through the release callback, on the
/// thread that dropped it. Reading the properties is safe on any thread.
///
/// Readers and writers of the bytes bracket their access with the lock functions; the lock counts, it does
/// not exclude. The end of a lock without `kCVPixelBufferLock_ReadOnly` is a writing: views then take the
/// picture anew, so those who only read say so. The maker of a buffer may write without a lock until others
/// know the buffer; what is written without one later may never be seen. A picture that is being shown may be
/// seen half written: another buffer is better.
class QEL_EXPORT CVPixelBuffer : public std::enable_shared_from_this<CVPixelBuffer> {
 public:
  using ReleaseCallback = std::function<void()>;

  CVPixelBuffer(const CVPixelBuffer&) = delete;
  CVPixelBuffer& operator=(const CVPixelBuffer&) = delete;
  ~CVPixelBuffer();

  [[nodiscard]] OSType format() const { return format_; }
  [[nodiscard]] std::size_t width() const { return width_; }
  [[nodiscard]] std::size_t height() const { return height_; }
  /// One entry per plane; a packed format has a single entry that is the picture itself.
  [[nodiscard]] const std::vector<PixelPlane>& planes() const { return planes_; }
  /// Stands for what is in the buffer: another number after each writing, and never one that this or any
  /// other buffer of the process had before; never 0. Whoever sees it sees what was written until then.
  [[nodiscard]] std::uint64_t writeGeneration() const { return generation_.load(); }

 private:
  friend CVReturn CVPixelBufferCreateWithBytes(std::size_t, std::size_t, OSType, void*, std::size_t,
                                               ReleaseCallback, CVPixelBufferRef&);
  friend CVReturn CVPixelBufferCreateWithPlanarBytes(std::size_t, std::size_t, OSType,
                                                     std::vector<PixelPlane>, ReleaseCallback,
                                                     CVPixelBufferRef&);
  friend CVReturn CVPixelBufferLockBaseAddress(CVPixelBuffer&, CVPixelBufferLockFlags);
  friend CVReturn CVPixelBufferUnlockBaseAddress(CVPixelBuffer&, CVPixelBufferLockFlags);
  friend class PixelMemory;

  CVPixelBuffer(OSType format, std::size_t width, std::size_t height, std::vector<PixelPlane> planes,
                ReleaseCallback release);

  OSType format_;
  std::size_t width_;
  std::size_t height_;
  std::vector<PixelPlane> planes_;
  ReleaseCallback release_;
  std::shared_ptr<PixelMemory> memory_;  ///< of bytes that were allocated for it
  std::atomic<int> locks_{0};
  std::atomic<std::uint64_t> generation_;
};

/// Wraps bytes of a packed format without copying. `release` is called once, when the buffer is freed;
/// on failure it is not called and the bytes stay the caller's.
/// Errors: unknown or planar format (invalid pixel format); a side of 0 or above 65,535 (invalid size);
/// no bytes, or a row shorter than the width needs or above 2^28 bytes (invalid argument).
[[nodiscard]] QEL_EXPORT CVReturn CVPixelBufferCreateWithBytes(std::size_t width, std::size_t height,
                                                               OSType format, void* bytes,
                                                               std::size_t bytesPerRow,
                                                               CVPixelBuffer::ReleaseCallback release,
                                                               CVPixelBufferRef& buffer);

/// Wraps the planes of a bi-planar format without copying; `width` and `height` are the picture's.
/// Errors as above; planes of other sizes than the format demands, or an odd number of bytes per chroma
/// row, are an invalid argument.
[[nodiscard]] QEL_EXPORT CVReturn CVPixelBufferCreateWithPlanarBytes(std::size_t width, std::size_t height,
                                                                     OSType format,
                                                                     std::vector<PixelPlane> planes,
                                                                     CVPixelBuffer::ReleaseCallback release,
                                                                     CVPixelBufferRef& buffer);

/// Allocates a buffer of any known format; rows and planes are aligned to 64 bytes, the contents are
/// not set. Errors as above; no memory is "allocation failed".
[[nodiscard]] QEL_EXPORT CVReturn CVPixelBufferCreate(std::size_t width, std::size_t height, OSType format,
                                                      CVPixelBufferRef& buffer);

/// Locks for access by the processor. Always succeeds for a live buffer of this library. Any thread.
[[nodiscard]] QEL_EXPORT CVReturn CVPixelBufferLockBaseAddress(CVPixelBuffer& buffer,
                                                               CVPixelBufferLockFlags flags = 0);
/// Ends one lock, with the flags that it began with. Without a lock under way:
/// `kCVReturnPixelBufferNotLocked`. Any thread.
QEL_EXPORT CVReturn CVPixelBufferUnlockBaseAddress(CVPixelBuffer& buffer, CVPixelBufferLockFlags flags = 0);

[[nodiscard]] QEL_EXPORT std::size_t CVPixelBufferGetWidth(const CVPixelBuffer& buffer);
[[nodiscard]] QEL_EXPORT std::size_t CVPixelBufferGetHeight(const CVPixelBuffer& buffer);
[[nodiscard]] QEL_EXPORT OSType CVPixelBufferGetPixelFormatType(const CVPixelBuffer& buffer);
/// Number of planes; 0 for a packed format.
[[nodiscard]] QEL_EXPORT std::size_t CVPixelBufferGetPlaneCount(const CVPixelBuffer& buffer);
/// Of a packed format the picture's, of a planar one plane 0's.
[[nodiscard]] QEL_EXPORT std::size_t CVPixelBufferGetBytesPerRow(const CVPixelBuffer& buffer);
[[nodiscard]] QEL_EXPORT std::byte* CVPixelBufferGetBaseAddress(const CVPixelBuffer& buffer);
// Plane functions: a plane that the buffer does not have gives 0 or null; plane 0 of a packed buffer is
// the picture itself.
[[nodiscard]] QEL_EXPORT std::size_t CVPixelBufferGetWidthOfPlane(const CVPixelBuffer&, std::size_t plane);
[[nodiscard]] QEL_EXPORT std::size_t CVPixelBufferGetHeightOfPlane(const CVPixelBuffer&, std::size_t plane);
[[nodiscard]] QEL_EXPORT std::size_t CVPixelBufferGetBytesPerRowOfPlane(const CVPixelBuffer&,
                                                                        std::size_t plane);
[[nodiscard]] QEL_EXPORT std::byte* CVPixelBufferGetBaseAddressOfPlane(const CVPixelBuffer&,
                                                                       std::size_t plane);

}  // namespace QelUtilVideo
