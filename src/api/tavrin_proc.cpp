#include "tavrin/tavrin_proc.h"

#include <utility>

#include "api/tavrin_proc_impl.h"

namespace tavrin {

TavrinProc::TavrinProc(TavrinProcConfig config) : _impl(std::make_unique<TavrinProcImpl>(std::move(config))) {}

TavrinProc::~TavrinProc() = default;

std::vector<float> TavrinProc::process(const std::vector<float>& samples, bool eof) {
    return _impl->process(samples, eof);
}

std::size_t TavrinProc::maxInputSize() const { return _impl->maxInputSize(); }

}  // namespace tavrin
