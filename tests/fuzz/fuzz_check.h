// The fuzz targets' rule check: a broken rule is named on stderr beside the finding, and the input counts as a crash.
#pragma once

#include <cstdio>
#include <cstdlib>

#define Check(condition) \
    ((condition) ? void() : (std::fprintf(stderr, "broken at line %d: %s\n", __LINE__, #condition), std::abort()))
