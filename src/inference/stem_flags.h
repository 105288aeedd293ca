/// @file
/// Which stems a multi-stem model is to separate.
#pragma once

/// One flag per stem, in the order of the model's flag inputs and of its stem outputs.
struct StemFlags {
    bool vocals;
    bool drum;
    bool bass;
    bool piano;
    bool acousticGuitar;
    bool electricGuitar;
};
