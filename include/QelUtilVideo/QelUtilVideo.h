#pragma once

/// Everything a host may name.

#include <QelKit/QelAppLog.h>
#include <QelKit/QelManager.h>
#include <QelKit/QelVideoImageBuffer.h>
#include <QelUtilVideo/CGImagePropertyOrientation.h>
#include <QelUtilVideo/Capturable.h>
#include <QelUtilVideo/CapturableCamera.h>
#include <QelUtilVideo/CapturableOutputDelegate.h>
#include <QelUtilVideo/CapturableScreen.h>
#include <QelUtilVideo/CapturableWindow.h>
#include <QelUtilVideo/CapturableWindowManager.h>
#include <QelUtilVideo/DeviceType.h>
#include <QelUtilVideo/Logger.h>
#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/RenderViewData.h>
#include <QelUtilVideo/RenderViewDataSource.h>
#include <QelUtilVideo/RenderViewDelegate.h>
#include <QelUtilVideo/Version.h>
#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/CGImage.h>
#include <QelUtilVideo/platform/CVPixelBuffer.h>
#include <QelUtilVideo/platform/CVPixelBufferPool.h>
#include <QelUtilVideo/platform/Dictionary.h>
#include <QelUtilVideo/platform/MainLoop.h>
#include <QelUtilVideo/platform/MediaClock.h>
#include <QelUtilVideo/platform/NSCoder.h>
#include <QelUtilVideo/platform/NSColor.h>
#include <QelUtilVideo/platform/NSError.h>
#include <QelUtilVideo/platform/NSImage.h>
#include <QelUtilVideo/platform/NSObject.h>
#include <QelUtilVideo/platform/NSScreen.h>
#include <QelUtilVideo/platform/NSView.h>
#include <QelUtilVideo/platform/NSWindow.h>
#include <QelUtilVideo/platform/NotificationCenter.h>
#include <QelUtilVideo/platform/PixelBufferConverter.h>
