#include "platform/control_socket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace {

// A descriptor that is closed at the end, and its number as init writes it.
struct TestFd {
  explicit TestFd(int descriptor) : fd(descriptor), text(std::to_string(descriptor)) {}
  ~TestFd() { close(fd); }
  TestFd(const TestFd&) = delete;
  TestFd& operator=(const TestFd&) = delete;

  int fd;
  std::string text;
};

class ControlSocket : public testing::Test {
 protected:
  // What android_get_control_socket("kesd") answers when init left `value`.
  static int With(const std::string& value) {
    setenv("ANDROID_SOCKET_kesd", value.c_str(), 1);
    const int fd = android_get_control_socket("kesd");
    unsetenv("ANDROID_SOCKET_kesd");
    return fd;
  }

  const TestFd stream{socket(AF_UNIX, SOCK_STREAM, 0)};
};

TEST_F(ControlSocket, IsTheDescriptorThatTheVariableNames) {
  EXPECT_EQ(With(stream.text), stream.fd);
  EXPECT_EQ(With("00" + stream.text), stream.fd);
}

TEST_F(ControlSocket, IsNotInheritedAnyFurther) {
  ASSERT_EQ(With(stream.text), stream.fd);
  EXPECT_EQ(fcntl(stream.fd, F_GETFD), FD_CLOEXEC);
}

TEST_F(ControlSocket, IsLookedUpWithUnderscoresForTheOtherCharacters) {
  setenv("ANDROID_SOCKET_a_b_9_Z__", stream.text.c_str(), 1);
  EXPECT_EQ(android_get_control_socket("a-b.9/Z\xc3\xa9"), stream.fd);
  unsetenv("ANDROID_SOCKET_a_b_9_Z__");
  EXPECT_EQ(android_get_control_socket("a-b.9/Z\xc3\xa9"), -1);
}

TEST_F(ControlSocket, IsMissingWhenTheVariableHoldsNoNumber) {
  const std::string& fd = stream.text;
  const std::string values[] = {
      "", " " + fd, fd + " ", "+" + fd, "-1", fd + "x", "0x3", "99999999999999999999", "4294967299"};
  for (const std::string& value : values) {
    EXPECT_EQ(With(value), -1) << '"' << value << '"';
  }
}

TEST_F(ControlSocket, IsMissingWhenTheDescriptorIsNoUnixStreamSocket) {
  const TestFd datagram(socket(AF_UNIX, SOCK_DGRAM, 0));
  const TestFd packets(socket(AF_UNIX, SOCK_SEQPACKET, 0));
  const TestFd internet(socket(AF_INET, SOCK_STREAM, 0));
  const TestFd file(open("/dev/null", O_RDONLY | O_CLOEXEC));
  for (const TestFd* other : {&datagram, &packets, &internet, &file}) EXPECT_EQ(With(other->text), -1);

  const int closed = dup(stream.fd);
  close(closed);
  EXPECT_EQ(With(std::to_string(closed)), -1);
}

TEST_F(ControlSocket, IsMissingForANameThatInitCannotHaveUsed) {
  setenv("ANDROID_SOCKET_", stream.text.c_str(), 1);
  EXPECT_EQ(android_get_control_socket(""), -1);
  EXPECT_EQ(android_get_control_socket(nullptr), -1);
  unsetenv("ANDROID_SOCKET_");
  EXPECT_EQ(android_get_control_socket(std::string(4096, 'k').c_str()), -1);
  EXPECT_EQ(android_get_control_socket("kesd"), -1);
}

}  // namespace
