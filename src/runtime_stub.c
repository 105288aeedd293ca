/* Stands in for ONNX Runtime while the library is linked, and only then. The real runtime gives its entry point a
 * symbol version, and a library linked with it could not even be loaded beside an older one; linked with this, it
 * loads with any and says itself, at the first model load, when the runtime is too old. */
#define EXPORT __attribute__((visibility("default")))

EXPORT const void* OrtGetApiBase(void);
EXPORT const void* OrtGetApiBase(void) { return 0; }
