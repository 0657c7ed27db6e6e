# The HTTP server: libmicrohttpd, driven by the service's own loop.
pkg_check_modules(microhttpd REQUIRED IMPORTED_TARGET libmicrohttpd)
pkg_check_modules(nettle REQUIRED IMPORTED_TARGET nettle)
pkg_check_modules(libcrypt REQUIRED IMPORTED_TARGET GLOBAL libcrypt)
pkg_check_modules(zlib REQUIRED IMPORTED_TARGET GLOBAL zlib)

add_library(
  usage_http STATIC
  http.cpp
  http_auth.cpp
  http_channel.cpp
  http_listener.cpp
  http_rules.cpp
)
target_link_libraries(
  usage_http
  PUBLIC gateway_options
  PRIVATE PkgConfig::microhttpd PkgConfig::nettle PkgConfig::libcrypt PkgConfig::zlib
)
