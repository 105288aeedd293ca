/// @file
/// What the stems of a multi-stem model are called: on the command line, and as files.
#pragma once

#include <string>
#include <vector>

#include "tavrin/multi_stem_separator.h"

namespace tavrin::tool {

/// The stem's own name, in lower case without spaces.
const std::string& nameOf(Stem stem);

/// The names of all stems, one a line.
std::string stemList();

/// @param list names with commas between them, however they are spelt; other usual names and "all" are known, too.
/// @return every stem that is named, once and in the model's order.
/// @throws Failure with ExitCode::wrongUsage when a name is none of a stem.
std::vector<Stem> stemsNamed(const std::string& list);

}  // namespace tavrin::tool
