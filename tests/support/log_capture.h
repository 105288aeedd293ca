/// @file
/// Collects what the library logs.
#pragma once

#include <plog/Appenders/IAppender.h>
#include <plog/Log.h>

#include <string>
#include <vector>

/// While it lives it is the process's default logger and keeps every record up to `severity`.
struct LogCapture : plog::IAppender {
    struct Line {
        std::string function;  ///< as plog shortens it: compare with plog::util::processFuncName()
        std::string text;      ///< "SEVERITY message"
    };

    explicit LogCapture(plog::Severity severity = plog::verbose) : _logger(severity) { _logger.addAppender(this); }

    void write(const plog::Record& record) override {
        lines.push_back({record.getFunc(),
                         plog::severityToString(record.getSeverity()) + (' ' + std::string(record.getMessage()))});
    }

    /// The texts of a function's records, or of those that start with `what`, such as a severity; a line each.
    std::string listing(const std::string& what) const {
        std::string found;
        for (const auto& [function, text] : lines)
            if (function == what || text.starts_with(what)) found += text + '\n';
        return found;
    }

    std::vector<Line> lines;

private:
    plog::Logger<PLOG_DEFAULT_INSTANCE_ID> _logger;
};
