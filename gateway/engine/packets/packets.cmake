# The sources that read packets, from an interface or a capture file.
find_package(Threads REQUIRED)
add_library(
  idpfwd_packets STATIC
  capture/capture_source.cpp
  capture/live_source.cpp
  capture/reader.cpp
  capture/ring.cpp
  packets/application_names.cpp
  packets/device_facts.cpp
  packets/dhcp.cpp
  packets/dhcp_devices.cpp
  packets/flow_keys.cpp
  packets/flow_table.cpp
  packets/ledger.cpp
  packets/ndpi_classifier.cpp
  packets/packet.cpp
  packets/packet_accounting.cpp
  packets/packet_names.cpp
)
target_link_libraries(
  idpfwd_packets
  PUBLIC idpfwd_core
  PRIVATE PkgConfig::ndpi PkgConfig::pcap Threads::Threads
)
# Every packet passes through here: what ships is optimised for speed, not for size as the rest.
target_compile_options(idpfwd_packets PRIVATE $<$<CONFIG:MinSizeRel>:-O2>)
