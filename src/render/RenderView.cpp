#include <QelUtilVideo/RenderView.h>

#include "platform/HostCall.h"
#include "platform/Root.h"
#include "render/Backends.h"
#include "render/RenderViewImpl.h"

#include <QelKit/QelVideoImageBuffer.h>
#include <QelUtilVideo/RenderViewDataSource.h>
#include <QelUtilVideo/platform/NSCoder.h>
#include <QelUtilVideo/platform/NSColor.h>

#include <utility>

namespace QelUtilVideo {

RenderView::RenderView(Key, CGRect frame) : NSView(frame) {}

std::shared_ptr<RenderView> RenderView::make(CGRect frame) {
  auto view = std::make_shared<RenderView>(Key{}, frame);
  view->setupRenderView();
  return view;
}

std::shared_ptr<RenderView> RenderView::make(NSCoder& coder) {
  auto view = std::make_shared<RenderView>(Key{}, CGRectZero);
  if (!view->initWithCoder(coder)) return nullptr;
  view->setupRenderView();
  return view;
}

RenderView::~RenderView() = default;

void RenderView::setupRenderView() {
  renderView_ = Root::current().get<Backends>().makeRenderView(bounds());
  const std::shared_ptr<NSView> backend(renderView_, &renderView_->asView());
  backend->setAutoresizingMask(NSViewWidthSizable | NSViewHeightSizable);
  addSubview(backend, NSWindowOrderingMode::below, nullptr);
  backend->setHidden(NSView::isHidden());
  setAutoresizesSubviews(true);
}

std::shared_ptr<RenderViewDelegate> RenderView::delegate() const { return renderView_->renderDelegate(); }

void RenderView::setDelegate(const std::shared_ptr<RenderViewDelegate>& delegate) {
  renderView_->setRenderDelegate(delegate);
}

std::shared_ptr<RenderViewDataSource> RenderView::dataSource() const { return renderView_->dataSource(); }

void RenderView::setDataSource(std::shared_ptr<RenderViewDataSource> source) {
  renderView_->setDataSource(std::move(source));
}

std::shared_ptr<QelKit::QelVideoImageBuffer> RenderView::imageBuffer() const {
  return std::dynamic_pointer_cast<QelKit::QelVideoImageBuffer>(renderView_->dataSource());
}

void RenderView::setImageBuffer(std::shared_ptr<QelKit::QelVideoImageBuffer> buffer) {
  renderView_->setDataSource(std::move(buffer));
}

std::optional<std::uint8_t> RenderView::deviceType() const { return renderView_->deviceType(); }

void RenderView::setDeviceType(std::optional<std::uint8_t> type) { renderView_->setDeviceType(type); }

DeviceType RenderView::deviceTypeObjC() const {
  const std::optional<std::uint8_t> type = renderView_->deviceType();
  return type ? makeDeviceType(*type).value_or(DeviceType::unspecified) : DeviceType::unspecified;
}

void RenderView::setDeviceTypeObjC(DeviceType type) {
  switch (type) {
    case DeviceType::type0:
    case DeviceType::type1:
      renderView_->setDeviceType(static_cast<std::uint8_t>(type));
      break;
    case DeviceType::unspecified:
    default:
      renderView_->setDeviceType(std::nullopt);
      break;
  }
}

std::shared_ptr<const NSColor> RenderView::backgroundColor() const { return renderView_->backgroundColor(); }

void RenderView::setBackgroundColor(std::shared_ptr<const NSColor> color) {
  renderView_->setBackgroundColor(std::move(color));
}

float RenderView::blurRadius() const { return renderView_->blurRadius(); }

void RenderView::setBlurRadius(float radius) { renderView_->setBlurRadius(radius); }

bool RenderView::automaticallyAdjustsFitMode() const { return renderView_->automaticallyAdjustsFitMode(); }

void RenderView::setAutomaticallyAdjustsFitMode(bool adjusts) {
  renderView_->setAutomaticallyAdjustsFitMode(adjusts);
}

bool RenderView::fitInBounds() const { return renderView_->fitInBounds(); }

void RenderView::setFitInBounds(bool fit) { renderView_->setFitInBounds(fit); }

bool RenderView::rotateAnimationEnabled() const { return renderView_->rotateAnimationEnabled(); }

void RenderView::setRotateAnimationEnabled(bool enabled) { renderView_->setRotateAnimationEnabled(enabled); }

RenderView::ObserverToken RenderView::addContentSizeObserver(ContentSizeObserver observer) {
  const ObserverToken token = ++lastToken_;
  if (observer) observers_.emplace(token, std::make_shared<const ContentSizeObserver>(std::move(observer)));
  return token;
}

void RenderView::removeContentSizeObserver(ObserverToken token) {
  // Destroyed when the map is whole again: what the observer holds may end with calls to this view.
  const auto removed = observers_.extract(token);
}

void RenderView::setHidden(bool hidden) {
  NSView::setHidden(hidden);
  renderView_->asView().setHidden(NSView::isHidden());
}

void RenderView::setContentSize(CGSize size) {
  contentSize_ = size;
  const auto toTell = observers_;
  for (const auto& [token, observer] : toTell) {
    // One that was removed by another is not told. The size as it is now: an observer that ran the main
    // loop may have brought a newer one, and nobody is to hear of the older one last.
    if (observers_.contains(token)) {
      callHost("an observer of contentSize", [this, &told = observer] { (*told)(contentSize_); });
    }
  }
}

void RenderViewImpl::assignContentSize(RenderView& view, CGSize size) { view.setContentSize(size); }

}  // namespace QelUtilVideo
