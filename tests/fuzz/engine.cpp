// The embedded engine through the C interface, against the model: bytes are commands of up
// to three handles on two stores, and every reply, event, status and wake-up is compared.
//
// Commands come between deliveries and from inside callbacks, handles are closed and freed
// wherever that is allowed.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "input.h"
#include "message_bytes.h"
#include "store_messages.h"
#include "store_model.h"
#include "vu_platform.h"

namespace vu::fuzz {

namespace {

constexpr std::uint32_t kEverything = 0xFFFFFFFF;
constexpr int kDeepest = 3;
constexpr std::size_t kMostCommands = 300;
const char* const kStores[] = {"embedded:fuzz", "embedded:fuzz", "embedded:other"};

// Whether to tell what is done: VU_FUZZ_TELL=1 vu_replay_engine ...
const bool kTell = std::getenv("VU_FUZZ_TELL") != nullptr;

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

Content content_of(const vu_mom_reply& reply) {
  const auto address = reinterpret_cast<std::intptr_t>(reply.data);
  const auto read = [](vu_mom_message message) {
    check(vu_platform_message_is_live(message) != 0, "a delivered message is not live");
    return bytes_of(*reinterpret_cast<const google::protobuf::Message*>(message));
  };
  Content content;
  if (address == 0) return content;
  if (vu_platform_is_payload(address) == 0) return Content::of_message(read(address));
  const auto& payload = *static_cast<const vu_platform_payload*>(reply.data);
  switch (payload.kind) {
    case VU_PLATFORM_PAYLOAD_INTEGER:
      return Content::of_integer(payload.integer);
    case VU_PLATFORM_PAYLOAD_SCORE:
      return Content::of_score(payload.score);
    case VU_PLATFORM_PAYLOAD_HASH:
      content.form = Content::Form::kHash;
      content.messages.push_back(read(payload.messages[0]));
      for (std::uint32_t i = 0; i < payload.count; ++i) {
        content.tags.push_back(static_cast<std::uint32_t>(payload.tags[i]));
      }
      return content;
    case VU_PLATFORM_PAYLOAD_SCORED:
      content.form = Content::Form::kScored;
      content.scores.assign(payload.scores, payload.scores + payload.count);
      break;
    default:
      check(payload.kind == VU_PLATFORM_PAYLOAD_MESSAGES, "a payload of an unknown kind");
      content.form = Content::Form::kMessages;
  }
  for (std::uint32_t i = 0; i < payload.count; ++i)
    content.messages.push_back(read(payload.messages[i]));
  return content;
}

void show(const char* what, const Content& content) {
  std::fprintf(stderr, "%s: form %d, integer %lld, score %g\n", what,
               static_cast<int>(content.form), static_cast<long long>(content.integer),
               content.score);
  for (std::size_t i = 0; i < content.messages.size(); ++i) {
    std::fprintf(stderr, "  message");
    for (const char c : content.messages[i]) {
      std::fprintf(stderr, " %02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
    }
    if (i < content.scores.size()) std::fprintf(stderr, ", score %g", content.scores[i]);
    std::fprintf(stderr, "\n");
  }
  for (const std::uint32_t tag : content.tags) std::fprintf(stderr, "  tag %u\n", tag);
}

void check_content(Content found, const Content& wanted, bool unordered, const char* what) {
  Content sorted = wanted;
  if (unordered) {
    sorted.sort();
    found.sort();
  }
  if (found == sorted) return;
  show("found", found);
  show("wanted", sorted);
  fail(what);
}

std::string identity_of(const vu_platform_details& details) {
  if (details.key == nullptr) return {};
  return {static_cast<const char*>(static_cast<const void*>(details.key)), details.key_size};
}

void check_names(const vu_platform_details& details, std::int32_t db, const Name* name) {
  check(details.db == db, "a record of another database");
  check((details.key != nullptr) == (name != nullptr), "a record names an object, or does not");
  if (name != nullptr) check(identity_of(details) == name->identity, "a record of another object");
}

class Run {
 public:
  explicit Run(Input& input) : in_(input) {}

  void all() {
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

 private:
  // ---- Handles ----------------------------------------------------------------------------

  Model& model_of(std::size_t number) { return number == 2 ? models_[1] : models_[0]; }
  std::size_t& handles_of(const Model& model) { return handles_on_[&model == &models_[1]]; }

  Handle& handle(std::size_t number) {
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

  void close(Handle& handle) {
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

  void free(Handle*& handle) {
    close(*handle);
    vu_platform_free(handle->raw);
    handle->freed = true;
    handle->waiting.clear();
    handle = nullptr;
  }

  // Returns whether more is waiting.
  bool deliver(Handle& handle, std::uint32_t most) {
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

  // Everything that waits, on all handles, until there is nothing.
  void drive() {
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

  // ---- What arrives -----------------------------------------------------------------------

  static void on_reply(void*, const vu_mom_reply* reply, void* privdata) {
    Slot& slot = *static_cast<Slot*>(privdata);
    slot.handle->run->arrived(slot, *reply);
  }

  static std::int32_t on_stream(void*, const vu_mom_reply* reply, void* privdata) {
    on_reply(nullptr, reply, privdata);
    return 0;
  }

  void arrived(Slot& slot, const vu_mom_reply& reply) {
    Handle& handle = *slot.handle;
    check(!handle.freed, "a delivery to a freed handle");
    check(handle.delivering && !in_command_, "a delivery from elsewhere");
    check(vu_platform_is_record(reinterpret_cast<std::intptr_t>(&reply)) != 0, "no record");
    const auto& details = *vu_platform_details_of(&reply);
    check((details.status == VU_MOM_OK) == (details.error[0] == '\0'), "status and error");
    if (kTell) {
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

  void event(Slot& slot, const vu_mom_reply& reply, const vu_platform_details& details) {
    Subscription& subscription = *slot.subscription;
    check(reply.end_mark == 0, "an event with an end mark");
    if (reply.type_code == VU_MOM_TYPE_SUBSCRIPTION_ENDED) {
      check(subscription.ended, "a subscription ended by itself");
      check(subscription.expected.empty(), "a subscription ended before its events");
      check(details.status == (subscription.closed ? VU_MOM_FAILED : VU_MOM_OK),
            "status of an end");
      check(details.tag == subscription.field && reply.data == nullptr, "an end");
      check_names(details, subscription.db, nullptr);
      subscription.ended = false;
      check(slot.handle->subscriptions-- > 0, "a subscription ended twice");
      return;
    }
    // Events of one object come in the order of its changes.
    const std::string identity = identity_of(details);
    auto& expected = subscription.expected;
    const auto found = std::find_if(expected.begin(), expected.end(), [&](const Event& one) {
      return one.name->identity == identity;
    });
    check(found != expected.end(), "an event that nothing has caused");
    const Event wanted = *found;
    expected.erase(found);
    check(reply.type_code == wanted.type_code, "an event of another type");
    check(details.tag == wanted.tag, "an event of another field");
    check(details.status == VU_MOM_OK, "an event with an error");
    check_names(details, subscription.db, wanted.name);
    check_content(content_of(reply), *wanted.content, wanted.unordered, "content of an event");
  }

  void answer(Slot& slot, const vu_mom_reply& reply, const vu_platform_details& details) {
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

  void one_of_level(Request& request, const vu_mom_reply& reply,
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

  Model& slot_model(const Request& request) {
    for (const Handle& handle : handles_) {
      if (!handle.waiting.empty() && handle.waiting.front().get() == &request) return *handle.model;
    }
    fail("a reply of an unknown command");
  }

  // ---- Commands ---------------------------------------------------------------------------

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

  void scan(Handle& handle, const Known& message, bool keys_only) {
    const std::uint32_t level = this->level();
    Slot& made = slot(handle);
    const bool is_accepted = accepted(handle, [&] {
      return (keys_only ? vu_mom_scan_index : vu_mom_scan)(handle.raw, db_, message.address, level,
                                                           &on_stream, &made);
    });
    if (!is_accepted) return;
    made.request = std::make_shared<Request>();
    made.request->db = db_;
    made.request->on_level = true;
    made.request->end_mark = VU_MOM_END_SCAN;
    made.request->scan = handle.model->scan(db_, message, level);
    made.request->keys_only = keys_only;
    handle.waiting.push_back(made.request);
    check_told(handle);
  }

  std::uint32_t level() {
    const std::uint32_t level = in_.byte() & 7;
    return level == 7 ? kEverything : level;
  }

  double score() {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    const double scores[] = {0.0, 1.0, -1.5, 2.0, kInfinity, -kInfinity, -0.0, 1e300};
    return in_.pick(scores);
  }

  std::int64_t lifetime(std::int32_t& seconds, std::int32_t& microseconds) {
    constexpr std::int32_t kLifetimes[][2] = {{1, 0}, {1, 500000}, {3, 0},        {0, 0},
                                              {0, 1}, {9, 0},      {-1, -500000}, {INT32_MAX, 0}};
    const auto& chosen = in_.pick(kLifetimes);
    seconds = chosen[0];
    microseconds = chosen[1];
    return std::int64_t{seconds} * 1000000 + microseconds;
  }

  // Field numbers of the type, in some order, some of them twice.
  std::vector<std::size_t> tags(const Known& message) {
    const auto& numbers = types()[static_cast<std::size_t>(message.name->type)].numbers;
    const std::uint8_t mask = in_.byte();
    std::vector<std::size_t> tags;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      if ((mask >> (i % 8) & 1) != 0) tags.push_back(numbers[i]);
    }
    if ((mask & 0xC0) == 0xC0 && !tags.empty()) tags.push_back(tags[0]);
    if ((mask & 0x80) != 0) std::reverse(tags.begin(), tags.end());
    return tags;
  }

  static std::set<std::uint32_t> as_set(const std::vector<std::size_t>& tags) {
    std::set<std::uint32_t> numbers;
    for (const std::size_t tag : tags) numbers.insert(static_cast<std::uint32_t>(tag));
    return numbers;
  }

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

void Run::values(int op, Handle& handle, const Known& message) {
  Model& model = *handle.model;
  vu_mom_handle* const raw = handle.raw;
  const std::int32_t db = db_;
  const vu_mom_message at = message.address;
  switch (op) {
    case 0:
      return ask_about(handle, message, &Model::get, vu_mom_get);
    case 1:
      if (types()[static_cast<std::size_t>(message.name->type)].counter.number == 0) {
        return check(vu_mom_incr(raw, db, at, &on_reply, nullptr) == VU_MOM_BAD_INPUT, "incr");
      }
      return ask_about(handle, message, &Model::incr, vu_mom_incr);
    case 2:
      return ask(
          handle, &message, [&] { return model.setnx(db, message); },
          [&](auto cb, void* p) {
            return (options_ & 0x20 ? vu_mom_setnx : vu_mom_setnx_noreply)(raw, db, at, cb, p);
          });
    case 3: {
      std::int32_t flag = static_cast<std::int32_t>(in_.pick(4));
      return ask(
          handle, &message, [&] { return model.set(db, message, flag); },
          [&](auto cb, void* p) {
            return vu_mom_set_ext(raw, db, flag == 0 ? nullptr : &flag, at, cb, p);
          });
    }
    case 4:
    case 5: {
      constexpr std::int64_t kOwners[] = {0, 1, INT64_MIN, INT64_MAX};
      std::int32_t flag = static_cast<std::int32_t>(in_.pick(4));
      const std::int64_t owner = in_.pick(kOwners);
      if (op == 4) {
        return ask(
            handle, &message, [&] { return model.setow(db, message, owner, flag); },
            [&](auto cb, void* p) { return vu_mom_setow_ext(raw, db, &flag, at, cb, p, owner); });
      }
      return ask(
          handle, &message, [&] { return model.delow(db, message, owner, flag); },
          [&](auto cb, void* p) { return vu_mom_del_ow_ext(raw, db, &flag, at, cb, p, owner); });
    }
    default:
      return ask_about(handle, message, &Model::del, vu_mom_del);
  }
}

void Run::hashes(int op, Handle& handle, const Known& message) {
  Model& model = *handle.model;
  const std::int32_t db = db_;
  if (op == 0) {
    return ask(
        handle, &message, [&] { return model.hmget(db, message, {}); },
        [&](auto cb, void* p) { return vu_mom_hgetall(handle.raw, db, message.address, cb, p); });
  }
  const std::vector<std::size_t> tags = this->tags(message);
  const std::size_t* const array = tags.empty() ? nullptr : tags.data();
  const auto count = static_cast<std::int32_t>(tags.size());
  if (op == 1) {
    return ask(
        handle, &message, [&] { return model.hmget(db, message, as_set(tags)); },
        [&](auto cb, void* p) {
          return vu_mom_hmget(handle.raw, db, message.address, array, count, cb, p);
        });
  }
  const int code = op == 2   ? VU_MOM_TYPE_HMSET
                   : op == 3 ? VU_MOM_TYPE_HMSETNX
                             : VU_MOM_TYPE_HMUPDATE;
  const auto write = op == 2 ? vu_mom_hmset : op == 3 ? vu_mom_hmsetnx : vu_mom_hmupdate;
  ask(
      handle, &message, [&] { return model.write_fields(db, message, as_set(tags), code); },
      [&](auto cb, void* p) {
        return write(handle.raw, db, message.address, array, count, cb, p);
      });
}

void Run::lists(int op, Handle& handle, const Known& message) {
  Model& model = *handle.model;
  vu_mom_handle* const raw = handle.raw;
  const std::int32_t db = db_;
  const vu_mom_message at = message.address;
  switch (op) {
    case 0:
    case 1:
      return ask(
          handle, &message, [&] { return model.push(db, message, op == 0 ? 10 : 11); },
          [&](auto cb, void* p) {
            return (op == 0 ? vu_mom_lpush : vu_mom_rpush)(raw, db, at, cb, p);
          });
    case 2:
    case 3:
      return ask(
          handle, &message, [&] { return model.pop(db, message, op == 2 ? 12 : 13); },
          [&](auto cb, void* p) {
            return (op == 2 ? vu_mom_lpop : vu_mom_rpop)(raw, db, at, cb, p);
          });
    case 4:
      return ask_about(handle, message, &Model::llen, vu_mom_llen);
    case 5: {
      const std::int32_t position = in_.number();
      return ask(
          handle, &message, [&] { return model.lset(db, message, position); },
          [&](auto cb, void* p) { return vu_mom_lset(raw, db, at, position, cb, p); });
    }
    case 6: {
      const std::uint8_t small = in_.byte();
      const std::size_t count = small == 255 ? SIZE_MAX : small & 3;
      return ask(
          handle, &message, [&] { return model.lrem(db, message, count); },
          [&](auto cb, void* p) { return vu_mom_lrem(raw, db, at, count, cb, p); });
    }
    case 7: {
      const Group& group = this->group();
      const Known& pivot = in_.pick_of(group);
      const Known& element = in_.pick_of(group);
      const auto order = static_cast<std::int32_t>(in_.pick(2));
      return ask(
          handle, &element, [&] { return model.linsert(db, pivot, element, order); },
          [&](auto cb, void* p) {
            return vu_mom_linsert(raw, db, pivot.address, element.address, order, cb, p);
          });
    }
    default: {
      const std::int32_t start = in_.number();
      const std::int32_t stop = in_.number();
      return ask(
          handle, &message, [&] { return model.lrange(db, message, start, stop); },
          [&](auto cb, void* p) { return vu_mom_lrange(raw, db, at, start, stop, cb, p); });
    }
  }
}

void Run::sets(int op, Handle& handle, const Known& message) {
  switch (op) {
    case 0:
      return ask_about(handle, message, &Model::sadd, vu_mom_sadd);
    case 1:
      return ask_about(handle, message, &Model::srem, vu_mom_srem);
    case 2:
      return ask_about(handle, message, &Model::smembers, vu_mom_smembers);
    case 3:
      return ask_about(handle, message, &Model::scard, vu_mom_scard);
    default:
      return ask_about(handle, message, &Model::sismember, vu_mom_sismember);
  }
}

// zadd and zrem.
void Run::members(Handle& handle, bool add) {
  const Group& group = this->group();
  std::vector<const Message*> chosen;
  std::vector<vu_mom_message> addresses;
  std::vector<double> scores;
  for (std::size_t count = in_.pick(5); count > 0; --count) {
    const Known& one = in_.pick_of(group);
    chosen.push_back(&one);
    addresses.push_back(one.address);
    if (add) scores.push_back(score());
  }
  const Known* const named = chosen.empty() ? nullptr : &group[0];
  const auto count = static_cast<std::int32_t>(addresses.size());
  db_of_nothing_ = db_;
  if (add) {
    return ask(
        handle, named, [&] { return handle.model->zadd(db_, scores, chosen); },
        [&](auto cb, void* p) {
          return vu_mom_zadd(handle.raw, db_, count == 0 ? nullptr : scores.data(),
                             count == 0 ? nullptr : addresses.data(), count, cb, p);
        });
  }
  ask(
      handle, named, [&] { return handle.model->zrem(db_, chosen); },
      [&](auto cb, void* p) {
        // The store takes the array over.
        auto* const array =
            static_cast<vu_mom_message*>(std::malloc(sizeof(vu_mom_message) * addresses.size()));
        std::copy(addresses.begin(), addresses.end(), array);
        return vu_mom_zrem(handle.raw, db_, array, count, cb, p);
      });
}

void Run::sorted_sets(int op, Handle& handle, const Known& message) {
  Model& model = *handle.model;
  vu_mom_handle* const raw = handle.raw;
  const std::int32_t db = db_;
  const vu_mom_message at = message.address;
  const auto between = [&](auto low, auto high, auto ideal, auto real) {
    ask(
        handle, &message, [&] { return (model.*ideal)(db, message, low, high); },
        [&](auto cb, void* p) { return real(raw, db, at, low, high, cb, p); });
  };
  switch (op) {
    case 0:
      return ask_about(handle, message, &Model::zcard, vu_mom_zcard);
    case 1:
      return ask_about(handle, message, &Model::zrank, vu_mom_zrank);
    case 2:
      return ask_about(handle, message, &Model::zscore, vu_mom_zscore);
    default:
      break;
  }
  if (op < 6) {
    const double min = score();
    const double max = score();
    if (op == 3) return between(min, max, &Model::zcount, vu_mom_zcount);
    if (op == 4) return between(min, max, &Model::zrangebyscore, vu_mom_zrangebyscore);
    return between(min, max, &Model::zremrangebyscore, vu_mom_zremrangebyscore);
  }
  const std::int32_t start = in_.number();
  const std::int32_t stop = in_.number();
  if (op == 6) return between(start, stop, &Model::zrange, vu_mom_zrange);
  between(start, stop, &Model::zremrangebyrank, vu_mom_zremrangebyrank);
}

void Run::levels(int op, Handle& handle, const Known& message) {
  Model& model = *handle.model;
  vu_mom_handle* const raw = handle.raw;
  const std::int32_t db = db_;
  const vu_mom_message at = message.address;
  if (op < 2) return scan(handle, message, op == 1);
  const std::uint32_t level = this->level();
  if (op == 2) {
    return ask_all(
        handle, message, VU_MOM_END_DEL_EXPIRE,
        [&] { return model.del_expire(db, message, level); },
        [&](auto cb, void* p) { return vu_mom_del_expire(raw, db, at, level, cb, p); });
  }
  if (op == 3) {
    return ask_all(
        handle, message, VU_MOM_END_PDEL, [&] { return model.pdel(db, message, level); },
        [&](auto cb, void* p) { return vu_mom_pdel(raw, db, at, level, cb, p); });
  }
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
  const std::int64_t lifetime = this->lifetime(seconds, microseconds);
  if (op == 4) {
    return ask_all(
        handle, message, VU_MOM_END_PEXPIRE,
        [&] { return model.pexpire(db, message, level, lifetime); },
        [&](auto cb, void* p) {
          return vu_mom_pexpire(raw, db, at, level, seconds, microseconds, cb, p);
        });
  }
  std::vector<std::size_t> tags = this->tags(message);
  const bool one = op == 5 && !tags.empty();
  if (one) tags.resize(1);
  const auto count = static_cast<std::int32_t>(tags.size());
  ask_all(
      handle, message, VU_MOM_END_PEXPIRE_FIELD,
      [&] { return model.pexpire_fields(db, message, level, as_set(tags), lifetime); },
      [&](auto cb, void* p) {
        if (one) {
          return vu_mom_pexpire_field(raw, db, at, level, static_cast<std::int32_t>(tags[0]),
                                      seconds, microseconds, cb, p);
        }
        return vu_mom_pexpire_fields(raw, db, at, level, tags.data(), count, seconds, microseconds,
                                     cb, p);
      });
}

void Run::subscribe(Handle& handle, const Known& message, bool fields) {
  const std::uint32_t level = this->level();
  std::vector<std::size_t> watched{0};
  if (fields) watched = tags(message);
  std::vector<vu_mom_stream_cb> callbacks;
  std::vector<void*> privdata;
  std::vector<Slot*> made;
  for (std::size_t i = 0; i < watched.size(); ++i) {
    made.push_back(&slot(handle));
    callbacks.push_back(&on_stream);
    privdata.push_back(made.back());
  }
  const bool is_accepted = accepted(handle, [&] {
    if (!fields) {
      return vu_mom_subscribe(handle.raw, db_, message.address, level, &on_stream, privdata[0]);
    }
    return vu_mom_subscribe_field(handle.raw, db_, message.address, level, watched.data(),
                                  callbacks.data(), privdata.data(),
                                  static_cast<std::int32_t>(watched.size()));
  });
  if (!is_accepted) return;
  for (std::size_t i = 0; i < watched.size(); ++i) {
    made[i]->subscription = handle.model->subscribe(&handle, db_, message, level,
                                                    static_cast<std::uint32_t>(watched[i]));
    ++handle.subscriptions;
  }
}

void Run::unsubscribe(Handle& handle, const Known& message, bool fields) {
  const std::uint32_t level = this->level();
  std::vector<std::size_t> watched{0};
  if (fields) watched = tags(message);
  const bool is_accepted = accepted(handle, [&] {
    if (!fields) {
      return vu_mom_unsubscribe(handle.raw, db_, message.address, level, &on_stream, nullptr);
    }
    return vu_mom_unsubscribe_field(handle.raw, db_, message.address, level, watched.data(),
                                    nullptr, nullptr, static_cast<std::int32_t>(watched.size()));
  });
  if (is_accepted) handle.model->unsubscribe(&handle, db_, message, level, as_set(watched));
}

// What the store can see to make no sense: refused, with nothing done or delivered.
void Run::bad_input(Handle& handle, const Known& message) {
  vu_mom_handle* const raw = handle.raw;
  const std::int32_t db = db_;
  const vu_mom_message at = message.address;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double number = 1;
  constexpr std::size_t kBadTags[] = {0, 999, std::size_t{1} << 31, SIZE_MAX};
  const std::size_t tag = in_.pick(kBadTags);
  std::int32_t flag = in_.flag() ? 4 : -1;
  const vu_mom_message other =
      message.name == groups()[0][0].name ? groups()[1][0].address : groups()[0][0].address;
  const vu_mom_message both[] = {at, other};
  const double scores[] = {1, 2};
  const vu_mom_stream_cb no_callback = nullptr;
  void* const no_privdata = nullptr;
  const vu_mom_stream_cb stream = &on_stream;
  const vu_mom_reply_cb cb = &on_reply;
  std::int32_t status = VU_MOM_OK;
  in_command_ = true;
  switch (in_.pick(20)) {
    case 0:
      status = vu_mom_get(raw, -1, at, cb, nullptr);
      break;
    case 1:
      status = vu_mom_set_ext(raw, db, &flag, at, cb, nullptr);
      break;
    case 2:
      status = vu_mom_get(raw, db, at + 1, cb, nullptr);
      break;
    case 3:
      status = vu_mom_hmset(raw, db, at, nullptr, 1, cb, nullptr);
      break;
    case 4:
      status = vu_mom_hmget(raw, db, at, &tag, 1, cb, nullptr);
      break;
    case 5:
      status = vu_mom_hmget(raw, db, at, &tag, -1, cb, nullptr);
      break;
    case 6:
      status = vu_mom_zcount(raw, db, at, nan, number, cb, nullptr);
      break;
    case 7:
      status = vu_mom_zremrangebyscore(raw, db, at, number, nan, cb, nullptr);
      break;
    case 8:
      status = vu_mom_zadd(raw, db, &nan, &at, 1, cb, nullptr);
      break;
    case 9:
      status = vu_mom_zadd(raw, db, scores, both, 2, cb, nullptr);
      break;
    case 10:
      status = vu_mom_zadd(raw, db, nullptr, both, 1, cb, nullptr);
      break;
    case 11: {
      auto* const array = static_cast<vu_mom_message*>(std::malloc(sizeof both));
      std::copy(std::begin(both), std::end(both), array);
      status = vu_mom_zrem(raw, db, array, 2, cb, nullptr);
      break;
    }
    case 12:
      status = vu_mom_linsert(raw, db, other, at, 0, cb, nullptr);
      break;
    case 13:
      status = vu_mom_linsert(raw, db, at, at, 2, cb, nullptr);
      break;
    case 14:
      status = vu_mom_subscribe(raw, db, at, 0, nullptr, nullptr);
      break;
    case 15:
      status = vu_mom_subscribe_field(raw, db, at, 0, &tag, &stream, &no_privdata, 1);
      break;
    case 16:
      status = vu_mom_subscribe_field(raw, db, at, 0, nullptr, &no_callback, &no_privdata, 1);
      break;
    case 17:
      status = vu_mom_pexpire_field(raw, db, at, 0, -static_cast<std::int32_t>(in_.byte()), 1, 0,
                                    cb, nullptr);
      break;
    case 18:
      status = vu_mom_zrem(raw, -1, nullptr, 0, cb, nullptr);
      break;
    default:
      status = vu_mom_get(raw, db, 0, cb, nullptr);
  }
  in_command_ = false;
  check(status == VU_MOM_BAD_INPUT, "bad input was accepted");
}

void Run::advance(Handle& handle) {
  constexpr std::int64_t kSteps[] = {
      500000, 1000000, 1500000, 4000000,
      0,      1,       499999,  static_cast<std::int64_t>(INT32_MAX) * 1000000};
  const std::int64_t step = in_.pick(kSteps);
  if (handle.closed) return;
  vu_platform_advance_clock(handle.raw, step);
  handle.model->advance(step);
  swept_ = false;
}

void Run::others(int op, Handle& handle, std::size_t number, const Known& message) {
  switch (op) {
    case 0:
    case 1:
      if (sweep()) subscribe(handle, message, op == 1);
      return;
    case 2:
    case 3:
      if (sweep()) unsubscribe(handle, message, op == 3);
      return;
    case 4:
      return ask(
          handle, &message, [&] { return handle.model->publish(db_, message); },
          [&](auto cb, void* p) {
            return vu_mom_publish(handle.raw, db_, message.address, cb, p);
          });
    case 5:
      return advance(handle);
    case 6:
      deliver(handle, static_cast<std::uint32_t>(in_.pick(4)));
      return;
    case 7:
      if (depth_ == 0) drive();
      return;
    case 8:
      if (sweep()) close(handle);
      return;
    case 9:
      if (sweep()) free(current_[number]);
      return;
    default:
      return bad_input(handle, message);
  }
}

// One command: what, options, the message, and what else it takes.
void Run::command(int depth) {
  const std::uint8_t kept = options_;
  const std::int32_t kept_db = db_;
  const std::size_t op = in_.byte();
  options_ = in_.byte();
  // The first handle is the usual one, and so is the first database.
  const std::size_t number = (options_ & 3) == 3 ? 0 : options_ & 3;
  db_ = (options_ & 0x18) == 0x18 ? (options_ & 0x80 ? INT32_MAX : 1) : 0;
  Handle& handle = this->handle(number);
  const Known& message = this->message();
  if (kTell) {
    std::fprintf(stderr, "%*scommand %zu/%zu of handle %zu, db %d, type %d, options %02x\n",
                 2 * depth, "", op % 8, op / 8, number, static_cast<int>(db_), message.name->type,
                 static_cast<unsigned>(options_));
    show("  message", Content::of_message(message.bytes));
  }
  switch (op % 8) {
    case 0:
      values(static_cast<int>(op / 8 % 7), handle, message);
      break;
    case 1:
      hashes(static_cast<int>(op / 8 % 5), handle, message);
      break;
    case 2:
      lists(static_cast<int>(op / 8 % 9), handle, message);
      break;
    case 3:
      sets(static_cast<int>(op / 8 % 5), handle, message);
      break;
    case 4: {
      const std::size_t which = op / 8 % 11;
      if (which < 3) {
        members(handle, which != 2);
      } else {
        sorted_sets(static_cast<int>(which - 3), handle, message);
      }
      break;
    }
    case 5:
      levels(static_cast<int>(op / 8 % 7), handle, message);
      break;
    default:
      others(static_cast<int>(op / 8 % 11), handle, number, message);
  }
  if (depth == 0 && (options_ & 0x20) != 0) drive();
  options_ = kept;
  db_ = kept_db;
}

}  // namespace

}  // namespace vu::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  vu::fuzz::Input input(data, size);
  vu::fuzz::Run(input).all();
  return 0;
}
