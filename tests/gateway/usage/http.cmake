# The HTTP server over loopback, with a clock of its own.
add_executable(usage_http_test http_auth_test.cpp http_test.cpp)
target_link_libraries(
  usage_http_test
  PRIVATE usage_http test_options PkgConfig::libcrypt PkgConfig::zlib GTest::gmock GTest::gtest_main
)
finish_suite(usage_http_test)

# What the page, the metrics, the messages and the setup are made of.
add_executable(usage_page_parts_test page_parts_test.cpp)
target_link_libraries(
  usage_page_parts_test PRIVATE usage_core usage_http test_options GTest::gmock GTest::gtest_main
)
finish_suite(usage_page_parts_test)

# The programs that ship, and the page in a browser: Debian's own Python, which has Debian's modules.
foreach(test service page)
  add_test(
    NAME usage_${test}_test
    COMMAND /usr/bin/python3 ${CMAKE_CURRENT_SOURCE_DIR}/${test}_test.py
            $<TARGET_FILE:traffic-usage> $<TARGET_FILE:idpfwd> $<TARGET_FILE:idpfw-shim>
  )
  set_tests_properties(usage_${test}_test PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 400)
endforeach()
