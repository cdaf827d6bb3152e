// Hashes.
#include "front.h"
#include "message_bytes.h"
#include "wire.h"

namespace vu::store {
namespace {

// The named fields of `message`, or all that it carries, with their records.
std::vector<Field> fields_of(const google::protobuf::Message& message,
                             const std::vector<std::uint32_t>& numbers) {
  std::string bytes;
  require(serialise(message, *type_of(message), bytes));
  std::vector<Field> fields;
  fields.reserve(numbers.size());
  for (const std::uint32_t number : numbers) fields.push_back({number, {}});
  const bool all = numbers.empty();
  WireReader reader(bytes);
  for (WireRecord record; reader.next(record);) {
    auto field = fields.begin();
    while (field != fields.end() && field->number < record.number) ++field;
    if (field == fields.end() || field->number != record.number) {
      if (!all) continue;
      field = fields.insert(field, {record.number, {}});
    }
    field->records.append(record.bytes);
  }
  return fields;
}

std::int32_t write_fields(vu_mom_handle* handle, Command which, std::int32_t db,
                          vu_mom_message message, const std::size_t* tags, std::int32_t count,
                          const Receiver& receiver) noexcept {
  return command(handle, which, db, message, receiver,
                 [&](Request& request, const google::protobuf::Message& named) {
                   const auto numbers = field_numbers(request, tags, count);
                   request.named = !numbers.empty();
                   request.fields = fields_of(named, numbers);
                 });
}

}  // namespace
}  // namespace vu::store

using vu::store::Command;
using vu::store::reply_to;
using vu::store::write_fields;

VU_STORE_EXPORT int32_t vu_mom_hmset(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                     const size_t* tags, int32_t count, vu_mom_reply_cb callback,
                                     void* privdata) {
  VU_STORE_ENTRY();
  return write_fields(handle, Command::kHmset, db, message, tags, count,
                      reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_hmsetnx(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                       const size_t* tags, int32_t count, vu_mom_reply_cb callback,
                                       void* privdata) {
  VU_STORE_ENTRY();
  return write_fields(handle, Command::kHmsetnx, db, message, tags, count,
                      reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_hmupdate(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                        const size_t* tags, int32_t count, vu_mom_reply_cb callback,
                                        void* privdata) {
  VU_STORE_ENTRY();
  return write_fields(handle, Command::kHmupdate, db, message, tags, count,
                      reply_to(callback, privdata));
}

VU_STORE_EXPORT int32_t vu_mom_hmget(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                     const size_t* tags, int32_t count, vu_mom_reply_cb callback,
                                     void* privdata) {
  VU_STORE_ENTRY();
  return command(handle, Command::kHmget, db, message, reply_to(callback, privdata),
                 [&](vu::store::Request& request, const google::protobuf::Message&) {
                   request.tags = field_numbers(request, tags, count);
                 });
}

VU_STORE_EXPORT int32_t vu_mom_hgetall(vu_mom_handle* handle, int32_t db, vu_mom_message message,
                                       vu_mom_reply_cb callback, void* privdata) {
  VU_STORE_ENTRY();
  return vu::store::command(handle, Command::kHgetall, db, message, reply_to(callback, privdata));
}
