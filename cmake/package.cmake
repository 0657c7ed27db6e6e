# Debian packages: what a gateway or a workstation runs, and what another program is built with.
# script/package makes them. There are no maintainer scripts but CPack's own call of ldconfig.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_CONTACT "the ${PROJECT_NAME} authors")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_STRIP_FILES ON)
set(CPACK_SET_DESTDIR ON) # the start script's folder is not below the prefix

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENT_RUNTIME_GROUP programs)
set(CPACK_COMPONENT_WORKSTATION_GROUP programs)
set(CPACK_COMPONENT_DEVELOPMENT_GROUP library)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})

set(CPACK_DEBIAN_PROGRAMS_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_SECTION net)
string(
  CONCAT CPACK_DEBIAN_PROGRAMS_DESCRIPTION
         "The daemon trafficUsageDetailsD, the user-space engine idpfwd that feeds it from live "
         "packets, and the settings store that stands in for a router's. Installing starts nothing."
)
if(IS_ABSOLUTE "${INIT_SCRIPT_DIR}")
  set(conffiles ${PROJECT_BINARY_DIR}/debian/conffiles)
  file(CONFIGURE OUTPUT ${conffiles} CONTENT "${INIT_SCRIPT_DIR}/trafficUsageDetailsD\n")
  set(CPACK_DEBIAN_PROGRAMS_PACKAGE_CONTROL_EXTRA ${conffiles})
endif()

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME librouterutil-dev)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "${PROJECT_NAME} (= ${PROJECT_VERSION}), libcjson-dev")
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION
    "The router helper libraries: headers, the library, files for pkg-config and find_package."
)

include(CPack)
