# The HTTP server (libmicrohttpd, driven by the service's own loop) and the page that it serves.
pkg_check_modules(microhttpd REQUIRED IMPORTED_TARGET libmicrohttpd)
pkg_check_modules(mosquitto REQUIRED IMPORTED_TARGET libmosquitto)
pkg_check_modules(nettle REQUIRED IMPORTED_TARGET nettle)
pkg_check_modules(libcrypt REQUIRED IMPORTED_TARGET GLOBAL libcrypt)
pkg_check_modules(zlib REQUIRED IMPORTED_TARGET GLOBAL zlib)

set(page_dir ${CMAKE_CURRENT_SOURCE_DIR}/page)
set(page_names index.html beside.js chart.js dom.js format.js icon.svg page.js style.css table.js view.js)
set(page_files "chart.min.js=${CHART_JS}")
set(page_sources ${CHART_JS})
foreach(name IN LISTS page_names)
  string(APPEND page_files ",${name}=${page_dir}/${name}")
  list(APPEND page_sources ${page_dir}/${name})
endforeach()
add_custom_command(
  OUTPUT page_files.cpp
  COMMAND ${CMAKE_COMMAND} -D OUTPUT=page_files.cpp -D "FILES=${page_files}"
          -P ${page_dir}/embed.cmake
  DEPENDS ${page_sources} ${page_dir}/embed.cmake
  COMMENT "Compressing the page"
  VERBATIM
)

add_library(
  usage_http STATIC
  http/http.cpp
  http/http_auth.cpp
  http/http_channel.cpp
  http/http_listener.cpp
  http/http_rules.cpp
  page/page_reply.cpp
  ${CMAKE_CURRENT_BINARY_DIR}/page_files.cpp
)
target_link_libraries(
  usage_http
  PUBLIC gateway_options
  PRIVATE PkgConfig::microhttpd PkgConfig::nettle PkgConfig::libcrypt PkgConfig::zlib
)
