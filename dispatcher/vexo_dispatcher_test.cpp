#include "dispatcher/vexo_dispatcher.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/vexo_response.h"
#include "tests/scripted_platform.h"

namespace {

using scripted::Callback;
using scripted::TakeLog;
using scripted::TheLibrary;
using zv_loc_fw::VEXODiscoveryScanResponse;
using Log = std::vector<std::string>;

const Object kUnwritten = {nullptr, &scripted::TheLibrary()};

uint32_t NextId() { return ++VexoDispatcher::Get().requestIdCounter; }

std::string Line(const char* level, const char* text, uint32_t id) {
  return std::string(level) + " kesd Dispatcher: " + text + std::to_string(static_cast<int>(id)) + "\n";
}

void Ignore(zv_loc_fw::VEXOResponse*, Object) {}

int32_t Send(uint32_t id, Callback& callback, Object* handle, ResponseHandler handler = Ignore) {
  scripted::DiscoveryRequest request(id);
  ++TheLibrary().liveRequests;
  return VexoDispatcher::Get().SendRequest(&request, std::move(handler), callback.AsObject(), handle);
}

void Respond(uint32_t id) {
  VEXODiscoveryScanResponse response(id);
  TheLibrary().listener->responseReceived(&response);
}

class Dispatcher : public testing::Test {
 protected:
  void SetUp() override {
    VexoDispatcher::Get();
    TheLibrary().Reset();
    TakeLog();
  }
  Callback callback;
  Object handle = kUnwritten;
};

TEST(DispatcherStartDeathTest, EndsTheProcessWhenNoClientCanBeMade) {
  EXPECT_EXIT(
      {
        TheLibrary().createFails = true;
        std::atexit([] {
          for (const std::string& line : TakeLog()) std::fputs(line.c_str(), stderr);
        });
        VexoDispatcher::Get();
      },
      testing::ExitedWithCode(255), "^E kesd Dispatcher: Could not create the VEXOClient\n$");
}

TEST(DispatcherStartDeathTest, MakesItsClientOnFirstUseAndTheFirstRequestIdIsOne) {
  EXPECT_EXIT(
      {
        const bool early = TheLibrary().listener != nullptr;
        const uint32_t id = NextId();
        const bool right = !early && id == 1 && TheLibrary().listener == &VexoDispatcher::Get() &&
                           TheLibrary().createdWith == "flag=1 level=2" &&
                           TakeLog() == Log{"D kesd Dispatcher: initialized\n"};
        std::exit(right ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(Dispatcher, DeliversTheFirstResponseAndThenReleasesTheCallbackOnce) {
  const uint32_t id = NextId();
  int calls = 0;
  ASSERT_EQ(Send(id, callback, &handle,
                 [&](zv_loc_fw::VEXOResponse* response, Object object) {
                   ++calls;
                   EXPECT_EQ(response->getRequestId(), id);
                   EXPECT_EQ(object.context, &callback);
                   EXPECT_EQ(callback.releases, 0) << "released only after the handler returned";
                 }),
            0);
  EXPECT_EQ(callback.retains, 1);
  ASSERT_NE(handle.invoke, nullptr);
  EXPECT_TRUE(TakeLog().empty());

  Respond(id);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(callback.releases, 1);
  EXPECT_EQ(TakeLog(), Log{Line("D", "responseReceived for ID = ", id)});

  Respond(id);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(callback.releases, 1);
  EXPECT_EQ(TakeLog(), (Log{Line("D", "responseReceived for ID = ", id), Line("W", "Unexpected request ID ", id)}));

  ObjectRelease(handle);
  EXPECT_EQ(callback.releases, 1);
  EXPECT_EQ(TakeLog(), Log{Line("D", "Expected release for ID ", id)});
}

TEST_F(Dispatcher, TheLastReleaseOfAHandleAbortsItsRequest) {
  const uint32_t id = NextId();
  bool called = false;
  ASSERT_EQ(Send(id, callback, &handle, [&](zv_loc_fw::VEXOResponse*, Object) { called = true; }), 0);
  EXPECT_EQ(handle.invoke(handle.context, 0x50000 | OBJECT_OP_RETAIN, nullptr, 0), OBJECT_OK);
  for (const uint32_t op : {0u, 1u, 0xFFFDu}) {
    EXPECT_EQ(handle.invoke(handle.context, op, nullptr, 0), OBJECT_ERROR_INVALID);
  }
  EXPECT_EQ(handle.invoke(handle.context, OBJECT_OP_RELEASE, nullptr, 7), OBJECT_OK);
  EXPECT_EQ(callback.releases, 0);
  EXPECT_TRUE(TakeLog().empty());

  EXPECT_EQ(handle.invoke(handle.context, OBJECT_OP_RELEASE, nullptr, 0), OBJECT_OK);
  EXPECT_EQ(callback.releases, 1);
  EXPECT_EQ(TakeLog(), Log{Line("D", "Aborted ID ", id)});

  Respond(id);
  EXPECT_FALSE(called);
  EXPECT_EQ(callback.releases, 1);
  EXPECT_EQ(TakeLog().back(), Line("W", "Unexpected request ID ", id));
}

TEST_F(Dispatcher, ARequestThatIsNotSentLeavesNoTrace) {
  const uint32_t pending = NextId();
  Object other = kUnwritten;
  ASSERT_EQ(Send(pending, callback, &other), 0);
  TheLibrary().sendCalls = 0;

  EXPECT_EQ(Send(pending, callback, &handle), -1) << "an ID that is still pending";
  EXPECT_EQ(TheLibrary().sendCalls, 0);
  TheLibrary().throws = true;
  EXPECT_EQ(Send(NextId(), callback, &handle), -1);
  EXPECT_EQ(callback.retains, 1);
  EXPECT_EQ(handle.context, kUnwritten.context);
  EXPECT_TRUE(TakeLog().empty());
  Respond(pending + 1);
  EXPECT_EQ(TakeLog().back(), Line("W", "Unexpected request ID ", pending + 1)) << "nothing was recorded";

  Respond(pending);
  ObjectRelease(other);
  EXPECT_EQ(callback.releases, 1);
}

TEST_F(Dispatcher, ANullResponseTouchesNothing) {
  TheLibrary().listener->responseReceived(nullptr);
  EXPECT_EQ(TakeLog(), Log{"W kesd Dispatcher: received Null response.\n"});
}

}  // namespace
