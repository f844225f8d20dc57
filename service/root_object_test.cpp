#include "service/root_object.h"

#include <gtest/gtest.h>

#include "ipc/services.h"
#include "tests/scripted_platform.h"

namespace {

TEST(RootObject, HasTwoServicesEachTheSameObjectEachTime) {
  Object services[2];
  for (const uint32_t id : {SERVICE_ID_DISCOVERY_SCAN, SERVICE_ID_RANGING_SCAN}) {
    services[id - 1] = scripted::Open(RootObject(), id);
    EXPECT_EQ(services[id - 1].context, nullptr);
    EXPECT_EQ(scripted::Open(RootObject(), id).invoke, services[id - 1].invoke);
  }
  EXPECT_NE(services[0].invoke, services[1].invoke);
}

}  // namespace
