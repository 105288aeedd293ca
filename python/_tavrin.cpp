// The library for Python, without what Python does better: rows of float32 come in and go out as pointers, the
// interpreter's lock is released while the library works. tavrin/__init__.py knows shapes, types and names.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tavrin/separator.h"
#include "tavrin/tavrin_c.h"

namespace py = pybind11;
using namespace py::literals;

namespace {

using Floats = py::array_t<float, py::array::c_style>;
using NoLock = py::call_guard<py::gil_scoped_release>;

tavrin::Model load(const py::buffer& bytes, std::vector<std::string> providers, bool strict, std::size_t threads,
                   const std::string& key) {
    const py::buffer_info data = bytes.request();
    const tavrin::ModelData model{static_cast<const std::uint8_t*>(data.ptr),
                                  static_cast<std::uint64_t>(data.size * data.itemsize), &key};
    const py::gil_scoped_release unlocked;
    return tavrin::Model(model, {std::move(providers), strict, threads});
}

py::dict info(const tavrin::Model& model) {
    const tavrin::ModelInfo& is = model.info();
    return py::dict("stems"_a = is.stems, "sample_rate"_a = is.sampleRate, "frame_length"_a = is.frameLength,
                    "hop"_a = is.hop, "window"_a = is.window, "frames"_a = is.frames, "bins"_a = is.bins,
                    "context"_a = is.context, "title"_a = is.title, "licence"_a = is.licence, "source"_a = is.source,
                    "provider"_a = is.provider, "not_used"_a = is.notUsed);
}

std::vector<float*> writable(std::vector<Floats>& arrays) {
    std::vector<float*> pointers;
    pointers.reserve(arrays.size());
    for (Floats& array : arrays) pointers.push_back(array.mutable_data());
    return pointers;
}

// `samples` and `capacity` are those of the arrays: one for each interleaved signal, two for each planar one.
std::size_t process(tavrin::Separator& separator, const std::vector<Floats>& input, std::size_t samples,
                    std::vector<Floats> outputs, std::size_t capacity) {
    std::vector<const float*> in;
    in.reserve(input.size());
    for (const Floats& array : input) in.push_back(array.data());
    const std::vector<float*> out = writable(outputs);
    const py::gil_scoped_release unlocked;
    return separator.process(in.data(), samples, out.data(), capacity);
}

std::size_t finish(tavrin::Separator& separator, std::vector<Floats> outputs, std::size_t capacity) {
    const std::vector<float*> out = writable(outputs);
    const py::gil_scoped_release unlocked;
    return separator.finish(out.data(), capacity);
}

}  // namespace

PYBIND11_MODULE(_tavrin, module) {
    module.attr("version") = std::to_string(TAVRIN_VERSION_MAJOR) + "." + std::to_string(TAVRIN_VERSION_MINOR) + "." +
                             std::to_string(TAVRIN_VERSION_PATCH);
    module.def("providers", &tavrin::availableProviders);

    py::class_<tavrin::Model>(module, "Model")
        .def(py::init(&load), "bytes"_a, "providers"_a, "strict"_a, "threads"_a, "key"_a)
        .def("info", &info);
    py::class_<tavrin::Separator>(module, "Separator")
        .def(py::init([](const tavrin::Model& of, std::vector<std::string> stems, bool rest, bool planar,
                         double latency, std::size_t context) {
                 const tavrin::Layout layout = planar ? tavrin::Layout::planar : tavrin::Layout::interleaved;
                 return tavrin::Separator(of, {std::move(stems), rest, layout, latency, context});
             }),
             "model"_a, "stems"_a, "rest"_a, "planar"_a, "latency"_a, "context"_a, NoLock())
        .def_property_readonly("outputs", &tavrin::Separator::outputs)
        .def_property_readonly("latency", &tavrin::Separator::latency)
        .def_property_readonly("step", &tavrin::Separator::step)
        .def_property_readonly("pending", &tavrin::Separator::pending)
        .def("output_for", &tavrin::Separator::outputFor, "samples"_a)
        .def("process", &process, "input"_a, "samples"_a, "outputs"_a, "capacity"_a)
        .def("finish", &finish, "outputs"_a, "capacity"_a)
        .def("select", &tavrin::Separator::select, "stems"_a, NoLock())
        .def("reset", &tavrin::Separator::reset, NoLock());
}
