// libcutils: the sockets that init makes for a service.
#ifndef KESD_PLATFORM_CONTROL_SOCKET_H_
#define KESD_PLATFORM_CONTROL_SOCKET_H_

// The descriptor of the socket that init made for this service under `name`; negative when there is none.
extern "C" int android_get_control_socket(const char* name);

#endif  // KESD_PLATFORM_CONTROL_SOCKET_H_
