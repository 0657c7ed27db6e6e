# What `cmake --install` puts where, in five components:
#   runtime      the daemon, its start script and man page
#   library      the shared helper library, and the stand-ins for the router's that it needs
#   development  headers, the static helper library, files for pkg-config and find_package
#   workstation  what stands in for the router: `nvram`, `idpfwd`
#   gateway      what a Linux gateway is served by: units, settings, history, uplink
#   fleet        what an operator of many routers runs: `fleet-ingest`, its units, examples
# The prefix may still be changed at install time: nothing that is installed has it written into it.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

# Below the prefix, but for the prefix that has its settings elsewhere by tradition.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(init_script_default /etc/init.d)
else()
  set(init_script_default etc/init.d)
endif()
set(INIT_SCRIPT_DIR ${init_script_default} CACHE STRING "Folder of the start script, empty for none")

# The units name programs by their full paths, so they are good for one prefix.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(unit_default /lib/systemd/system)
endif()
set(SYSTEMD_UNIT_DIR "${unit_default}" CACHE STRING "Folder of the systemd units, empty for none")

set(package_config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/routerutil)
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/routerutil)

function(install_man_page name section component)
  configure_file(${PROJECT_SOURCE_DIR}/docs/man/${name}.${section}.in man/${name}.${section} @ONLY)
  install(
    FILES ${PROJECT_BINARY_DIR}/man/${name}.${section}
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
    COMPONENT ${component}
  )
endfunction()

# The daemon
install(
  TARGETS trafficUsageDetailsD RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT runtime
)
install_man_page(trafficUsageDetailsD 8 runtime)
if(INIT_SCRIPT_DIR)
  install(
    PROGRAMS packaging/init.d/trafficUsageDetailsD
    DESTINATION ${INIT_SCRIPT_DIR}
    COMPONENT runtime
  )
endif()

install(
  FILES packaging/service/functions.sh
  DESTINATION ${CMAKE_INSTALL_DATADIR}/traffic-usage
  COMPONENT runtime
)

# The helper library
set_target_properties(platform_nvram PROPERTIES EXPORT_NAME nvram)
set_target_properties(platform_nat PROPERTIES EXPORT_NAME nat)
install(
  TARGETS routerutil
  EXPORT routerutil
  ARCHIVE COMPONENT development
  LIBRARY COMPONENT library NAMELINK_COMPONENT development
  FILE_SET HEADERS DESTINATION ${header_dir} COMPONENT development
)
install(
  TARGETS platform_headers
  EXPORT routerutil
  FILE_SET HEADERS DESTINATION ${header_dir} COMPONENT development
)
install(
  TARGETS platform_nvram platform_nat
  EXPORT routerutil
  LIBRARY COMPONENT library
)
install(
  EXPORT routerutil
  NAMESPACE routerutil::
  FILE routerutilTargets.cmake
  DESTINATION ${package_config_dir}
  COMPONENT development
)
configure_package_config_file(
  cmake/routerutilConfig.cmake.in routerutilConfig.cmake INSTALL_DESTINATION ${package_config_dir}
)
write_basic_package_version_file(routerutilConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(
  FILES ${PROJECT_BINARY_DIR}/routerutilConfig.cmake
        ${PROJECT_BINARY_DIR}/routerutilConfigVersion.cmake
  DESTINATION ${package_config_dir}
  COMPONENT development
)
file(RELATIVE_PATH prefix_from_pkgconfig /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/routerutil.pc.in routerutil.pc @ONLY)
install(
  FILES ${PROJECT_BINARY_DIR}/routerutil.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development
)

# The workstation router
if(WORKSTATION)
  install(TARGETS nvram RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT workstation)
  install(TARGETS idpfwd RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT workstation)
  install(TARGETS idpfw-shim LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT workstation)
  install(
    FILES docs/engine_state.md docs/scenario.md gateway/engine/scenario/evening.json
    DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT workstation
  )
  install_man_page(nvram 1 workstation)
  install_man_page(idpfwd 8 workstation)
endif()

# The gateway: programs that this build has, and what starts them
if(WORKSTATION)
  if(TARGET traffic-usage)
    install(TARGETS traffic-usage RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT gateway)
    install_man_page(traffic-usage 1 gateway)
    install(FILES docs/api.md docs/history_format.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT gateway)
  endif()
  if(TARGET uplink)
    install(
      TARGETS uplink
      RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/traffic-usage
      COMPONENT gateway
    )
    install_man_page(aws_json 8 gateway)
    install(FILES docs/uplink.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT gateway)
    install(
      FILES packaging/uplink.conf
      DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
      COMPONENT gateway
    )
  endif()
endif()
if(WORKSTATION AND SYSTEMD_UNIT_DIR)
  set(units idpfwd@.service trafficUsageDetailsD@.service traffic-usage-report@.service
            traffic-usage@.target
  )
  if(TARGET traffic-usage)
    list(APPEND units traffic-usage-history@.service)
  endif()
  if(TARGET uplink)
    list(APPEND units traffic-usage-uplink@.service)
  endif()
  list(TRANSFORM units PREPEND packaging/systemd/)
  install(FILES ${units} DESTINATION ${SYSTEMD_UNIT_DIR} COMPONENT gateway)
  install(
    PROGRAMS packaging/service/unit
    DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/traffic-usage
    COMPONENT gateway
  )
  install(
    PROGRAMS packaging/service/killall
    DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/traffic-usage/instance
    COMPONENT gateway
  )
  install(
    FILES packaging/traffic-usage.sysusers
    DESTINATION lib/sysusers.d
    RENAME traffic-usage.conf
    COMPONENT gateway
  )
  install(
    FILES packaging/traffic-usage.tmpfiles
    DESTINATION lib/tmpfiles.d
    RENAME traffic-usage.conf
    COMPONENT gateway
  )
endif()
if(WORKSTATION AND INIT_SCRIPT_DIR)
  install(PROGRAMS packaging/init.d/idpfwd DESTINATION ${INIT_SCRIPT_DIR} COMPONENT gateway)
  cmake_path(GET INIT_SCRIPT_DIR PARENT_PATH settings_dir)
  install(
    FILES packaging/gateway.conf
    DESTINATION ${settings_dir}/traffic-usage
    COMPONENT gateway
  )
endif()

# The operator's side: the ingester, and the configuration of the servers around it as examples
if(FLEET)
  set(fleet_doc_dir ${CMAKE_INSTALL_DATADIR}/doc/traffic-usage-fleet)
  install(TARGETS fleet-ingest RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT fleet)
  install(
    DIRECTORY fleet/config/
    DESTINATION ${fleet_doc_dir}/examples
    COMPONENT fleet
  )
  install(DIRECTORY fleet/sql DESTINATION ${fleet_doc_dir} COMPONENT fleet)
  install(FILES docs/fleet.md DESTINATION ${fleet_doc_dir} COMPONENT fleet)
  install_man_page(fleet-ingest 8 fleet)
  if(SYSTEMD_UNIT_DIR)
    install(
      DIRECTORY fleet/units/
      DESTINATION ${SYSTEMD_UNIT_DIR}
      COMPONENT fleet
    )
  endif()
endif()

install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
