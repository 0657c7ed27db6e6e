// The QoS service's control, as far as the process stop sees it.
#include "sysutil/iqos_service.h"

#include "common/command.h"

#include <cstring>

int iqos_service(const char *action) {
    return strcmp(action, "stop_iqos") == 0 ? run_command(64, "bcmiqosd stop") : -1;
}
