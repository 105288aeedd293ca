#include "api/logging.h"

#include <plog/Appenders/ConsoleAppender.h>
#include <plog/Formatters/TxtFormatter.h>
#include <plog/Log.h>

#include <memory>
#include <mutex>
#include <utility>

namespace tavrin {

namespace {

using Appender = plog::ConsoleAppender<plog::TxtFormatter>;
using Logger = plog::Logger<PLOG_DEFAULT_INSTANCE_ID>;

// In this order, so that the logger goes before what it writes to.
std::unique_ptr<Appender> g_appender;
std::unique_ptr<Logger> g_logger;

}  // namespace

void setUpLogging() {
    static std::mutex oneAtATime;  // models may be loaded on several threads
    const std::lock_guard lock(oneAtATime);
    if (plog::get<PLOG_DEFAULT_INSTANCE_ID>()) return;
    // An earlier one of ours, which a host's own has taken the place of: as it goes, the default logger is none.
    g_logger.reset();
    g_appender = std::make_unique<Appender>(plog::streamStdOut);
    auto logger = std::make_unique<Logger>(plog::info);
    logger->addAppender(g_appender.get());
    g_logger = std::move(logger);
}

}  // namespace tavrin
