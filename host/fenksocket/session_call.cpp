// This end invokes the peer's objects.
#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "host/fenksocket/session.h"

namespace fenk {

int32_t Session::InvokeStandIn(void* context, uint32_t op, ObjectArg* args, uint32_t counts) {
  StandIn* const standIn = static_cast<StandIn*>(context);
  if (ObjectOperation(op) == OBJECT_OP_RETAIN) {
    standIn->references.fetch_add(1, std::memory_order_relaxed);
    return OBJECT_OK;
  }
  if (ObjectOperation(op) == OBJECT_OP_RELEASE) {
    if (standIn->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return OBJECT_OK;
    const std::unique_ptr<StandIn> last(standIn);
    if (last->receipt) {
      last->session->GiveImport();
      last->session->outbox.GiveBack(std::move(last->receipt));
    }
    return OBJECT_OK;
  }
  try {
    return standIn->session->CallPeer(standIn->Id(), op, args, counts);
  } catch (const std::bad_alloc&) {
    return kErrorLimit;
  }
}

int32_t Session::CallPeer(uint64_t target, uint32_t op, ObjectArg* args, uint32_t counts) {
  if (counts >> 16 != 0) return OBJECT_ERROR_INVALID;
  const std::span inputBuffers(args, wire::InputBuffers(counts));
  const std::span outputBuffers(inputBuffers.data() + inputBuffers.size(), wire::OutputBuffers(counts));
  const std::span inputObjects(outputBuffers.data() + outputBuffers.size(), wire::InputObjects(counts));
  const std::span outputObjects(inputObjects.data() + inputObjects.size(), wire::OutputObjects(counts));
  for (ObjectArg& arg : outputObjects) arg.object = {nullptr, nullptr};
  const BudgetShare place(user->calls, 1);
  if (!place.IsTaken()) return kErrorLimit;
  const WaiterLease lease(*this);
  Call call{.serial = lastSerial.fetch_add(1) + 1, .counts = counts, .args = args, .waiter = lease.Get()};
  const Clock::time_point deadline = Clock::now() + limits.answerDeadline;
  wire::FrameBuilder frame(wire::kInvoke, call.serial, IsNested() ? wire::kNested : uint16_t{0});
  frame.Put(wire::InvokeBody{target, op, counts});
  for (const ObjectArg& arg : inputBuffers) frame.Put(arg.buffer.size);
  for (const ObjectArg& arg : outputBuffers) frame.Put(arg.buffer.size);
  {
    SentObjects sent(*this);
    for (const ObjectArg& arg : inputObjects) {
      if (arg.object.invoke != nullptr) ObjectRetain(arg.object);  // it is only lent
      wire::ObjectReference reference;
      if (!sent.Add(arg.object, reference)) return over ? kErrorDisconnected : kErrorLimit;
      frame.Put(reference);
    }
    for (const ObjectArg& arg : inputBuffers) frame.PutBytes(arg.buffer.ptr, arg.buffer.size);
    if (!frame.Finish(peerMaxFrameBytes)) return kErrorLimit;
    sent.sent = SendCall(frame, call, deadline);
  }
  if (Wait([&call] { return call.done.load(); }, deadline, -1, call.waiter) == WaitResult::kTimedOut) {
    Fail(call, kErrorTimedOut);
    End(EndKind::kDeadline, "did not answer an invocation in time");
  }
  // Whoever took the call out of the table may still be writing its outputs.
  while (!call.done) call.waiter.event.Wait();
  return call.result;
}

// Whether this thread is running an invocation of the peer.
bool Session::IsNested() {
  if (depth == 0) return false;
  const kesd::MutexLock lock(mutex);
  return reader == std::this_thread::get_id();
}

// False when the peer has not got the call, which is then done.
bool Session::SendCall(wire::FrameBuilder& frame, Call& call, Clock::time_point deadline) {
  {
    const kesd::MutexLock lock(mutex);
    if (over) {
      call.done = true;
      return false;
    }
    calls.push_back(&call);
  }
  const Outbox::Result result = outbox.Send(frame.Parts(), deadline);
  if (result == Outbox::Result::kSent) return true;
  const bool timedOut = result == Outbox::Result::kTimedOut;
  Fail(call, timedOut ? kErrorTimedOut : kErrorDisconnected);
  // When the stream does not take anything any more, there may still be something to be read from it.
  if (timedOut) End(EndKind::kDeadline, "did not take a frame in time");
  return false;
}

// True when the caller has to complete the call from now on.
bool Session::TakeCall(const Call& call) {
  const auto found = std::find(calls.begin(), calls.end(), &call);
  if (found == calls.end()) return false;
  calls.erase(found);
  return true;
}

void Session::Fail(Call& call, int32_t result) {
  const kesd::MutexLock lock(mutex);
  if (!TakeCall(call)) return;
  call.result = result;
  call.done = true;
}

const char* Session::ServeReply(const Frame& frame) {
  wire::Reply reply;
  if (const char* wrong = wire::Decode(frame.bytes, reply)) return wrong;
  Call* call = nullptr;
  {
    const kesd::MutexLock lock(mutex);
    if (over) return nullptr;
    const auto found =
        std::find_if(calls.begin(), calls.end(), [&](const Call* c) { return c->serial == reply.serial; });
    if (found == calls.end()) return "REPLY to no invocation";
    call = *found;
    calls.erase(found);
  }
  const char* wrong = nullptr;
  bool outOfMemory = false;
  try {
    wrong = TakeOutputs(reply, *call);
  } catch (const std::bad_alloc&) {
    outOfMemory = true;
  }
  Waiter& waiter = call->waiter;
  {
    const kesd::MutexLock lock(mutex);
    call->done = true;  // from here on it is its caller's alone
  }
  waiter.event.Set();  // without the lock, which the woken thread takes; it watches no descriptor
  if (outOfMemory) throw std::bad_alloc();
  return wrong;
}

// Sets the call's result. Null, or how the reply breaks the protocol.
const char* Session::TakeOutputs(const wire::Reply& reply, Call& call) {
  const uint32_t outputs = reply.result == OBJECT_OK ? wire::OutputCounts(call.counts) : 0;
  if (reply.counts != outputs) return "REPLY with other outputs than the invocation's";
  ObjectArg* const buffers = call.args + wire::InputBuffers(call.counts);
  ObjectArg* const objects = buffers + wire::OutputBuffers(call.counts) + wire::InputObjects(call.counts);
  for (uint32_t i = 0; i < wire::OutputBuffers(outputs); ++i) {
    if (reply.outputs[i].size() > buffers[i].buffer.size) return "output buffer larger than its room";
  }
  ReceivedObjects received;
  const std::size_t objectCount = wire::OutputObjects(outputs);
  if (const char* wrong = Receive(std::span(reply.objects).first(objectCount), received)) return wrong;
  call.result = received.refused ? kErrorLimit : reply.result;
  if (call.result != OBJECT_OK) return nullptr;
  for (uint32_t i = 0; i < wire::OutputBuffers(outputs); ++i) {
    const std::span<const std::byte> bytes = reply.outputs[i];
    if (!bytes.empty()) std::memcpy(buffers[i].buffer.ptr, bytes.data(), bytes.size());
    buffers[i].buffer.size = bytes.size();
  }
  for (std::size_t i = 0; i < objectCount; ++i) {
    objects[i].object = received.objects[i];
    // Either way the caller gets one reference.
    if (!std::exchange(received.standIn[i], false) && objects[i].object.invoke != nullptr) {
      ObjectRetain(objects[i].object);
    }
  }
  return nullptr;
}

}  // namespace fenk
