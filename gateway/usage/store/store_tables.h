// Names that the two halves of the store share.
#pragma once

#include "usage/clock.h"

namespace usage {

// The table that holds the periods of a level.
const char *tableOf(Level level);

} // namespace usage
