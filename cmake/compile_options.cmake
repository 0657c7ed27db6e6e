# Compile options and include roots by what the code is for: product code lives without the C++
# runtime; tools, the engine and the tests are ordinary C++ with the same warnings. A wing that is not
# among the include roots can't be included from.

include(CheckCCompilerFlag)
include(CheckCSourceCompiles)

set(CMAKE_C_STANDARD 11)
set(CMAKE_C_EXTENSIONS ON)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# What makes a fault in C or C++ harder to exploit, in every program that ships. The flags of a
# distribution's own build may stand beside these; the fortified functions need an optimising build and
# get in the sanitizers' way.
add_library(hardening INTERFACE)
set(CMAKE_REQUIRED_FLAGS -fstack-protector-all) # so that even this program needs the C library's part
check_c_source_compiles("int main(void) { return 0; }" HAVE_STACK_PROTECTOR)
unset(CMAKE_REQUIRED_FLAGS)
check_c_compiler_flag(-fcf-protection HAVE_CONTROL_FLOW_PROTECTION)
if(HAVE_STACK_PROTECTOR)
  target_compile_options(hardening INTERFACE -fstack-protector-strong)
endif()
if(HAVE_CONTROL_FLOW_PROTECTION)
  target_compile_options(hardening INTERFACE -fcf-protection)
endif()
if(NOT SANITIZE)
  target_compile_options(
    hardening INTERFACE "$<$<NOT:$<CONFIG:Debug,>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>"
  )
endif()
target_link_options(hardening INTERFACE -Wl,-z,relro,-z,now)

add_library(common_options INTERFACE)
target_link_libraries(common_options INTERFACE hardening)
target_compile_options(
  common_options
  INTERFACE
    -Wall -Wextra -Wformat=2 -Wshadow -Wcast-align -Wimplicit-fallthrough -Wundef -Wvla
    $<$<COMPILE_LANGUAGE:C>:-Wmissing-prototypes>
    $<$<COMPILE_LANGUAGE:CXX>:-Wmissing-declarations -Wnon-virtual-dtor>
)
if(SANITIZE)
  target_compile_options(
    common_options
    INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer
  )
  target_link_options(common_options INTERFACE -fsanitize=address,undefined)
endif()
if(FUZZ)
  target_compile_options(common_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# Linked by the C driver: nothing here may need libstdc++. The router's wing is the only one that it
# can see.
add_library(product_options INTERFACE)
target_include_directories(product_options INTERFACE ${PROJECT_SOURCE_DIR}/router)
target_link_libraries(product_options INTERFACE common_options)
# Nor may it ask for the library's assertions, as the flags of some toolchains do: their message is in
# the library that a router does not have.
target_compile_options(
  product_options
  INTERFACE
    -ffunction-sections -fdata-sections
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>
    $<$<COMPILE_LANGUAGE:CXX>:-U_GLIBCXX_ASSERTIONS>
)
target_link_options(product_options INTERFACE -Wl,--gc-sections -Wl,--as-needed)

# Ordinary C++ that runs on a gateway or a workstation; it may look into the router's wing.
add_library(gateway_options INTERFACE)
target_link_libraries(gateway_options INTERFACE common_options)
target_include_directories(
  gateway_options INTERFACE ${PROJECT_SOURCE_DIR}/gateway ${PROJECT_SOURCE_DIR}/router
)

# Ordinary C++ that runs at an operator's; it sees nothing but its own wing.
add_library(fleet_options INTERFACE)
target_link_libraries(fleet_options INTERFACE common_options)
target_include_directories(fleet_options INTERFACE ${PROJECT_SOURCE_DIR}/fleet)
# A server's program is built for speed where a router's is built for size.
target_compile_options(fleet_options INTERFACE $<$<CONFIG:MinSizeRel>:-O2>)

# Tests, fuzz targets and benchmarks: what they share stands below tests/, fuzz/ and bench/.
add_library(test_options INTERFACE)
target_link_libraries(test_options INTERFACE gateway_options)
target_include_directories(
  test_options INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/tests
)
