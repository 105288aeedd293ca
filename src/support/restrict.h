/// @file
/// A promise to the compiler.
#pragma once

/// What is written through this pointer overlaps nothing that is read through another: the loop may be vectorised.
#define TAVRIN_RESTRICT __restrict
