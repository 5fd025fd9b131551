include(GoogleTest)

# kavri_add_test(NAME SOURCES... [LIBS libs...])
# One GoogleTest program; its tests are listed when ctest runs, so that the
# cross build does not start qemu at build time.
function(kavri_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE kavri_test_support ${ARG_LIBS} GTest::gtest_main GTest::gmock)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
                       PROPERTIES TIMEOUT 300)
endfunction()
