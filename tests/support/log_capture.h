/// @file
/// Collects what the library logs.
#pragma once

#include <plog/Appenders/IAppender.h>
#include <plog/Log.h>

#include <string>
#include <vector>

/// While it lives it is the process's default logger and keeps every record up to `severity`.
class LogCapture : public plog::IAppender {
public:
    struct Line {
        plog::Severity severity;
        std::string function;  ///< as plog shortens it: compare with plog::util::processFuncName()
        std::string text;
        bool operator==(const Line&) const = default;
    };

    explicit LogCapture(plog::Severity severity = plog::verbose) : _logger(severity) { _logger.addAppender(this); }

    void write(const plog::Record& record) override {
        lines.push_back({record.getSeverity(), record.getFunc(), record.getMessage()});
    }

    /// The texts of the records of exactly this severity, in order.
    std::vector<std::string> texts(plog::Severity severity) const {
        std::vector<std::string> found;
        for (const Line& line : lines)
            if (line.severity == severity) found.push_back(line.text);
        return found;
    }

    /// The records of a function, "SEVERITY text" a line.
    std::string listing(const std::string& function) const {
        std::string found;
        for (const Line& line : lines)
            if (line.function == function) found += plog::severityToString(line.severity) + (' ' + line.text) + '\n';
        return found;
    }

    std::vector<Line> lines;

private:
    plog::Logger<PLOG_DEFAULT_INSTANCE_ID> _logger;
};
