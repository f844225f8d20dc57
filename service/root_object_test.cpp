#include "service/root_object.h"

#include <gtest/gtest.h>

#include <cstring>

#include "ipc/services.h"
#include "tests/scripted_platform.h"

namespace {

const Object kUntouched = {reinterpret_cast<ObjectInvoke>(1), reinterpret_cast<void*>(2)};

struct Opened {
  int32_t result;
  Object service;
};

Opened Open(uint32_t op, uint64_t id, uint64_t idSize, uint32_t counts) {
  char unaligned[1 + sizeof(id)];
  std::memcpy(unaligned + 1, &id, sizeof(id));
  ObjectArg args[3] = {scripted::InputBuffer(unaligned + 1, idSize), {.object = kUntouched}, {.object = kUntouched}};
  const Object root = RootObject();
  const int32_t result = root.invoke(root.context, op, args, counts);
  return {result, args[1].object};
}

TEST(RootObject, OpensTheTwoServicesByIdAndTheSameObjectEachTime) {
  Object services[2];
  for (uint32_t id = 1; id <= 2; ++id) {
    const Opened first = Open(0, id, 4, kRootOpenCounts);
    const Opened again = Open(0x10000, id, 4, kRootOpenCounts);
    EXPECT_EQ(first.result, OBJECT_OK);
    EXPECT_EQ(again.result, OBJECT_OK);
    EXPECT_EQ(first.service.invoke, again.service.invoke);
    EXPECT_EQ(first.service.context, nullptr);
    services[id - 1] = first.service;
    for (const uint32_t op : {OBJECT_OP_RETAIN, OBJECT_OP_RELEASE}) {
      EXPECT_EQ(first.service.invoke(nullptr, op, nullptr, 0), OBJECT_ERROR_INVALID) << "services are not counted";
    }
  }
  EXPECT_NE(services[0].invoke, services[1].invoke);
}

TEST(RootObject, RetainAndReleaseAreAlwaysFine) {
  for (const uint32_t op : {OBJECT_OP_RETAIN, OBJECT_OP_RELEASE, 0x7FFF0000 | OBJECT_OP_RETAIN}) {
    EXPECT_EQ(RootObject().invoke(nullptr, op, nullptr, 0), OBJECT_OK);
    EXPECT_EQ(Open(op, 1, 4, 0xFFFFFFFF).result, OBJECT_OK);
    EXPECT_EQ(Open(op, 1, 4, kRootOpenCounts).service.invoke, kUntouched.invoke);
  }
}

}  // namespace
