# The sources that read packets, from an interface or a capture file.
add_library(
  idpfwd_packets STATIC
  packets/application_names.cpp
  packets/dhcp.cpp
  packets/dhcp_devices.cpp
  packets/flow_table.cpp
  packets/ndpi_classifier.cpp
  packets/packet.cpp
  packets/packet_accounting.cpp
  packets/packet_source.cpp
)
target_link_libraries(
  idpfwd_packets
  PUBLIC idpfwd_core
  PRIVATE PkgConfig::ndpi PkgConfig::pcap
)
