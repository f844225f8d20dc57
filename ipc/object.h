// The object invocation contract: how every object that crosses the process boundary is reached.
//
// An object is a two-word reference. To use one, call its `invoke` with its `context`, an operation, an array
// of argument slots and the packed count of those slots. The IPC framework reads and writes these structures
// itself, so their layout is fixed.
#ifndef KESD_IPC_OBJECT_H_
#define KESD_IPC_OBJECT_H_

#include <cstddef>
#include <cstdint>
#include <type_traits>

union ObjectArg;

// The packed count of an invocation's slots: input buffers in bits 0 to 3, output buffers in 4 to 7, input objects in 8
// to 11, output objects in 12 to 15. Bits 16 to 31 are zero.
using ArgCounts = uint32_t;

// An object's entry point; runs synchronously on the calling thread.
// `op`: the operation is its low 16 bits. `args`: the slots that `counts` announces, or null when there are none.
using ObjectInvoke = int32_t (*)(void* context, uint32_t op, ObjectArg* args, ArgCounts counts);

// A reference to an object, passed and stored by value. Copying it takes no reference: only the operations
// OBJECT_OP_RETAIN and OBJECT_OP_RELEASE count.
struct Object {
  ObjectInvoke invoke;
  void* context;  // null for objects without state
};

// One argument slot. Which view applies follows from the slot's index and the counts: all input buffers come
// first, then output buffers, input objects and output objects, with nothing in between.
union ObjectArg {
  struct {
    void* ptr;      // may be unaligned; null when `size` is 0
    uint64_t size;  // bytes
  } buffer;
  Object object;
};

static_assert(sizeof(void*) == 8, "the contract is defined for 64-bit processes");
static_assert(sizeof(Object) == 16 && offsetof(Object, invoke) == 0 && offsetof(Object, context) == 8);
static_assert(sizeof(ObjectArg) == 16 && offsetof(ObjectArg, buffer.ptr) == 0 && offsetof(ObjectArg, buffer.size) == 8);
static_assert(std::is_trivially_copyable_v<Object> && std::is_standard_layout_v<Object>);

// Operations that are common to all objects; codes below OBJECT_OP_RETAIN are an object's own methods.
inline constexpr uint32_t OBJECT_OP_RETAIN = 0xFFFE;
inline constexpr uint32_t OBJECT_OP_RELEASE = 0xFFFF;

// Results of an invocation.
inline constexpr int32_t OBJECT_OK = 0;
inline constexpr int32_t OBJECT_ERROR = 1;          // the request could not be built or sent
inline constexpr int32_t OBJECT_ERROR_INVALID = 2;  // unknown operation, wrong counts, wrong buffer size, unknown ID

// The operation that `op` names; bits 16 to 31 are not part of it.
constexpr uint32_t ObjectOperation(uint32_t op) { return op & 0xFFFF; }

// Packs slot counts, each 0 to 15.
constexpr ArgCounts ObjectCounts(uint32_t inputBuffers, uint32_t outputBuffers, uint32_t inputObjects,
                                 uint32_t outputObjects) {
  return inputBuffers | outputBuffers << 4 | inputObjects << 8 | outputObjects << 12;
}

// Takes or drops one reference. The object must not be null. What it answers has no bearing on the caller.
inline void ObjectRetain(const Object& object) { (void)object.invoke(object.context, OBJECT_OP_RETAIN, nullptr, 0); }
inline void ObjectRelease(const Object& object) { (void)object.invoke(object.context, OBJECT_OP_RELEASE, nullptr, 0); }

#endif  // KESD_IPC_OBJECT_H_
