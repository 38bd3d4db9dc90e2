# SPDX-License-Identifier: GPL-2.0-only
# The resolver daemon.
find_package(CLI11 REQUIRED)
find_package(Threads REQUIRED)

set(resolverd_fixtures resolverd_driver.cpp)

add_executable(resolverd_tests
  ${resolverd_fixtures}
  resolverd_back_end_test.cpp
  process.cpp
  resolverd_process_test.cpp
  resolverd_resolver_test.cpp
  resolverd_text_test.cpp)
target_compile_definitions(resolverd_tests PRIVATE RESOLVERD="$<TARGET_FILE:ipfc-resolverd>")
target_link_libraries(resolverd_tests PRIVATE resolverd GTest::gmock GTest::gtest_main)
add_dependencies(resolverd_tests ipfc-resolverd)
gtest_discover_tests(resolverd_tests TEST_PREFIX resolverd. PROPERTIES LABELS uspace TIMEOUT 300)

# Threads are tested under the sanitizer for them, which goes together with no other: the sources
# are built once more for it.
get_target_property(libipfc_sources libipfc SOURCES)
list(TRANSFORM libipfc_sources PREPEND ${PROJECT_SOURCE_DIR}/infra/uspace/libipfc/)
get_target_property(resolverd_sources resolverd SOURCES)
add_executable(resolverd_threads_tests
  ${resolverd_sources}
  ${libipfc_sources}
  ${resolverd_fixtures}
  resolverd_threads_test.cpp)
target_include_directories(resolverd_threads_tests PRIVATE
  ${PROJECT_SOURCE_DIR}/infra/uspace ${SYSTEMD_INCLUDE})
target_compile_options(resolverd_threads_tests PRIVATE
  -fno-sanitize=all -fsanitize=thread -fno-omit-frame-pointer -g)
target_link_options(resolverd_threads_tests PRIVATE -fno-sanitize=all -fsanitize=thread)
target_link_libraries(resolverd_threads_tests PRIVATE
  brim_headers CLI11::CLI11 Threads::Threads ${SYSTEMD_LIBRARY} GTest::gmock GTest::gtest_main)
gtest_discover_tests(resolverd_threads_tests TEST_PREFIX resolverd. PROPERTIES LABELS uspace
                     TIMEOUT 300)
