# Install layout and the Debian package (cpack -G DEB from a Release tree).
#
# <prefix>/bin/tavo-probe
# <prefix>/<libdir>/tavo-probe/  libMQTT.so (what hosts dlopen) -> libMQTT.so.1 -> libMQTT.so.1.x.y
#                                libTavoHelper.so.1 -> libTavoHelper.so.1.x.y (the module's NEEDED)
# <prefix>/lib/systemd/system/   tavo-probe.service, tavo-probe@.service
# <sysconfdir>/tavo-probe/       tavo-probe.yaml (a conffile in the package)
if(NOT TARGET tavo-probe OR NOT TARGET mqtt_module)
  return()  # a partial build (MQTT_DIRS) installs nothing
endif()

set_target_properties(libtavohelper mqtt_module PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
set_target_properties(mqtt_module PROPERTIES INSTALL_RPATH "$ORIGIN")

# tavo-probe looks for the module relative to itself, so an installed tree can move.
file(RELATIVE_PATH _module_dir ${CMAKE_INSTALL_FULL_BINDIR}
     ${CMAKE_INSTALL_PREFIX}/${MQTT_PRIVATE_LIBDIR})
target_compile_definitions(host_core PRIVATE TAVO_PROBE_MODULE_DIR="${_module_dir}")
set_target_properties(tavo-probe PROPERTIES INSTALL_RPATH "$ORIGIN/${_module_dir}")

install(TARGETS tavo-probe RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# Nothing links the framework from outside, so it goes without its development link.
install(TARGETS libtavohelper LIBRARY DESTINATION ${MQTT_PRIVATE_LIBDIR} NAMELINK_SKIP)
install(TARGETS mqtt_module LIBRARY DESTINATION ${MQTT_PRIVATE_LIBDIR})
install(FILES packaging/tavo-probe.service packaging/tavo-probe@.service
        DESTINATION lib/systemd/system)
install(FILES packaging/tavo-probe.yaml DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/tavo-probe)
# The operator's guide, where the units' Documentation= points.
install(FILES host/README.md docs/protocol.md
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/tavo-probe)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tavo-probe)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "tavo-probe maintainers <tavo-probe@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Watches MQTT brokers: sensors, checks and notifications")
# The package holds exactly what `cmake --install` puts under the prefix; the release preset
# uses /usr, which places the config under /etc.
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
configure_file(packaging/conffiles.in ${CMAKE_BINARY_DIR}/packaging/conffiles @ONLY)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/packaging/conffiles)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)

if(BUILD_TESTING)
  add_test(NAME packaging_units_verify
    COMMAND bash ${PROJECT_SOURCE_DIR}/packaging/tests/verify_units.sh
            ${PROJECT_SOURCE_DIR}/packaging $<TARGET_FILE:tavo-probe>)
  set_tests_properties(packaging_units_verify PROPERTIES LABELS unit SKIP_RETURN_CODE 77)
  # Packages are made from plain builds; stripping and compressing sanitizer binaries only
  # costs minutes.
  if(MQTT_SANITIZER STREQUAL "")
    add_test(NAME packaging_install_and_package
      COMMAND bash ${PROJECT_SOURCE_DIR}/packaging/tests/check_package.sh ${CMAKE_BINARY_DIR}
              ${CMAKE_INSTALL_PREFIX} ${MQTT_PRIVATE_LIBDIR} ${CMAKE_INSTALL_FULL_SYSCONFDIR})
    # cpack first brings the tree up to date, which would relink what other tests are running.
    set_tests_properties(packaging_install_and_package PROPERTIES
      LABELS unit SKIP_RETURN_CODE 77 TIMEOUT 300 RUN_SERIAL TRUE)
  endif()
endif()
