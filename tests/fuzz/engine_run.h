// A run of the embedded engine beside the model: bytes are commands of up to three handles on two
// stores, and every reply, event, status and wake-up is compared.
//
// Commands come between deliveries and from inside callbacks, handles are closed and freed
// wherever that is allowed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "input.h"
#include "store_messages.h"
#include "store_model.h"
#include "vu_platform.h"

namespace vu::fuzz {

// A command that waits for its reply, or its replies.
struct Request {
  std::int32_t db = 0;
  const Name* name = nullptr;  // that the reply names
  std::uint32_t end_mark = 0;
  bool on_level = false;
  bool closed = false;  // its handle was, before this was complete
  Reply reply;
  std::set<std::string> identities;  // on a level: not delivered yet
  std::int64_t count = 0;            // on a level: of the objects
  std::shared_ptr<Scan> scan;
  bool keys_only = false;
  std::string last;  // of a scan: the identity delivered last
};

class Run;

struct Handle {
  Run* run;
  vu_mom_handle* raw;
  Model* model;
  bool closed = false;
  bool freed = false;
  bool told = false;
  bool delivering = false;
  std::deque<std::shared_ptr<Request>> waiting;
  std::size_t subscriptions = 0;  // whose end was not delivered
};

// What a callback gets as its privdata.
struct Slot {
  Handle* handle;
  std::shared_ptr<Request> request;
  std::shared_ptr<Subscription> subscription;
  bool commands;  // the callback issues one
};

class Run {
 public:
  explicit Run(Input& input) : in_(input) {}

  void all();

 private:
  // Handles: engine_run.cpp.

  Model& model_of(std::size_t number) { return number == 2 ? models_[1] : models_[0]; }
  std::size_t& handles_of(const Model& model) { return handles_on_[&model == &models_[1]]; }

  Handle& handle(std::size_t number);
  void close(Handle& handle);
  void free(Handle*& handle);

  // Returns whether more is waiting.
  bool deliver(Handle& handle, std::uint32_t most);

  // Everything that waits, on all handles, until there is nothing.
  void drive();

  // What arrives: engine_run.cpp.

  static void on_reply(void*, const vu_mom_reply* reply, void* privdata);
  static std::int32_t on_stream(void*, const vu_mom_reply* reply, void* privdata);
  void arrived(Slot& slot, const vu_mom_reply& reply);
  void event(Slot& slot, const vu_mom_reply& reply, const vu_platform_details& details);
  void answer(Slot& slot, const vu_mom_reply& reply, const vu_platform_details& details);
  void one_of_level(Request& request, const vu_mom_reply& reply,
                    const vu_platform_details& details);
  Model& slot_model(const Request& request);

  // Commands: engine_commands.cpp and engine_levels.cpp.

  Slot& slot(Handle& handle) {
    slots_.push_back({&handle, nullptr, nullptr, (options_ & 0x40) != 0});
    return slots_.back();
  }

  // Calls the store and says whether the command was accepted, as it must be.
  template <typename Call>
  bool accepted(Handle& handle, Call call) {
    in_command_ = true;
    const std::int32_t status = call();
    in_command_ = false;
    check(status == (handle.closed ? VU_MOM_FAILED : VU_MOM_OK), "status of a command");
    return status == VU_MOM_OK;
  }

  void check_told(const Handle& handle) {
    if (!handle.waiting.empty()) check(handle.told, "nobody was told of a reply");
  }

  // A command with one reply, or none where no callback is given.
  template <typename Ideal, typename Real>
  void ask(Handle& handle, const Known* message, Ideal ideal, Real real) {
    const bool wanted = (options_ & 4) == 0;
    Slot& made = slot(handle);
    vu_mom_reply_cb const callback = wanted ? &on_reply : nullptr;
    if (!accepted(handle, [&] { return real(callback, wanted ? &made : nullptr); })) return;
    const Reply reply = ideal();
    if (!wanted) return;
    made.request = std::make_shared<Request>();
    made.request->db = message == nullptr ? db_of_nothing_ : db_;
    made.request->name = message == nullptr ? nullptr : message->name;
    made.request->reply = reply;
    handle.waiting.push_back(made.request);
    check_told(handle);
  }

  // A command that takes one message and nothing else.
  template <typename Ideal, typename Real>
  void ask_about(Handle& handle, const Known& message, Ideal ideal, Real real) {
    ask(
        handle, &message, [&] { return (handle.model->*ideal)(db_, message); },
        [&](auto cb, void* p) { return real(handle.raw, db_, message.address, cb, p); });
  }

  // A command on a level.
  template <typename Ideal, typename Real>
  void ask_all(Handle& handle, const Known& message, std::uint32_t end_mark, Ideal ideal,
               Real real) {
    const bool wanted = (options_ & 4) == 0;
    Slot& made = slot(handle);
    vu_mom_reply_cb const callback = wanted ? &on_reply : nullptr;
    if (!accepted(handle, [&] { return real(callback, wanted ? &made : nullptr); })) return;
    const Model::Acted acted = ideal();
    if (!wanted) return;
    made.request = std::make_shared<Request>();
    made.request->db = db_;
    made.request->name = message.name;
    made.request->on_level = true;
    made.request->end_mark = end_mark;
    made.request->reply.failed = !acted.has_value();
    if (acted) {
      made.request->identities.insert(acted->begin(), acted->end());
      made.request->count = static_cast<std::int64_t>(acted->size());
    }
    handle.waiting.push_back(made.request);
    check_told(handle);
  }

  void scan(Handle& handle, const Known& message, bool keys_only);
  std::uint32_t level();
  double score();
  std::int64_t lifetime(std::int32_t& seconds, std::int32_t& microseconds);

  // Field numbers of the type, in some order, some of them twice.
  std::vector<std::size_t> tags(const Known& message);
  static std::set<std::uint32_t> as_set(const std::vector<std::size_t>& tags);

  const Group& group() { return in_.pick_of(groups()); }
  const Known& message() { return in_.pick_of(group()); }

  // Subscriptions that come or go hear what the store has noticed by then. Returns whether
  // it has noticed everything.
  bool sweep() {
    if (!swept_ && depth_ == 0) drive();
    return swept_;
  }

  void subscribe(Handle& handle, const Known& message, bool fields);
  void unsubscribe(Handle& handle, const Known& message, bool fields);
  void members(Handle& handle, bool add);
  void bad_input(Handle& handle, const Known& message);
  void advance(Handle& handle);
  void values(int op, Handle& handle, const Known& message);
  void hashes(int op, Handle& handle, const Known& message);
  void lists(int op, Handle& handle, const Known& message);
  void sets(int op, Handle& handle, const Known& message);
  void sorted_sets(int op, Handle& handle, const Known& message);
  void levels(int op, Handle& handle, const Known& message);
  void others(int op, Handle& handle, std::size_t number, const Known& message);
  void command(int depth);

  Input& in_;
  Model models_[2] = {Model(types()), Model(types())};
  std::size_t handles_on_[2] = {0, 0};
  std::deque<Handle> handles_;  // all there ever were
  Handle* current_[3] = {nullptr, nullptr, nullptr};
  std::deque<Slot> slots_;
  std::uint8_t options_ = 0;
  std::int32_t db_ = 0;
  std::int32_t db_of_nothing_ = 0;
  int depth_ = 0;
  bool in_command_ = false;
  bool swept_ = true;
};

}  // namespace vu::fuzz
