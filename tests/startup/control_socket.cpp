// A libcutils.so that answers CONTROL_SOCKET.
#include "platform/control_socket.h"

#include "tests/startup/say.h"

extern "C" int android_get_control_socket(const char* name) {
  Say("socket %s", name);
  return CONTROL_SOCKET;
}
