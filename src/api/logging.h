/// @file
/// The library's console log.
#pragma once

namespace tavrin {

/// Installs the console logger (standard output, severity info) unless the process has a default plog logger already:
/// an earlier one of ours, or the host's own.
void setUpLogging();

}  // namespace tavrin
