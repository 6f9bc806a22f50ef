# Build flags for every target of the project, carried by one INTERFACE target
# that each target links privately. Nothing here is applied globally.
add_library(project_flags INTERFACE)
target_compile_features(project_flags INTERFACE cxx_std_20)
# Designated initializers that leave defaulted members out are intended, not a slip.
target_compile_options(project_flags INTERFACE -Wall -Wextra -Wno-missing-field-initializers
  -Wshadow -Wconversion)
# -Wconversion as GCC means it: clang's also takes in -Wsign-conversion, which GCC keeps apart.
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(project_flags INTERFACE -Wno-sign-conversion)
endif()
target_include_directories(project_flags INTERFACE ${PROJECT_SOURCE_DIR})

option(MQTT_WERROR "Treat compiler warnings as errors" OFF)
if(MQTT_WERROR)
  target_compile_options(project_flags INTERFACE -Werror)
endif()

set(MQTT_SANITIZER "" CACHE STRING "Sanitizer build: empty, 'address' (ASan+UBSan) or 'thread'")
if(MQTT_SANITIZER STREQUAL "address")
  set(_san -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
elseif(MQTT_SANITIZER STREQUAL "thread")
  set(_san -fsanitize=thread -fno-omit-frame-pointer)
elseif(NOT MQTT_SANITIZER STREQUAL "")
  message(FATAL_ERROR "MQTT_SANITIZER must be empty, 'address' or 'thread'")
endif()
if(_san)
  target_compile_options(project_flags INTERFACE ${_san})
  target_link_options(project_flags INTERFACE ${_san})
endif()

# Adds a GoogleTest binary whose cases are registered with CTest. LABEL is
# "unit" (no network) or "system" (starts a local broker).
function(project_add_test name)
  if(NOT BUILD_TESTING)
    return()
  endif()
  cmake_parse_arguments(T "" "LABEL;TIMEOUT" "SOURCES;LIBS" ${ARGN})
  if(NOT T_LABEL)
    set(T_LABEL unit)
  endif()
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 120)
  endif()
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE project_flags ${T_LIBS} GTest::gtest GTest::gtest_main Threads::Threads)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS ${T_LABEL} TIMEOUT ${T_TIMEOUT})
endfunction()

# Fuzz builds (clang): every target carries coverage instrumentation with ASan+UBSan; only
# the fuzz targets link libFuzzer's driver (fuzz/CMakeLists.txt).
option(MQTT_FUZZ "Build the libFuzzer targets in fuzz/ (clang only)" OFF)
if(MQTT_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "MQTT_FUZZ needs clang (the fuzz preset sets it)")
  endif()
  target_compile_options(project_flags INTERFACE
    -fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  target_link_options(project_flags INTERFACE -fsanitize=address,undefined)
endif()
