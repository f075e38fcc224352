// A program of Qt 6's that shows a display of the machine in a widget below a button. The main queue gets its
// time from Qt's event loop.

#include "LiveView.h"

#include <QApplication>
#include <QPushButton>
#include <QSocketNotifier>
#include <QVBoxLayout>
#include <QWidget>

#include <cstdlib>
#include <memory>

using namespace QelUtilVideo;

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "xcb");
  const QApplication application(argc, argv);
  const QSocketNotifier work(MainLoop::main().fileDescriptor(), QSocketNotifier::Read);
  QObject::connect(&work, &QSocketNotifier::activated, [] { MainLoop::main().dispatchPending(); });

  QWidget program;
  program.setWindowTitle("A display in Qt");
  program.resize(640, 400);
  QVBoxLayout layout(&program);
  layout.setContentsMargins(0, 0, 0, 0);
  QPushButton button("Quit");
  QObject::connect(&button, &QPushButton::clicked, &application, &QApplication::quit);
  QWidget area;
  area.setAttribute(Qt::WA_NativeWindow);
  area.setAttribute(Qt::WA_NoSystemBackground);
  layout.addWidget(&button);
  layout.addWidget(&area, 1);
  program.show();
  // The library has a connection of its own, to which the window has to exist.
  QApplication::processEvents();

  const auto window = NSWindow::makeInForeignWindow(static_cast<std::uint32_t>(area.winId()));
  if (!window) return EXIT_FAILURE;
  const LiveView live(*window, window->contentView()->bounds());
  const int status = QApplication::exec();
  window->close();
  return status;
}
