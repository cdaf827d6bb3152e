#include "engine_run.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "engine_content.h"

namespace vu::fuzz {

namespace {

constexpr int kDeepest = 3;
constexpr std::size_t kMostCommands = 300;
const char* const kStores[] = {"embedded:fuzz", "embedded:fuzz", "embedded:other"};

}  // namespace

void Run::all() {
  for (std::size_t i = 0; i < kMostCommands && !in_.empty(); ++i) command(0);
  drive();
  for (Handle*& handle : current_) {
    if (handle != nullptr) close(*handle);
  }
  drive();
  for (Handle*& handle : current_) {
    if (handle != nullptr) free(handle);
  }
}

Handle& Run::handle(std::size_t number) {
  Handle*& handle = current_[number];
  if (handle != nullptr) return *handle;
  handles_.push_back(Handle{});
  handle = &handles_.back();
  handle->run = this;
  handle->model = &model_of(number);
  const auto wake = [](void* user) {
    Handle& woken = *static_cast<Handle*>(user);
    check(!woken.told, "a handle was woken twice");
    woken.told = true;
  };
  char error[100] = "";
  handle->raw = vu_platform_open(kStores[number], nullptr, wake, handle, error, sizeof error);
  check(handle->raw != nullptr, "a store cannot be opened");
  if (handles_of(*handle->model)++ == 0) vu_platform_advance_clock(handle->raw, 0);
  return *handle;
}

void Run::close(Handle& handle) {
  vu_platform_close(handle.raw);
  if (handle.closed) return;
  handle.closed = true;
  for (const auto& request : handle.waiting) request->closed = true;
  handle.model->close(&handle);
  // Ends that were not delivered yet tell of it, too.
  for (const Slot& slot : slots_) {
    if (slot.handle == &handle && slot.subscription) slot.subscription->closed = true;
  }
  if (--handles_of(*handle.model) == 0) handle.model->forget();
}

void Run::free(Handle*& handle) {
  close(*handle);
  vu_platform_free(handle->raw);
  handle->freed = true;
  handle->waiting.clear();
  handle = nullptr;
}

bool Run::deliver(Handle& handle, std::uint32_t most) {
  if (handle.delivering) {
    check(vu_platform_deliver(handle.raw, most) == 1, "a delivery inside another says no");
    return true;
  }
  handle.delivering = true;
  handle.told = true;
  const bool more = vu_platform_deliver(handle.raw, most) != 0;
  handle.delivering = false;
  if (handle.freed) return false;
  handle.told = more;
  return more;
}

void Run::drive() {
  for (bool more = true; more;) {
    more = false;
    for (std::size_t i = 0; i < std::size(current_); ++i) {
      // Once at least: what has ended is noticed here.
      while (current_[i] != nullptr && deliver(*current_[i], 1000)) {
      }
    }
    for (const Handle* const handle : current_) {
      if (handle != nullptr && handle->told) more = true;
    }
  }
  swept_ = true;
  for (const Slot& slot : slots_) {
    if (slot.handle->freed || !slot.subscription) continue;
    check(slot.subscription->expected.empty(), "an event was not delivered");
    check(!slot.subscription->ended, "an end was not delivered");
  }
  for (const Handle* const handle : current_) {
    if (handle == nullptr) continue;
    check(handle->waiting.empty(), "a reply was not delivered");
    check(vu_platform_next_due(handle->raw) == -1, "something is due after a full delivery");
  }
}

void Run::on_reply(void*, const vu_mom_reply* reply, void* privdata) {
  Slot& slot = *static_cast<Slot*>(privdata);
  slot.handle->run->arrived(slot, *reply);
}

std::int32_t Run::on_stream(void*, const vu_mom_reply* reply, void* privdata) {
  on_reply(nullptr, reply, privdata);
  return 0;
}

void Run::arrived(Slot& slot, const vu_mom_reply& reply) {
  Handle& handle = *slot.handle;
  check(!handle.freed, "a delivery to a freed handle");
  check(handle.delivering && !in_command_, "a delivery from elsewhere");
  check(vu_platform_is_record(reinterpret_cast<std::intptr_t>(&reply)) != 0, "no record");
  const auto& details = *vu_platform_details_of(&reply);
  check((details.status == VU_MOM_OK) == (details.error[0] == '\0'), "status and error");
  if (tells()) {
    std::fprintf(stderr, "arrived: %s, type %d, end mark %u, tag %u\n",
                 slot.subscription ? "event" : "reply", static_cast<int>(reply.type_code),
                 static_cast<unsigned>(reply.end_mark), static_cast<unsigned>(details.tag));
  }
  if (slot.subscription) {
    event(slot, reply, details);
  } else {
    answer(slot, reply, details);
  }
  if (slot.commands && depth_ < kDeepest && !in_.empty()) {
    ++depth_;
    command(depth_);
    --depth_;
  }
}

void Run::event(Slot& slot, const vu_mom_reply& reply, const vu_platform_details& details) {
  Subscription& subscription = *slot.subscription;
  check(reply.end_mark == 0, "an event with an end mark");
  if (reply.type_code == VU_MOM_TYPE_SUBSCRIPTION_ENDED) {
    check(subscription.ended, "a subscription ended by itself");
    check(subscription.expected.empty(), "a subscription ended before its events");
    check(details.status == (subscription.closed ? VU_MOM_FAILED : VU_MOM_OK), "status of an end");
    check(details.tag == subscription.field && reply.data == nullptr, "an end");
    check_names(details, subscription.db, nullptr);
    subscription.ended = false;
    check(slot.handle->subscriptions-- > 0, "a subscription ended twice");
    return;
  }
  // Events of one object come in the order of its changes.
  const std::string identity = identity_of(details);
  auto& expected = subscription.expected;
  const auto found = std::find_if(expected.begin(), expected.end(),
                                  [&](const Event& one) { return one.name->identity == identity; });
  check(found != expected.end(), "an event that nothing has caused");
  const Event wanted = *found;
  expected.erase(found);
  check(reply.type_code == wanted.type_code, "an event of another type");
  check(details.tag == wanted.tag, "an event of another field");
  check(details.status == VU_MOM_OK, "an event with an error");
  check_names(details, subscription.db, wanted.name);
  check_content(content_of(reply), *wanted.content, wanted.unordered, "content of an event");
}

void Run::answer(Slot& slot, const vu_mom_reply& reply, const vu_platform_details& details) {
  Handle& handle = *slot.handle;
  check(!handle.waiting.empty() && handle.waiting.front() == slot.request,
        "replies come in another order than the commands, or twice");
  Request& request = *slot.request;
  if (request.on_level && reply.end_mark == 0) return one_of_level(request, reply, details);
  check(reply.end_mark == request.end_mark, "end mark");
  check(details.tag == 0, "a reply with a field");
  if (request.scan) {
    check(reply.type_code == 0, "type code of the end of a scan");
    check_names(details, request.db, nullptr);
  } else {
    check_names(details, request.db, request.name);
  }
  if (request.closed || request.reply.failed) {
    check(details.status == VU_MOM_FAILED && reply.data == nullptr, "a reply that failed");
    check(reply.type_code == 0, "type code of a failure");
  } else {
    check(details.status == VU_MOM_OK, "a reply has an error");
    check(reply.type_code == request.reply.type_code, "type code of a reply");
    check_content(content_of(reply), request.reply.content, request.reply.unordered,
                  "content of a reply");
    if (request.on_level) check(details.count == request.count, "count of a reply");
    check(request.identities.empty(), "an object has no reply");
    if (request.scan) check(request.scan->throughout.empty(), "a scan has missed an object");
  }
  handle.waiting.pop_front();
}

void Run::one_of_level(Request& request, const vu_mom_reply& reply,
                       const vu_platform_details& details) {
  check(details.status == VU_MOM_OK, "a reply of a level has an error");
  check(details.db == request.db && details.key != nullptr, "a reply of a level");
  const std::string identity = identity_of(details);
  if (!request.scan) {
    check(reply.type_code == 0 && reply.data == nullptr, "a reply of a level");
    check(request.identities.erase(identity) == 1, "a reply for another object");
    return;
  }
  const auto wanted = slot_model(request).scanned(*request.scan, identity, request.keys_only);
  check(wanted.has_value(), "a scan found what is not there");
  check(request.count == 0 || identity > request.last, "a scan goes back");
  check(reply.type_code == wanted->type_code, "type code of a scan");
  check_content(content_of(reply), wanted->content, wanted->unordered, "content of a scan");
  request.scan->throughout.erase(identity);
  request.last = identity;
  ++request.count;
}

Model& Run::slot_model(const Request& request) {
  for (const Handle& handle : handles_) {
    if (!handle.waiting.empty() && handle.waiting.front().get() == &request) return *handle.model;
  }
  fail("a reply of an unknown command");
}

}  // namespace vu::fuzz
