// Commands on a message stored field by field.
#include <algorithm>

#include "client/arrays.h"
#include "client/numbers.h"
#include "client/reply.h"
#include "client/request.h"
#include "client/status.h"
#include "commands/commands.h"
#include "commands/shapes.h"
#include "module/imported_types.h"

namespace vu_mom {
namespace {

const ReplyPrefix on_hmget("on_hmget_");
const ReplyPrefix on_hgetall("on_hgetall_");

using FieldsFunction = decltype(&vu_mom_hmset);

struct Tags {
  std::size_t* array;  // from malloc; freed after the store call
  std::int32_t count;
};

// A field number that cannot be converted does not stop the command: the store gets a null
// array with the length of the list, and refuses it. The length is taken last; a list that a
// conversion has made longer counts no further than the array goes.
Tags to_tags(py::Borrowed field_tags) {
  const std::size_t most = list_to_clen(field_tags);
  std::size_t* const array = size_t_list_to_carr(field_tags);
  const std::size_t count = std::min(most, list_to_clen(field_tags));
  return {array, static_cast<std::int32_t>(count)};
}

void write_fields(VuMom& client, const Arguments& in, FieldsFunction function) {
  const auto [db_arg, obj, field_tags] = in.values<3>();
  check_list_or_none("field_tags", field_tags);
  const Tags tags = to_tags(field_tags);
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  const std::int32_t status =
      function(client.handle(), db, message, tags.array, tags.count, nullptr, nullptr);
  std::free(tags.array);
  accept(status);
}

void hmget(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj, field_tags, privdata] = in.values<4>();
  check_list_or_none("field_tags", field_tags);
  const Tags tags = to_tags(field_tags);
  Request request(client, on_hmget, obj, privdata);
  request.message_class_of(obj).result_class(types.HashResult);
  request.hand_over();
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  const std::int32_t status = vu_mom_hmget(client.handle(), db, message, tags.array, tags.count,
                                           wrap_cb, request.context());
  std::free(tags.array);
  accept(status);
}

constexpr Command kHmset{
    "vu_mom.VuMom.hmset",
    {"hmset", 3, {"db", "obj", "field_tags"}},
    [](VuMom& client, const Arguments& in) { write_fields(client, in, vu_mom_hmset); },
    "hmset($self, /, db, obj, field_tags)\n--\n\n"
    "Write the fields of `obj` numbered in the list `field_tags` to the hash under its key;\n"
    "None or an empty list: every field that `obj` carries. No reply."};

constexpr Command kHmsetnx{
    "vu_mom.VuMom.hmsetnx",
    {"hmsetnx", 3, {"db", "obj", "field_tags"}},
    [](VuMom& client, const Arguments& in) { write_fields(client, in, vu_mom_hmsetnx); },
    "hmsetnx($self, /, db, obj, field_tags)\n--\n\n"
    "Like hmset, only if none of the fields exists yet. No reply."};

constexpr Command kHmupdate{
    "vu_mom.VuMom.hmupdate",
    {"hmupdate", 3, {"db", "obj", "field_tags"}},
    [](VuMom& client, const Arguments& in) { write_fields(client, in, vu_mom_hmupdate); },
    "hmupdate($self, /, db, obj, field_tags)\n--\n\n"
    "Like hmset, only if the hash exists. No reply."};

constexpr Command kHmget{
    "vu_mom.VuMom.hmget",
    {"hmget", 4, {"db", "obj", "field_tags", "privdata"}},
    hmget,
    "hmget($self, /, db, obj, field_tags, privdata)\n--\n\n"
    "Read the fields numbered in the list `field_tags` of the hash under the key of `obj`;\n"
    "None or an empty list: all of them.\n\n"
    "The reply arrives at on_hmget_<package>_<message>(msg, p): msg.result is a HashResult,\n"
    "or None where nothing is stored."};

constexpr Command kHgetall{
    "vu_mom.VuMom.hgetall",
    {"hgetall", 3, {"db", "obj", "privdata"}},
    [](VuMom& client, const Arguments& in) {
      reply_with_messages(client, in, on_hgetall, types.HashResult, vu_mom_hgetall);
    },
    "hgetall($self, /, db, obj, privdata)\n--\n\n"
    "Read every field of the hash under the key of `obj`.\n\n"
    "The reply arrives at on_hgetall_<package>_<message>(msg, p): msg.result is a\n"
    "HashResult, or None where nothing is stored."};

}  // namespace

std::vector<PyMethodDef> hash_methods() {
  return {method<kHmset>(), method<kHmsetnx>(), method<kHmupdate>(), method<kHmget>(),
          method<kHgetall>()};
}

}  // namespace vu_mom
