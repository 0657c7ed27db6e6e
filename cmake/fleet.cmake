# Whether the operator's wing is built: where its libraries are, next to the workstation's.
set(fleet_default OFF)
if(WORKSTATION AND NOT CMAKE_CROSSCOMPILING)
  pkg_check_modules(libnats IMPORTED_TARGET libnats)
  pkg_check_modules(libcurl IMPORTED_TARGET libcurl)
  pkg_check_modules(microhttpd IMPORTED_TARGET libmicrohttpd)
  pkg_check_modules(crypto IMPORTED_TARGET libssl libcrypto)
  pkg_check_modules(mosquitto IMPORTED_TARGET libmosquitto)
  find_package(nlohmann_json QUIET)
  find_package(CLI11 QUIET)
  if(libnats_FOUND
     AND libcurl_FOUND
     AND microhttpd_FOUND
     AND crypto_FOUND
     AND mosquitto_FOUND
     AND nlohmann_json_FOUND
     AND CLI11_FOUND
  )
    set(fleet_default ON)
  else()
    message(STATUS "without the fleet: its libraries were not found (script/bootstrap fleet)")
  endif()
endif()
option(FLEET "Build what an operator of many routers runs" ${fleet_default})
