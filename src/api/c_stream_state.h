/// @file
/// What both kinds of streams of the C interface keep beside their separator.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

/// Refuses calls before anything changes: those of a closed stream, and those whose output might not fit.
class CStreamState {
public:
    explicit CStreamState(bool planar) : _planar(planar) {}

    /// The most samples that a call with `samples` more may return: the output never overtakes the input.
    /// @throws Refusal for more samples than memory can hold.
    size_t capacityFor(size_t samples) const;

    /// Lets a call through that the stream can serve. @throws Refusal.
    void admit(size_t samples, size_t capacity) const;

    /// Carries an admitted call out. The stream is closed when `action` throws, or when the call is the `last`.
    /// @param action separates `samples` samples and returns how many came out, which this returns, too.
    template <class Action>
    size_t carryOut(size_t samples, bool last, Action&& action) {
        _closed = kFailed;
        const size_t written = std::forward<Action>(action)();
        _held = _held + samples - written;
        _closed = last ? kEnded : nullptr;
        return written;
    }

    /// Starts a new stream. @param resetSeparator when it throws, the stream is closed.
    template <class Action>
    void reset(Action&& resetSeparator) {
        _closed = kFailed;
        std::forward<Action>(resetSeparator)();
        _held = 0;
        _closed = nullptr;
    }

    /// Writes a separator's samples to a buffer with room for `capacity` of them; n samples of silence when there are
    /// none.
    void write(const std::vector<float>& samples, size_t n, float* out, size_t capacity) const;

private:
    static constexpr const char* kFailed = "the stream has failed; its reset function starts a new one";
    static constexpr const char* kEnded = "the stream has ended; its reset function starts a new one";

    bool _planar;
    size_t _held = 0;               // samples taken and not yet returned
    const char* _closed = nullptr;  // why, if it is
};
