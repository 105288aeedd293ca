/// @file
/// A model's handle.
#pragma once

#include <vector>

#include "tavrin/separator.h"
#include "tavrin/tavrin_c.h"

struct tavrin_model {
    explicit tavrin_model(const tavrin::Model& loaded);

    tavrin::Model model;
    std::vector<const char*> stems, notUsed;  // the model's strings, as C has lists of them
};
