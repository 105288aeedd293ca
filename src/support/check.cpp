#include "support/check.h"

#include <cstdio>
#include <cstdlib>

void tavrin::checkFailed(const char* expression, const char* file, int line, const char* function) noexcept {
    std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", file, line, function, expression);
    std::abort();
}
