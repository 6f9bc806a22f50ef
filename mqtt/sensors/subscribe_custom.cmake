# The subscribe-custom sensor: sources, tests and its scan benchmark.
target_sources(mqtt_sensors PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/base64.cpp
  ${CMAKE_CURRENT_LIST_DIR}/subscribe_custom_sensor.cpp)
target_link_libraries(mqtt_sensors PUBLIC libjsonparser libparser libtimeutils)

project_add_test(subscribe_custom_sensor_test
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/subscribe_custom_sensor_test.cpp
  LIBS mqtt_sensors)

if(TARGET test_support)
  mqtt_add_system_test(subscribe_custom_e2e_test ${CMAKE_CURRENT_LIST_DIR}/subscribe_custom_e2e_test.cpp)
endif()

# Built here until bench/CMakeLists.txt lists it. Meaningful in Release builds only.
set(_bench_list "")
if(EXISTS ${PROJECT_SOURCE_DIR}/bench/CMakeLists.txt)
  file(READ ${PROJECT_SOURCE_DIR}/bench/CMakeLists.txt _bench_list)
endif()
string(FIND "${_bench_list}" "subscribe_custom_scan_bench" _listed)
if(_listed EQUAL -1)
  add_executable(subscribe_custom_scan_bench ${PROJECT_SOURCE_DIR}/bench/subscribe_custom_scan_bench.cpp)
  target_link_libraries(subscribe_custom_scan_bench PRIVATE project_flags mqtt_sensors jsoncons
                                                            benchmark::benchmark_main)
endif()

if(TARGET test_support)
  mqtt_add_system_test(input_refusals_e2e_test ${CMAKE_CURRENT_LIST_DIR}/input_refusals_e2e_test.cpp)
endif()
