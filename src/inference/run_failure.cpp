#include "inference/run_failure.h"

#include <utility>

namespace tavrin {

namespace {

thread_local std::optional<std::string> t_message;

}  // namespace

void RunFailure::leave(std::string message) { t_message = std::move(message); }

std::optional<std::string> RunFailure::take() { return std::exchange(t_message, std::nullopt); }

}  // namespace tavrin
