// What the fuzz targets share: the headers they all draw on, and the rule check, which names a broken rule on stderr
// beside the finding and counts the input as a crash.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#define Check(condition) \
    ((condition) ? void() : (std::fprintf(stderr, "broken at line %d: %s\n", __LINE__, #condition), std::abort()))
