# The HTTP server alone, over loopback.
add_executable(usage_http_test http_auth_test.cpp http_test.cpp)
target_link_libraries(
  usage_http_test
  PRIVATE usage_http test_options PkgConfig::libcrypt PkgConfig::zlib GTest::gmock GTest::gtest_main
)
set_target_properties(
  usage_http_test PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests
)
discover_suite(usage_http_test)
