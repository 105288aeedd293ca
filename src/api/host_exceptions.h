/// @file
/// Exceptions that hosts know.
#pragma once

#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

namespace tavrin {

/// Runs `action` and turns the runtime's own exception type, which hosts of include/tavrin do not see, into a
/// std::runtime_error with its message. A size that no vector can have is a lack of memory.
template <class Action>
auto withHostExceptions(Action&& action) {
    try {
        return std::forward<Action>(action)();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::length_error&) {
        throw std::bad_alloc();
    } catch (const std::logic_error&) {
        throw;
    } catch (const std::runtime_error&) {
        throw;
    } catch (const std::exception& failure) {
        throw std::runtime_error(failure.what());
    }
}

}  // namespace tavrin
