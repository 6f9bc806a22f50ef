# Included by bench/CMakeLists.txt. Meaningful in Release builds only.
add_executable(json_scan_bench ${CMAKE_CURRENT_LIST_DIR}/../bench/json_scan_bench.cpp)
target_link_libraries(json_scan_bench PRIVATE project_flags libjsonparser jsoncons
                                              benchmark::benchmark_main)
