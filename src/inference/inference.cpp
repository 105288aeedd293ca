#include "inference/inference.h"

// Here, so that type information has one home and casts work across library borders.
IInference::~IInference() = default;
