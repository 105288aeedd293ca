/// @file
/// What the stress programs share.
#pragma once

#include <cstdio>

#include "models/model_bytes.h"
#include "support/signals.h"
#include "tavrin/separator.h"
