/// @file
/// What a failing action says.
#pragma once

#include <exception>
#include <string>

/// The message of the Error that `action` throws; empty when it throws nothing.
template <class Error = std::exception, class Action>
std::string messageOf(const Action& action) try {
    action();
    return "";
} catch (const Error& failure) {
    return failure.what();
}
