/// @file
/// Pictures as PNG files.
#pragma once

#include <cairo.h>

#include "hidden_file.h"

namespace tavrin::tool {

/// Writes a picture of few colours as a PNG with a palette, less than half as large as one without.
/// @param picture of CAIRO_FORMAT_RGB24, with at most 240 colours beside the greys, which are thinned out to 16.
/// @throws Failure with ExitCode::writeFailed.
void writePng(cairo_surface_t* picture, HiddenFile& file);

}  // namespace tavrin::tool
