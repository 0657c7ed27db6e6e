# The packet sources, without a private root. What a capture's bytes are counted as from end to end
# is the daemon's test: the capture is made here.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(capture_dir ${PROJECT_BINARY_DIR}/tests/capture)
add_custom_command(
  OUTPUT ${capture_dir}/home.pcap ${capture_dir}/expected.json
  COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/make_capture.py ${capture_dir}
  DEPENDS make_capture.py
  COMMENT "Making a capture of a home network"
)
add_custom_target(home_capture DEPENDS ${capture_dir}/home.pcap)

add_executable(
  packets_test
  application_names_test.cpp
  dhcp_test.cpp
  flow_keys_test.cpp
  ledger_test.cpp
  packet_accounting_test.cpp
  packet_source_test.cpp
  packet_test.cpp
)
target_link_libraries(packets_test PRIVATE idpfwd_packets test_options GTest::gmock GTest::gtest_main)
finish_suite(packets_test)
