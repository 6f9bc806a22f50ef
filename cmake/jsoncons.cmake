# jsoncons (header-only) comes from the copy scripts/setup.sh unpacks into the user's cache, or
# from the system when a package of it is installed. The unpacked package's own CMake files name
# /usr/include, so the copy gets a target of its own.
set(_jsoncons_version 1.3.2-1)  # the version scripts/setup.sh fetches
if(DEFINED ENV{XDG_CACHE_HOME})
  set(_cache $ENV{XDG_CACHE_HOME})
else()
  set(_cache $ENV{HOME}/.cache)
endif()
set(MQTT_JSONCONS_ROOT ${_cache}/tavo-probe/jsoncons-${_jsoncons_version}/usr
    CACHE PATH "Unpacked libjsoncons-dev (its usr/ folder)")
if(EXISTS ${MQTT_JSONCONS_ROOT}/include/jsoncons/json.hpp)
  add_library(jsoncons INTERFACE IMPORTED)
  set_target_properties(jsoncons PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES ${MQTT_JSONCONS_ROOT}/include)
  message(STATUS "jsoncons: ${MQTT_JSONCONS_ROOT}")
else()
  find_package(jsoncons 1.3 REQUIRED)
endif()
