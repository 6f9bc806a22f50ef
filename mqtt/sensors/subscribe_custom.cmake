# The subscribe-custom sensor: sources, tests and its scan benchmark.
target_sources(mqtt_sensors PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/base64.cpp
  ${CMAKE_CURRENT_LIST_DIR}/subscribe_custom_sensor.cpp)
target_link_libraries(mqtt_sensors PUBLIC libjsonparser libparser libtimeutils)

project_add_test(subscribe_custom_sensor_test
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/subscribe_custom_sensor_test.cpp
  LIBS mqtt_sensors tavo_proto)

if(TARGET test_support AND EXISTS ${CMAKE_CURRENT_LIST_DIR}/subscribe_custom_e2e_test.cpp)
  mqtt_add_system_test(subscribe_custom_e2e_test ${CMAKE_CURRENT_LIST_DIR}/subscribe_custom_e2e_test.cpp)
endif()

# Until bench/CMakeLists.txt takes it over. Meaningful in Release builds only.
if(NOT EXISTS ${PROJECT_SOURCE_DIR}/bench/CMakeLists.txt AND EXISTS ${PROJECT_SOURCE_DIR}/bench/subscribe_custom_scan_bench.cpp)
  add_executable(subscribe_custom_scan_bench ${PROJECT_SOURCE_DIR}/bench/subscribe_custom_scan_bench.cpp)
  target_link_libraries(subscribe_custom_scan_bench PRIVATE project_flags mqtt_sensors tavo_proto jsoncons
                                                            benchmark::benchmark_main)
endif()
