/// @file
/// Log records with an explicit function text.
///
/// Compilers spell a function's signature differently (templates, anonymous namespaces), so every record names its
/// function itself and the log reads the same whatever the library was built with.
#pragma once

#include <plog/Log.h>

#include <locale>

namespace tavrin {

/// Writes numbers without a thousands separator, whatever the host has made the process's locale.
inline plog::util::nostream& inClassicLocale(plog::util::nostream& stream) {
    stream.imbue(std::locale::classic());
    return stream;
}

}  // namespace tavrin

/// Starts a record for the process's default logger; assembled only when its level is enabled:
///     TAVRIN_LOG(plog::debug, kFunction) << "value: " << value;
#define TAVRIN_LOG(severity, functionText)                                                                       \
    IF_PLOG(severity)                                                                                            \
    (*plog::get<PLOG_DEFAULT_INSTANCE_ID>()) +=                                                                  \
        plog::Record(severity, functionText, __LINE__, PLOG_GET_FILE(), nullptr, PLOG_DEFAULT_INSTANCE_ID).ref() \
        << ::tavrin::inClassicLocale
