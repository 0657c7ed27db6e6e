# The steps of script/test that are about the router: 32-bit ARM. Sourced by it.
# shellcheck shell=bash

arm_daemon_limit=65536

build_arm() {
    build arm
    build arm-dev
}

# The tests change their root, which an ordinary user may do in a user namespace only, and a program
# with an emulator's threads cannot enter one by itself.
run_arm_tests() {
    local log=build/arm-dev/ctest.log wrapper=()
    if [ "$(id -u)" -ne 0 ]; then
        wrapper=(unshare --map-root-user)
    fi
    if ! "${wrapper[@]}" ctest --preset arm-dev --parallel "$jobs" >"$log" 2>&1; then
        cat "$log"
        return 1
    fi
    grep 'tests passed, ' "$log"
    echo "Skipped here:"
    grep --no-group-separator -A 1 ': Skipped$' build/arm-dev/Testing/Temporary/LastTest.log |
        grep -v ': Skipped$' | sort | uniq -c
}

# What the daemon needs of a router: flash, libraries, and functions of its C library.
check_arm_daemon() {
    local stripped=build/arm/stripped size
    arm-linux-gnueabihf-strip -o "$stripped" build/arm/trafficUsageDetailsD
    size=$(stat --format %s "$stripped")
    echo "trafficUsageDetailsD has $size bytes, stripped (at most $arm_daemon_limit)"
    check_needed_libraries build/arm/trafficUsageDetailsD
    check_system_symbols
    [ "$size" -le "$arm_daemon_limit" ]
}

# Symbols of one kind (nm's option) in the code that ships, sorted.
arm_symbols() {
    arm-linux-gnueabihf-nm --portability "$1" build/arm/librouterutil.a build/arm/libtrafficusage.a \
        build/arm/router/daemon/CMakeFiles/trafficUsageDetailsD.dir/main.cpp.o |
        awk 'NF > 1 { print $1 }' | sort -u
}

check_system_symbols() {
    local used foreign
    used=$(comm -23 <(arm_symbols --undefined-only) <(arm_symbols --defined-only))
    foreign=$(comm -23 <(echo "$used") \
        <(sed '/^#/d' cmake/system-symbols.txt | tr -s ' ' '\n' | sort -u))
    echo "the libraries and the daemon use $(wc -l <<<"$used") symbols of the system"
    if [ -n "$foreign" ]; then
        echo "not on a router with a small C library: ${foreign//$'\n'/ }"
        return 1
    fi
}
