// The library as the daemon uses it: in a process of its own, through its entry points, ended by signals.
#include "platform/fenk_ipc.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include "host/fenksocket/test_support.h"

namespace fenk {
namespace {

using namespace fenk::test;

int32_t InvokeRoot(void*, uint32_t, ObjectArg*, uint32_t) { return OBJECT_OK; }

TEST(FenkIpc, EndsInOrderAtASignalAndASecondOneDoesNotCutItShort) {
  for (const int signal : {SIGTERM, SIGINT}) {
    const ListeningSocket socket;
    const auto serve = [&] {
      void* const service = FenkIPC_startServiceOnSocket(socket.Fd(), {InvokeRoot, nullptr});
      if (service == nullptr) _exit(1);
      kill(getpid(), signal);
      if (FenkIPC_join(service) != 0) _exit(2);
      raise(SIGTERM);
      _exit(FenkIPC_join(service));
    };
    EXPECT_EXIT(serve(), testing::ExitedWithCode(0), "");
  }
}

TEST(FenkIpc, LeavesTheSignalMaskAloneWhenItCannotStart) {
  sigset_t before;
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  EXPECT_EQ(FenkIPC_startServiceOnSocket(-1, {InvokeRoot, nullptr}), nullptr);
  sigset_t after;
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  EXPECT_EQ(sigismember(&after, SIGTERM), sigismember(&before, SIGTERM));
  EXPECT_NE(FenkIPC_join(nullptr), 0);
}

TEST(FenkIpc, StaysLoadedWhenItIsClosed) {
  void* const library = dlopen(FENKSOCKET_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  EXPECT_NE(dlsym(library, "FenkIPC_join"), nullptr);
  using StartService = void* (*)(int32_t, Object);
  const auto start = reinterpret_cast<StartService>(dlsym(library, "FenkIPC_startServiceOnSocket"));
  ASSERT_NE(start, nullptr);
  dlclose(library);
  EXPECT_EQ(start(-1, {InvokeRoot, nullptr}), nullptr);
}

}  // namespace
}  // namespace fenk
