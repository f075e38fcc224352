// A program of GTK 3's that shows a display of the machine in a part of its window, below a button. The main
// queue gets its time from GLib's main loop.

#include "LiveView.h"

#include <gdk/gdkx.h>
#include <glib-unix.h>
#include <gtk/gtk.h>

#include <cstdlib>
#include <memory>
#include <optional>

using namespace QelUtilVideo;

namespace {

/// What lies in the area, while that has a window.
struct Embedded {
  std::shared_ptr<NSWindow> window;
  std::optional<LiveView> live;
};

void begin(GtkWidget* area, gpointer data) {
  auto& embedded = *static_cast<Embedded*>(data);
  // The library has a connection of its own, to which the window has to exist.
  gdk_display_sync(gtk_widget_get_display(area));
  embedded.window =
      NSWindow::makeInForeignWindow(static_cast<std::uint32_t>(GDK_WINDOW_XID(gtk_widget_get_window(area))));
  if (embedded.window) embedded.live.emplace(*embedded.window, embedded.window->contentView()->bounds());
}

void end(GtkWidget*, gpointer data) {
  auto& embedded = *static_cast<Embedded*>(data);
  embedded.live.reset();
  if (embedded.window) embedded.window->close();
  embedded.window.reset();
}

gboolean serve(gint, GIOCondition, gpointer) {
  MainLoop::main().dispatchPending();
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argc, char** argv) {
  gdk_set_allowed_backends("x11");
  if (gtk_init_check(&argc, &argv) == FALSE) {
    std::fputs("There is no X server; is DISPLAY set?\n", stderr);
    return EXIT_FAILURE;
  }
  g_unix_fd_add(MainLoop::main().fileDescriptor(), G_IO_IN, serve, nullptr);

  Embedded embedded;
  GtkWidget* program = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(program), "A display in GTK");
  gtk_window_set_default_size(GTK_WINDOW(program), 640, 400);
  GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
  GtkWidget* button = gtk_button_new_with_label("Quit");
  GtkWidget* area = gtk_drawing_area_new();
  gtk_box_pack_start(GTK_BOX(box), button, FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(box), area, TRUE, TRUE, 0);
  gtk_container_add(GTK_CONTAINER(program), box);
  g_signal_connect(area, "realize", G_CALLBACK(begin), &embedded);
  g_signal_connect(area, "unrealize", G_CALLBACK(end), &embedded);
  g_signal_connect(button, "clicked", G_CALLBACK(gtk_main_quit), nullptr);
  g_signal_connect(program, "destroy", G_CALLBACK(gtk_main_quit), nullptr);
  gtk_widget_show_all(program);
  gtk_main();
  end(nullptr, &embedded);
  return EXIT_SUCCESS;
}
