#include "platform/control_socket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "host/fenksocket/unique_fd.h"

namespace {

using fenk::UniqueFd;

std::string Text(const UniqueFd& fd) { return std::to_string(fd.Get()); }

class ControlSocket : public testing::Test {
 protected:
  // What android_get_control_socket("kesd") answers when init left `value`.
  static int With(const std::string& value) {
    setenv("ANDROID_SOCKET_kesd", value.c_str(), 1);
    const int fd = android_get_control_socket("kesd");
    unsetenv("ANDROID_SOCKET_kesd");
    return fd;
  }

  const UniqueFd stream{socket(AF_UNIX, SOCK_STREAM, 0)};
};

TEST_F(ControlSocket, IsTheDescriptorThatTheVariableNamesAndInheritedNoFurther) {
  EXPECT_EQ(With(Text(stream)), stream.Get());
  EXPECT_EQ(fcntl(stream.Get(), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(With("00" + Text(stream)), stream.Get());
}

TEST_F(ControlSocket, IsLookedUpWithUnderscoresForTheOtherCharacters) {
  setenv("ANDROID_SOCKET_a_b_9_Z__", Text(stream).c_str(), 1);
  EXPECT_EQ(android_get_control_socket("a-b.9/Z\xc3\xa9"), stream.Get());
  unsetenv("ANDROID_SOCKET_a_b_9_Z__");
  EXPECT_EQ(android_get_control_socket("a-b.9/Z\xc3\xa9"), -1);
}

TEST_F(ControlSocket, IsMissingWhenTheVariableHoldsNoNumber) {
  const std::string fd = Text(stream);
  const std::string values[] = {
      "", " " + fd, fd + " ", "+" + fd, "-1", fd + "x", "0x3", "99999999999999999999", "4294967299"};
  for (const std::string& value : values) {
    EXPECT_EQ(With(value), -1) << '"' << value << '"';
  }
}

TEST_F(ControlSocket, IsMissingWhenTheDescriptorIsNoUnixStreamSocket) {
  const UniqueFd datagram(socket(AF_UNIX, SOCK_DGRAM, 0));
  const UniqueFd packets(socket(AF_UNIX, SOCK_SEQPACKET, 0));
  const UniqueFd internet(socket(AF_INET, SOCK_STREAM, 0));
  const UniqueFd file(open("/dev/null", O_RDONLY | O_CLOEXEC));
  for (const UniqueFd* other : {&datagram, &packets, &internet, &file}) EXPECT_EQ(With(Text(*other)), -1);

  const int closed = dup(stream.Get());
  close(closed);
  EXPECT_EQ(With(std::to_string(closed)), -1);
}

TEST_F(ControlSocket, IsMissingForANameThatInitCannotHaveUsed) {
  setenv("ANDROID_SOCKET_", Text(stream).c_str(), 1);
  EXPECT_EQ(android_get_control_socket(""), -1);
  EXPECT_EQ(android_get_control_socket(nullptr), -1);
  unsetenv("ANDROID_SOCKET_");
  EXPECT_EQ(android_get_control_socket(std::string(4096, 'k').c_str()), -1);
  EXPECT_EQ(android_get_control_socket("kesd"), -1);
}

}  // namespace
