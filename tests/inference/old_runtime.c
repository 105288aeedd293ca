/* A runtime one release older than the headers that the library is built with: its table ends at version 20. */
#include <onnxruntime_c_api.h>

static const OrtApi table;
static const OrtApi* getApi(uint32_t version) { return version > 20 ? 0 : &table; }
static const char* getVersion(void) { return "1.20.1"; }

__attribute__((visibility("default"))) const OrtApiBase* OrtGetApiBase(void) {
    static const OrtApiBase base = {getApi, getVersion};
    return &base;
}
