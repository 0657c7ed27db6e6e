// The copy of what is not committed yet, on a file system in memory: it outlives the service, not
// the machine.
#pragma once

#include "usage/store/packing.h"
#include "usage/store/present.h"

namespace usage {

// What differs from the commit that present follows.
Packed packScratch(const Present &present);

// Brings present, as the last commit kept it, to where the scratch was. False, and present is as it
// was, when the scratch follows another commit or is damaged.
bool applyScratch(PackedView packed, Present &present);

// Replaces the file in one step. False when it can't.
bool writeScratch(const std::string &file, const Present &present);

// False when there is none that follows present's commit.
bool readScratch(const std::string &file, Present &present);

} // namespace usage
