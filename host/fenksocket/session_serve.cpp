// The peer invokes this end's objects.
#include <algorithm>
#include <new>
#include <utility>

#include "host/fenksocket/session.h"

namespace fenk {
namespace {

// Invocations that wait until the running one is over; a peer's threads rarely make as many at once.
constexpr std::size_t kMaxDeferred = 64;

constexpr uint64_t RoundedUp(uint64_t size) {
  return (size + wire::kAlignment - 1) / wire::kAlignment * wire::kAlignment;
}

// Zeroed memory for all output buffers. False when they would exceed `maxBytes` or memory ran out.
bool AllocateOutputs(const wire::Invocation& invocation, uint32_t maxBytes, std::unique_ptr<std::byte[]>& bytes) {
  uint64_t total = 0;
  for (uint32_t i = 0; i < wire::OutputBuffers(invocation.counts); ++i) {
    // Neither sum can overflow: no capacity is above `maxBytes`, and the total is not either.
    if (invocation.capacities[i] > maxBytes || RoundedUp(invocation.capacities[i]) > maxBytes - total) return false;
    total += RoundedUp(invocation.capacities[i]);
  }
  if (total == 0) return true;
  bytes.reset(new (std::nothrow) std::byte[total]());
  return bytes != nullptr;
}

}  // namespace

void Session::ServeFrame(const Frame& frame) {
  const char* wrong = nullptr;
  if (!greeted) {
    wrong = frame.type == wire::kHello ? ServeHello(frame) : "no HELLO at the beginning";
  } else if (frame.type == wire::kInvoke) {
    wrong = ServeInvocation(frame);
  } else if (frame.type == wire::kReply) {
    wrong = ServeReply(frame);
  } else if (frame.type == wire::kRelease) {
    wrong = ServeRelease(frame);
  } else {
    wrong = "frame of unknown type";
  }
  if (wrong != nullptr) End(EndKind::kViolation, wrong);
  const kesd::MutexLock lock(mutex);
  if (frameWatchers == 0) return;
  for (Waiter* waiter = waiting; waiter != nullptr; waiter = waiter->next) {
    if (waiter->everyFrame) Signal(*waiter);
  }
}

const char* Session::ServeHello(const Frame& frame) {
  wire::HelloBody hello;
  if (const char* wrong = wire::Decode(frame.bytes, hello)) return wrong;
  greeted = true;
  peerMaxFrameBytes = hello.maxFrameBytes;
  return nullptr;
}

const char* Session::ServeRelease(const Frame& frame) {
  wire::FrameReader ids(frame.bytes);
  if (const char* wrong = wire::DecodeRelease(ids)) return wrong;
  uint64_t id;
  while (ids.Take(id)) {
    if (!exports.Remove(id)) return "RELEASE of an object that it does not hold";
  }
  return nullptr;
}

const char* Session::ServeInvocation(const Frame& frame) {
  const bool tooMany = deferredCount >= kMaxDeferred;
  const auto serve = [&](Incoming& incoming) {
    incoming.frame = frame;
    return Prepare(incoming);
  };
  if (depth == 0) {
    Incoming incoming;
    if (const char* wrong = serve(incoming)) return wrong;
    Answer(incoming);
    return nullptr;
  }
  std::list<Incoming> next(1);
  Incoming& incoming = next.front();
  if (const char* wrong = serve(incoming)) return wrong;
  if (!incoming.invocation.nested && !tooMany) {
    const kesd::MutexLock lock(mutex);
    if (over) return nullptr;
    deferred.splice(deferred.end(), next);
    ++deferredCount;
    return nullptr;
  }
  if (!incoming.invocation.nested && incoming.refusal == OBJECT_OK) incoming.refusal = kErrorLimit;
  Answer(incoming);
  return nullptr;
}

// Takes in what the invocation names, so that nothing that follows in the stream can take it away. Null, or how the
// invocation breaks the protocol.
const char* Session::Prepare(Incoming& incoming) {
  wire::Invocation& invocation = incoming.invocation;
  if (const char* wrong = wire::Decode(incoming.frame.bytes, invocation)) return wrong;
  if (ObjectOperation(invocation.op) >= OBJECT_OP_RETAIN) return "retain or release as an invocation";
  incoming.target = root;
  if (invocation.target != wire::kRootId) {
    incoming.own = exports.Find(invocation.target);
    if (!incoming.own) return "invocation of an object that it does not hold";
    incoming.target = incoming.own->object;
  }
  const std::span references = std::span(invocation.objects).first(wire::InputObjects(invocation.counts));
  if (const char* wrong = Receive(references, incoming.inputs)) return wrong;
  if (invocation.counts >> 16 != 0 || incoming.target.invoke == nullptr) {
    incoming.refusal = OBJECT_ERROR_INVALID;
  } else if (incoming.inputs.refused || !AllocateOutputs(invocation, limits.maxFrameBytes, incoming.outputs)) {
    incoming.refusal = kErrorLimit;
  }
  for (std::size_t i = 0; i < references.size() && incoming.refusal == OBJECT_OK; ++i) {
    // An object relies on being able to invoke what it is lent.
    if (incoming.inputs.objects[i].invoke == nullptr) incoming.refusal = OBJECT_ERROR_INVALID;
  }
  return nullptr;
}

// True when there was one to serve now.
bool Session::ServeDeferred() {
  if (deferredCount == 0 || depth != 0) return false;
  std::list<Incoming> next;
  {
    const kesd::MutexLock lock(mutex);
    if (deferred.empty()) return false;
    next.splice(next.begin(), deferred, deferred.begin());
    --deferredCount;
  }
  Answer(next.front());
  return true;
}

void Session::Answer(Incoming& incoming) {
  int32_t result = incoming.refusal;
  {
    const kesd::MutexLock lock(mutex);
    if (over) return;
    if (depth >= limits.maxNestedCalls && result == OBJECT_OK) result = kErrorLimit;
    ++depth;
  }
  if (result == OBJECT_OK) result = Run(incoming);
  if (result != OBJECT_OK) Reply(incoming.invocation, result);
  {
    const kesd::MutexLock lock(mutex);
    --depth;
    if (!draining || depth != 0) return;
  }
  outbox.Settle(Clock::now() + limits.answerDeadline);  // the reply may be queued
  End(EndKind::kClosedHere, "closed here");
}

// OBJECT_OK when the reply has been sent.
int32_t Session::Run(Incoming& incoming) {
  const wire::Invocation& invocation = incoming.invocation;
  std::array<ObjectArg, 4 * wire::kMaxSlots> args;
  std::size_t slot = 0;
  for (uint32_t i = 0; i < wire::InputBuffers(invocation.counts); ++i) {
    const std::span<const std::byte> bytes = invocation.inputs[i];
    // Only read: the slot serves both directions.
    args[slot++].buffer = {bytes.empty() ? nullptr : const_cast<std::byte*>(bytes.data()), bytes.size()};
  }
  const ObjectArg* const outputBuffers = args.data() + slot;
  std::byte* memory = incoming.outputs.get();
  for (uint32_t i = 0; i < wire::OutputBuffers(invocation.counts); ++i) {
    const uint64_t capacity = invocation.capacities[i];
    args[slot++].buffer = {capacity == 0 ? nullptr : memory, capacity};
    if (capacity != 0) memory += RoundedUp(capacity);
  }
  for (uint32_t i = 0; i < wire::InputObjects(invocation.counts); ++i) args[slot++].object = incoming.inputs.objects[i];
  const ObjectArg* const outputObjects = args.data() + slot;
  for (uint32_t i = 0; i < wire::OutputObjects(invocation.counts); ++i) args[slot++].object = {nullptr, nullptr};

  const Object& target = incoming.target;
  const int32_t result =
      target.invoke(target.context, invocation.op, slot == 0 ? nullptr : args.data(), invocation.counts);
  if (result != OBJECT_OK) return result;
  return ReplyWithOutputs(invocation, outputBuffers, outputObjects) ? OBJECT_OK : kErrorLimit;
}

// False when the outputs exceed a limit; they have then been released.
bool Session::ReplyWithOutputs(const wire::Invocation& invocation, const ObjectArg* outputBuffers,
                               const ObjectArg* outputObjects) {
  wire::FrameBuilder frame(wire::kReply, invocation.serial);
  frame.Put(wire::ReplyBody{OBJECT_OK, wire::OutputCounts(invocation.counts)});
  std::array<uint64_t, wire::kMaxSlots> sizes;
  for (uint32_t i = 0; i < wire::OutputBuffers(invocation.counts); ++i) {
    sizes[i] = std::min(outputBuffers[i].buffer.size, invocation.capacities[i]);
    frame.Put(sizes[i]);
  }
  SentObjects sent(*this);
  bool allAdded = true;
  for (uint32_t i = 0; i < wire::OutputObjects(invocation.counts); ++i) {
    wire::ObjectReference reference;
    if (!sent.Add(outputObjects[i].object, reference)) allAdded = false;
    frame.Put(reference);
  }
  for (uint32_t i = 0; i < wire::OutputBuffers(invocation.counts); ++i) {
    frame.PutBytes(outputBuffers[i].buffer.ptr, sizes[i]);
  }
  if (!allAdded || !frame.Finish(peerMaxFrameBytes)) return false;
  sent.sent = SendReply(frame);
  return true;
}

void Session::Reply(const wire::Invocation& invocation, int32_t result) {
  wire::FrameBuilder frame(wire::kReply, invocation.serial);
  frame.Put(wire::ReplyBody{result, 0});
  if (frame.Finish(wire::kSmallestMaxFrameBytes)) (void)SendReply(frame);  // a peer that is gone needs none
}

bool Session::SendReply(wire::FrameBuilder& frame) {
  const Outbox::Result result = outbox.Send(frame.Parts(), Clock::now() + limits.answerDeadline);
  if (result == Outbox::Result::kTimedOut) End(EndKind::kDeadline, "did not take a reply in time");
  return result == Outbox::Result::kSent;
}

}  // namespace fenk
