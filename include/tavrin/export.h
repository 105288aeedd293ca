/// @file
/// Marks what the shared library offers to hosts. A macro and nothing else, so every floor may include it.
#pragma once

#if !defined(_WIN32)
#define TAVRIN_EXPORT __attribute__((visibility("default")))
#elif defined(TAVRIN_BUILDING)
#define TAVRIN_EXPORT __declspec(dllexport)
#else
#define TAVRIN_EXPORT __declspec(dllimport)
#endif
