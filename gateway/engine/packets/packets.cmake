# The sources that read packets, from an interface or a capture file.
add_library(
  idpfwd_packets STATIC
  application_names.cpp
  dhcp.cpp
  dhcp_devices.cpp
  flow_table.cpp
  ndpi_classifier.cpp
  packet.cpp
  packet_accounting.cpp
  packet_source.cpp
)
target_link_libraries(
  idpfwd_packets
  PUBLIC idpfwd_core
  PRIVATE PkgConfig::ndpi PkgConfig::pcap
)
