/// @file
/// The library's log, as this program uses it.
#pragma once

#include <plog/Appenders/IAppender.h>

#include <mutex>
#include <string>

#include "messages.h"

namespace tavrin::tool {

/// The library's log as messages of this program. Unless the user wants to see everything, an error is kept instead of
/// printed: when the run fails it is the reason to name, and when the run goes on (an accelerator that did not start,
/// say) it was none. Nor is every model run of a multi-stem model announced then.
///
/// The log also tells which execution provider got the last model that was loaded.
class LogLines final : public plog::IAppender {
public:
    /// Makes this the process's log. To be called before the first model is loaded, because the library would otherwise
    /// install its own log, on standard output.
    static const LogLines& install(Verbosity verbosity);

    void write(const plog::Record& record) override;

    std::string lastError() const;
    std::string provider() const;  ///< that runs the model

private:
    explicit LogLines(Verbosity verbosity) : _verbosity(verbosity) {}
    void noteProvider(const std::string& line, bool isError);

    Verbosity _verbosity;
    mutable std::mutex _turn;
    std::string _lastError;
    std::string _provider;
    std::string _providerBefore;  // it stays when the one that is being tried fails
};

}  // namespace tavrin::tool
