#include "host/fenksocket/test_support.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "tests/log_stand_in.h"

namespace fenk::test {
namespace {

Watched<std::vector<std::string>>& Lines() {
  static auto* const lines = new Watched<std::vector<std::string>>;  // threads may log until the very end
  return *lines;
}

std::size_t Count(const std::vector<std::string>& lines, const std::string& part) {
  return static_cast<std::size_t>(std::count_if(
      lines.begin(), lines.end(), [&](const std::string& line) { return line.find(part) != std::string::npos; }));
}

// Not open when that fails.
UniqueFd Addressed(int (*operation)(int, const sockaddr*, socklen_t), const std::string& path, int type) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  UniqueFd addressed(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
  if (operation(addressed.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) addressed.Reset(-1);
  return addressed;
}

}  // namespace

int32_t CountedObject::Invoke(void* context, uint32_t op, ObjectArg* args, uint32_t counts) {
  CountedObject& object = *static_cast<CountedObject*>(context);
  switch (ObjectOperation(op)) {
    case OBJECT_OP_RETAIN:
      object.references.Update([](int& n) { ++n; });
      return OBJECT_OK;
    case OBJECT_OP_RELEASE:
      object.references.Update([](int& n) { --n; });
      return OBJECT_OK;
    default:
      object.invocations.Update([](int& n) { ++n; });
      return object.method ? object.method(op, args, counts) : OBJECT_OK;
  }
}

Bytes& Bytes::Little(uint64_t v, int size) {
  for (int i = 0; i < size; ++i) data.push_back(static_cast<char>(v >> 8 * i));
  return *this;
}

Bytes& Bytes::Text(const std::string& text) {
  data += text;
  while (data.size() % 8 != 0) data.push_back('\0');
  return *this;
}

Bytes& Bytes::operator+=(const Bytes& other) {
  data += other.data;
  return *this;
}

Bytes Header(uint32_t length, uint16_t type, uint64_t serial) {
  return Bytes().U32(length).U16(type).U16(0).U64(serial);
}

Bytes Hello() { return Header(32, 1, 0).U32(0x4B4E4546).U16(1).U16(0).U32(64 << 20).U32(0); }

Bytes Invoke(uint64_t serial, uint64_t target, uint32_t op, uint32_t counts, const Bytes& rest) {
  Bytes frame = Header(static_cast<uint32_t>(32 + rest.data.size()), 2, serial).U64(target).U32(op).U32(counts);
  return frame += rest;
}

Bytes Reply(uint64_t serial, int32_t result, uint32_t counts, const Bytes& rest) {
  Bytes frame =
      Header(static_cast<uint32_t>(24 + rest.data.size()), 3, serial).U32(static_cast<uint32_t>(result)).U32(counts);
  return frame += rest;
}

Bytes Release(uint64_t id) { return Header(24, 4, 0).U64(id); }

Bytes Reference(uint32_t kind, uint64_t id) { return Bytes().U32(kind).U32(0).U64(id); }

uint32_t RawFrame::U32(std::size_t offset) const { return static_cast<uint32_t>(U64(offset)); }

uint64_t RawFrame::U64(std::size_t offset) const {
  uint64_t value = 0;
  if (offset < body.size()) std::memcpy(&value, body.data() + offset, std::min(body.size() - offset, sizeof(value)));
  return value;
}

bool RawPeer::Send(const Bytes& bytes) const {
  return send(socket.Get(), bytes.data.data(), bytes.data.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(bytes.data.size());
}

bool RawPeer::Read(char* bytes, std::size_t size) const {
  while (size != 0) {
    pollfd readable{socket.Get(), POLLIN, 0};
    if (poll(&readable, 1, std::chrono::milliseconds(kPatience).count()) != 1) return false;
    const ssize_t received = recv(socket.Get(), bytes, size, 0);
    if (received <= 0) return false;
    bytes += received;
    size -= static_cast<std::size_t>(received);
  }
  return true;
}

RawFrame RawPeer::Receive() const {
  char header[16];
  RawFrame frame{};
  if (!Read(header, sizeof(header))) return frame;
  uint32_t length;
  std::memcpy(&length, header, sizeof(length));
  std::memcpy(&frame.type, header + 4, sizeof(frame.type));
  std::memcpy(&frame.serial, header + 8, sizeof(frame.serial));
  frame.body.resize(length - sizeof(header));
  if (!Read(frame.body.data(), frame.body.size())) frame.type = 0;
  return frame;
}

bool RawPeer::AwaitEnd() const {
  char ignored[4096];
  pollfd readable{socket.Get(), POLLIN, 0};
  while (poll(&readable, 1, std::chrono::milliseconds(kPatience).count()) == 1) {
    if (recv(socket.Get(), ignored, sizeof(ignored), 0) <= 0) return true;
  }
  return false;
}

UniqueFd ConnectTo(const std::string& path) { return Addressed(connect, path, SOCK_STREAM); }

UniqueFd BindTo(const std::string& path, int type) { return Addressed(bind, path, type); }

SocketPair::SocketPair() {
  int fds[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) abort();
  one.Reset(fds[0]);
  other.Reset(fds[1]);
}

ListeningSocket::ListeningSocket() {
  char name[] = "/tmp/fenksocket.XXXXXX";
  if (mkdtemp(name) == nullptr) abort();
  directory = name;
  path = directory + "/socket";
  socket = BindTo(path);
  if (!socket.IsOpen()) abort();
}

ListeningSocket::~ListeningSocket() {
  unlink(path.c_str());
  rmdir(directory.c_str());
}

std::size_t CountLines(const std::string& part) { return Count(Lines().Get(), part); }

bool AwaitLines(const std::string& part, std::size_t count) {
  return Lines().Await([&](const auto& lines) { return Count(lines, part) >= count; });
}

void ForgetLines() {
  Lines().Update([](auto& lines) { lines.clear(); });
}

}  // namespace fenk::test

void testing_log::Write(char level, const char* tag, const char* text) {
  fenk::test::Lines().Update([&](auto& lines) { lines.push_back(std::string(1, level) + " " + tag + ": " + text); });
}
