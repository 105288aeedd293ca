"""Other people's models made into models for the library: python -m tavrin.adapt --help. Needs the package onnx."""
