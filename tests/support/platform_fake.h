// The platform's libraries in memory: the settings store and the NAT word.
#pragma once

#include <cstdint>
#include <string>

namespace rig {

void setSetting(const std::string &name, const std::string &value);

// "" when unset.
std::string setting(const std::string &name);

// How often they were saved since the test began.
int settingSaves();

// Makes every further kelpNvramConfig_set fail.
void refuseSettings();

extern std::uint32_t natWord;
// Makes agApi_feature_get fail.
extern bool natReadFails;

void resetPlatform();

} // namespace rig
