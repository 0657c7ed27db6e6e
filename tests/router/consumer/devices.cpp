// A router program in C++, as somebody else would write it: found through find_package.
#include <awsjson_util.h>
#include <bd_util.h>
#include <conf_app.h>
#include <nat.h>
#include <nvram.h>
#include <quill_util.h>
#include <system_util.h>

#include <cstdint>
#include <cstdlib>

// A program's own, whatever the library calls what it has for itself ...
int run_shell(const char *) {
    abort();
}
bool parse_mac(const char *, unsigned char *) {
    abort();
}
// ... and the hook that a program may take over.
static int traces;
extern "C" void trace(const char *, ...) {
    ++traces;
}

int main() {
    unsigned char mac[6];
    getMacByString("a0:b1:c2:d3:e4:f5", mac);
    if (mac[5] != 0xf5 || doSystem("exit 3") != 3 << 8 || traces != 1)
        return 1;

    std::uint32_t word = 0;
    return agApi_feature_set(24) == 0 && agApi_feature_get(&word) == 0 && word == 24 ? 0 : 1;
}
