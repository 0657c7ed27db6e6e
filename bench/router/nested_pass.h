// The straightforward reading of the engine's tables: every row against every user, every candidate
// against every entry. The pass of the daemon has to give the same table in the same order.
#pragma once

// One pass like updateTrafficUsageDTable.
int nestedPass();
