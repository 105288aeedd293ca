/// @file
/// A hook into the allocation functions.
#pragma once

#include <cstddef>

/// Calls of operator new so far, on all threads.
std::size_t allocationCount();
