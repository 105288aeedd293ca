/// @file
/// The seam between the signal pipeline and the neural network.
#pragma once

#include <cstddef>
#include <vector>

#include "tavrin/export.h"

/// Extents of one model call's spectral tensor, outermost first.
struct Shape {
    size_t batch;     ///< the pre-processor passes 1
    size_t channels;  ///< planes: a real and an imaginary one per audio channel
    size_t frames;    ///< spectral frames per model call
    size_t bins;      ///< frequency bins per frame
};

/// A loaded model. Implement it to put something else than an ONNX model behind the pipeline.
///
/// Threads: an instance is used by one pipeline at a time unless the implementation says otherwise.
class TAVRIN_EXPORT IInference {
public:
    virtual ~IInference();

    /// Runs the model once on the caller's memory; keeps neither pointers nor vector.
    ///
    /// @param input `batch · channels · frames · bins` contiguous floats.
    /// @param outputs one buffer of that many floats per model output, to be written in the input's layout. They hold
    ///        anything before; write each frame of all planes or leave it alone. What is left alone counts as silence.
    /// @param shape the extents of `input`.
    /// @return true; false only from implementations that report a failed call this way. The ONNX back-ends log a
    ///         failed execution and return true, with the buffers as the runtime left them.
    /// @throws when the call could not be prepared.
    virtual bool run(const float* input, std::vector<float*> outputs, const Shape& shape) = 0;
};
