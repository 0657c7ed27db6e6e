// Must not compile: the router's wing sees nothing of the gateway's.
#include "engine/tables.h"
