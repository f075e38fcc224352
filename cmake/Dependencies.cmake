find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)
find_package(CLI11 2.1 REQUIRED)

pkg_check_modules(XCB REQUIRED IMPORTED_TARGET xcb>=1.15 xcb-randr xcb-shm xcb-xfixes xcb-composite xcb-damage xcb-res xcb-shape
                  xcb-icccm)
pkg_check_modules(XKBCOMMON REQUIRED IMPORTED_TARGET xkbcommon xkbcommon-x11 xcb-xkb)
pkg_check_modules(PIXMAN REQUIRED IMPORTED_TARGET pixman-1)
pkg_check_modules(PNG REQUIRED IMPORTED_TARGET libpng16)
pkg_check_modules(EPOXY REQUIRED IMPORTED_TARGET epoxy)
pkg_check_modules(TURBOJPEG REQUIRED IMPORTED_TARGET libturbojpeg)
pkg_check_modules(UDEV REQUIRED IMPORTED_TARGET libudev)

# libyuv comes without a pkg-config file.
find_path(LIBYUV_INCLUDE_DIR libyuv.h REQUIRED)
find_library(LIBYUV_LIBRARY yuv REQUIRED)
add_library(libyuv INTERFACE)
target_include_directories(libyuv SYSTEM INTERFACE ${LIBYUV_INCLUDE_DIR})
target_link_libraries(libyuv INTERFACE ${LIBYUV_LIBRARY})
