// The library as the daemon uses it: in a process of its own, through its entry points, ended by signals.
#include "platform/fenk_ipc.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "host/fenksocket/test_support.h"

namespace fenk {
namespace {

using namespace fenk::test;

// Operation 0 answers 7; operation 1 invokes its input object.
int32_t InvokeRoot(void*, uint32_t op, ObjectArg* args, uint32_t counts) {
  if (ObjectOperation(op) >= OBJECT_OP_RETAIN) return OBJECT_OK;
  if (counts == 0) return 7;
  return args[0].object.invoke(args[0].object.context, 0, nullptr, 0);
}

// A process that serves on `socket` until it is told to end. Its exit status is 0 when everything went as it should.
pid_t Fork(const ListeningSocket& socket) {
  const pid_t child = fork();
  if (child != 0) return child;
  void* const service = FenkIPC_startServiceOnSocket(socket.Fd(), {InvokeRoot, nullptr});
  if (service == nullptr) _exit(1);
  if (FenkIPC_join(service) != 0) _exit(2);
  raise(SIGTERM);  // a second one does not cut the exit short
  if (FenkIPC_join(service) != 0) _exit(3);
  _exit(0);
}

// Its exit status; -1 when it did not end by itself in time.
int AwaitExit(pid_t child) {
  const UniqueFd process(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
  pollfd ended{process.Get(), POLLIN, 0};
  const bool inTime = poll(&ended, 1, std::chrono::milliseconds(kPatience).count()) == 1;
  if (!inTime) kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  return inTime && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(FenkIpc, EndsInOrderAtASignalWhateverItsPeersDo) {
  for (const int signal : {SIGTERM, SIGINT}) {
    const ListeningSocket socket;
    const pid_t child = Fork(socket);
    ASSERT_GT(child, 0);
    // The socket is bound already; it listens once the child does.
    UniqueFd connected;
    while (!(connected = socket.Connect()).IsOpen()) {
    }
    const RawPeer peer(std::move(connected));
    ASSERT_TRUE(peer.Send(Hello() += Invoke(1, 0, 0, 0) += Invoke(2, 0, 1, 0x0100, Reference(kMine, 1))));
    EXPECT_EQ(peer.Receive().type, 1);
    EXPECT_EQ(peer.Receive().U32(0), 7u);
    EXPECT_EQ(peer.Receive().type, 2);  // is never answered
    const RawPeer idle(socket.Connect());
    const auto begun = std::chrono::steady_clock::now();
    ASSERT_EQ(kill(child, signal), 0);
    EXPECT_EQ(AwaitExit(child), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(2));
    EXPECT_TRUE(peer.AwaitEnd());
    EXPECT_TRUE(idle.AwaitEnd());
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
