/// @file
/// The tensor containers of the pipeline: row-major, single precision. xt::xarray<float> has a dynamic rank and crosses
/// the borders between stages, xt::xtensor<float, N> a fixed one.
///
/// The default value of xt::xarray<float> (rank 0, one element equal to 0) means "nothing ready" or "failed" throughout
/// the pipeline: test the rank, not the size.
#pragma once

#if __has_include(<xtensor/containers/xarray.hpp>)  // xtensor 0.26 and later
#include <xtensor/containers/xarray.hpp>
#include <xtensor/containers/xtensor.hpp>
#else
#include <xtensor/xarray.hpp>
#include <xtensor/xtensor.hpp>
#endif
