# Whether what ships was built so that a fault is hard to exploit. Sourced by script/test.
# shellcheck shell=bash

# check_hardening BUILD TOOLS: BUILD is a build directory, TOOLS what the names of its tools begin with.
#
# No grep -q: it leaves at the first line, and what then can't be written counts as a failure.
check_hardening() {
    local build=$1 readelf=$2readelf file weak=()
    for file in "$build"/{trafficUsageDetailsD,idpfwd,nvram,libnvram.so,libnat.so,libidpfw-shim.so}; do
        $readelf --program-headers --wide "$file" | grep GNU_RELRO >/dev/null ||
            weak+=("$file: no RELRO")
        $readelf --dynamic --wide "$file" | grep 'BIND_NOW\|Flags:.* NOW' >/dev/null ||
            weak+=("$file: bound lazily")
    done
    for file in "$build"/{trafficUsageDetailsD,idpfwd,nvram,libidpfw-shim.so}; do
        $readelf --dyn-syms --wide "$file" | grep __stack_chk_fail >/dev/null ||
            weak+=("$file: no stack protector")
    done
    for file in "$build"/{trafficUsageDetailsD,idpfwd}; do
        $readelf --dyn-syms --wide "$file" | grep '__[a-z]*printf_chk' >/dev/null ||
            weak+=("$file: not fortified")
    done
    check_control_flow "$build" "$readelf" || weak+=("main.cpp.o: no control-flow protection")
    if [ ${#weak[@]} -gt 0 ]; then
        printf '%s\n' "${weak[@]}"
        return 1
    fi
    echo "$build: RELRO, immediate binding, stack protector, fortified functions"
}

# Where the machine has it. An object file tells; a program only does when the C library's own objects
# have it as well.
check_control_flow() {
    grep -q '^HAVE_CONTROL_FLOW_PROTECTION:INTERNAL=1' "$1/CMakeCache.txt" || return 0
    $2 --notes --wide "$1/router/daemon/CMakeFiles/trafficUsageDetailsD.dir/main.cpp.o" |
        grep 'IBT, SHSTK' >/dev/null
}
