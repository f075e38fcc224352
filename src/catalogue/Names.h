#pragma once

#include "catalogue/Encoding.h"

#include <QelKit/QelVideoImageBuffer.h>
#include <QelUtilVideo/Capturable.h>
#include <QelUtilVideo/CapturableCamera.h>
#include <QelUtilVideo/CapturableDeviceManager.h>
#include <QelUtilVideo/CapturableOutputDelegate.h>
#include <QelUtilVideo/CapturableScreen.h>
#include <QelUtilVideo/CapturableWindow.h>
#include <QelUtilVideo/CapturableWindowManager.h>
#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/RenderViewDelegate.h>
#include <QelUtilVideo/platform/NSCoder.h>
#include <QelUtilVideo/platform/NSColor.h>
#include <QelUtilVideo/platform/NSImage.h>
#include <QelUtilVideo/platform/NSScreen.h>
#include <QelUtilVideo/platform/NSView.h>

#include <string>
#include <string_view>
#include <vector>

namespace QelUtilVideo::catalogue {

using Name = std::string_view;

// ── The platform's ────────────────────────────────────────────────────────────────────────────────

template <>
inline constexpr Name objectName<std::string> = "NSString";
template <class T>
inline constexpr Name objectName<std::vector<T>> = "NSArray";
template <>
inline constexpr Name objectName<Dictionary> = "NSDictionary";
template <>
inline constexpr Name objectName<NSError> = "NSError";
template <>
inline constexpr Name objectName<NSNotification> = "NSNotification";
template <>
inline constexpr Name objectName<NSObject> = "NSObject";
template <>
inline constexpr Name objectName<NSCoder> = "NSCoder";
template <>
inline constexpr Name objectName<NSColor> = "NSColor";
template <>
inline constexpr Name objectName<NSImage> = "NSImage";
template <>
inline constexpr Name objectName<NSScreen> = "NSScreen";
template <>
inline constexpr Name objectName<NSView> = "NSView";
template <>
inline constexpr Name objectName<AVCaptureDevice> = "AVCaptureDevice";
template <>
inline constexpr Name objectName<AVCaptureSession> = "AVCaptureSession";
template <>
inline constexpr Name objectName<AVCaptureInput> = "AVCaptureInput";
template <>
inline constexpr Name objectName<AVCaptureVideoDataOutput> = "AVCaptureVideoDataOutput";

// ── The companion framework's ─────────────────────────────────────────────────────────────────────

template <>
inline constexpr Name objectName<QelKit::QelVideoImageBuffer> = "QelVideoImageBuffer";

// ── The library's own ─────────────────────────────────────────────────────────────────────────────

template <>
inline constexpr Name objectName<Capturable> = "<QelUtilVideoCapturable>";
template <>
inline constexpr Name objectName<CapturableScreen> = "<QelUtilVideoCapturableScreen>";
template <>
inline constexpr Name objectName<CapturableWindow> = "<QelUtilVideoCapturableWindow>";
template <>
inline constexpr Name objectName<CapturableCamera> = "<QelUtilVideoCapturableCamera>";
template <>
inline constexpr Name objectName<CapturableOutputDelegate> = "<QelUtilVideoCapturableOutputDelegate>";
template <>
inline constexpr Name objectName<RenderViewDelegate> = "<QelUtilVideoRenderViewDelegate>";
template <>
inline constexpr Name objectName<CapturableWindowManager> = "QelUtilVideoCapturableWindowManager";
template <>
inline constexpr Name objectName<CapturableDeviceManager> = "QelUtilVideoCapturableDeviceManager";
template <>
inline constexpr Name objectName<RenderView> = "QelUtilVideoRenderView";

}  // namespace QelUtilVideo::catalogue
