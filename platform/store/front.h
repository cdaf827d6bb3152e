// The road of every command: check the arguments, copy what is needed into a Request,
// hand it to the engine. The commands themselves are in commands_*.cpp.
#pragma once

#include <google/protobuf/message.h>

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

#include "request.h"
#include "session.h"
#include "thread_check.h"

// Marks the definitions of the functions that the library exports.
#define VU_STORE_EXPORT extern "C" __attribute__((visibility("default")))

namespace vu::store {

// Why a request does not come into being.
class Refused : public std::exception {
 public:
  explicit Refused(std::int32_t status) : status_(status) {}
  std::int32_t status() const { return status_; }

 private:
  std::int32_t status_;
};

// VU_MOM_BAD_INPUT unless `condition`.
inline void require(bool condition) {
  if (!condition) throw Refused(VU_MOM_BAD_INPUT);
}

// Runs a whole call on a handle, turns what it throws into its status, and counts a refusal.
std::int32_t answer_with_status(vu_mom_handle* handle, std::int32_t (*run)(void*),
                                void* context) noexcept;

template <typename Call>
std::int32_t run_call(vu_mom_handle* handle, Call call) noexcept {
  return answer_with_status(
      handle, [](void* context) { return (*static_cast<Call*>(context))(); }, &call);
}

// The message at `address`, which must be live.
const google::protobuf::Message& message_at(vu_mom_message address);

// Checks `db` and names the object of `message` in the request. The type is null-free
// and valid after this.
const google::protobuf::Message& name_object(Request& request, std::int32_t db,
                                             vu_mom_message message);

// The stored bytes of the message that names the request's object.
std::string stored_bytes(const Request& request, const google::protobuf::Message& named);

// The stored bytes of another message of the same type and identity; any other is
// refused.
std::string stored_bytes_at(const Request& request, vu_mom_message message);

// The bytes of a member of a sorted set, which are its whole serialisation: members of
// one score are in its order.
std::string member_bytes(const google::protobuf::Message& named);
// The same for a message of the request's type and identity; any other is refused.
std::string member_bytes_at(const Request& request, vu_mom_message message);

// Field numbers that the request's type has, ascending and each once.
std::vector<std::uint32_t> field_numbers(const Request& request, const std::size_t* tags,
                                         std::int32_t count);

// Hands the request to the engine. Throws Refused where the handle is closed or has too
// much waiting.
std::int32_t submit(vu_mom_handle* handle, Request& request);

// One command: `fill(request, message)` completes the request.
template <typename Fill>
std::int32_t command(vu_mom_handle* handle, Command which, std::int32_t db, vu_mom_message message,
                     const Receiver& receiver, Fill fill) noexcept {
  return run_call(handle, [&] {
    Request request(which);
    const auto& named = name_object(request, db, message);
    request.receiver = receiver;
    request.receiver.type = request.type;
    fill(request, named);
    return submit(handle, request);
  });
}

// A command that needs the object's name and nothing else.
inline std::int32_t command(vu_mom_handle* handle, Command which, std::int32_t db,
                            vu_mom_message message, const Receiver& receiver) noexcept {
  return command(handle, which, db, message, receiver,
                 [](Request&, const google::protobuf::Message&) {});
}

// A command whose message is also its value.
inline std::int32_t command_with_value(vu_mom_handle* handle, Command which, std::int32_t db,
                                       vu_mom_message message, const Receiver& receiver) noexcept {
  return command(handle, which, db, message, receiver,
                 [](Request& request, const google::protobuf::Message& named) {
                   request.value = stored_bytes(request, named);
                 });
}

inline Receiver reply_to(vu_mom_reply_cb callback, void* privdata) {
  return Receiver{callback, nullptr, privdata, nullptr};
}

inline Receiver stream_to(vu_mom_stream_cb callback, void* privdata) {
  return Receiver{nullptr, callback, privdata, nullptr};
}

}  // namespace vu::store
