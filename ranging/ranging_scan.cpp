#include "ranging/ranging_scan.h"

namespace {

int32_t ranging_scan_invoke(void*, uint32_t, ObjectArg*, uint32_t) { return OBJECT_ERROR_INVALID; }

}  // namespace

Object CreateVexoRangingScan() { return {ranging_scan_invoke, nullptr}; }
