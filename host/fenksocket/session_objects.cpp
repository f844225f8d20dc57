// References, as they come and go in frames.
#include <utility>

#include "host/fenksocket/session.h"

namespace fenk {

Session::ReceivedObjects::~ReceivedObjects() {
  for (std::size_t i = 0; i < objects.size(); ++i) {
    if (standIn[i]) ObjectRelease(objects[i]);
  }
}

Session::SentObjects::~SentObjects() {
  if (!sent) {
    for (std::size_t i = 0; i < idCount; ++i) session.exports.Remove(ids[i]);
  }
  for (std::size_t i = 0; i < standInCount; ++i) ObjectRelease(standIns[i]);
}

bool Session::SentObjects::Add(const Object& object, wire::ObjectReference& reference) {
  if (object.invoke == nullptr) {
    reference = {wire::kNull, 0, 0};
    return true;
  }
  if (session.IsOwnStandIn(object)) {
    reference = {wire::kReceiversObject, 0, static_cast<StandIn*>(object.context)->Id()};
    standIns[standInCount++] = object;
    return true;
  }
  reference = {wire::kSendersObject, 0, session.exports.Add(object)};
  if (reference.id == 0) {
    ObjectRelease(object);
    return false;
  }
  ids[idCount++] = reference.id;
  return true;
}

bool Session::IsOwnStandIn(const Object& object) const {
  return object.invoke == InvokeStandIn && static_cast<StandIn*>(object.context)->session.get() == this;
}

Object Session::MakeStandIn(std::unique_ptr<Receipt> receipt) {
  auto standIn = std::make_unique<StandIn>();
  standIn->session = shared_from_this();
  standIn->receipt = std::move(receipt);
  return {InvokeStandIn, standIn.release()};
}

Object Session::PeerRoot() {
  try {
    return MakeStandIn(nullptr);
  } catch (const std::bad_alloc&) {
    return {nullptr, nullptr};
  }
}

bool Session::TakeImport() {
  if (!imports.Take(1)) return false;
  if (user->importedObjects.Take(1)) return true;
  imports.Give(1);
  return false;
}

void Session::GiveImport() {
  imports.Give(1);
  user->importedObjects.Give(1);
}

// A stand-in for a reference that came. Null at the limit; then the reference has been given back.
Object Session::Import(uint64_t id) {
  auto receipt = std::make_unique<Receipt>(id);
  if (!TakeImport()) {
    outbox.GiveBack(std::move(receipt));
    return {nullptr, nullptr};
  }
  try {
    return MakeStandIn(std::move(receipt));
  } catch (const std::bad_alloc&) {
    GiveImport();
    throw;
  }
}

// Null, or how the references break the protocol.
const char* Session::Receive(std::span<const wire::ObjectReference> references, ReceivedObjects& received) {
  for (std::size_t i = 0; i < references.size(); ++i) {
    const wire::ObjectReference& reference = references[i];
    Object& object = received.objects[i];
    object = {nullptr, nullptr};
    if (reference.kind == wire::kSendersObject) {
      object = Import(reference.id);
      received.standIn[i] = object.invoke != nullptr;
      if (object.invoke == nullptr) received.refused = true;
    } else if (reference.kind == wire::kReceiversObject && reference.id == wire::kRootId) {
      object = root;
    } else if (reference.kind == wire::kReceiversObject) {
      received.own[i] = exports.Find(reference.id);
      if (!received.own[i]) return "reference to an object that it does not hold";
      object = received.own[i]->object;
    }
  }
  return nullptr;
}

}  // namespace fenk
