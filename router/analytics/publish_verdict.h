// What a publisher's output says about the publication. The words decide, never the exit status.
#pragma once

#include <cstdio>
#include <string_view>

inline namespace routerutil {

enum class PublishMethod { Iot, Mcs, Other };

// "IoT" or "MCS"; any other text publishes nothing.
PublishMethod publish_method(std::string_view text);

enum class Verdict { None, Failure, Success };

// Reads the output in lines of at most 127 characters, until one decides.
Verdict publish_verdict(PublishMethod method, FILE *output);

} // namespace routerutil
