// Lifetimes of objects and fields, and deletion by level. Each of these requests may get
// several replies; the last one carries the end mark of the command.
#include <cmath>
#include <limits>

#include "client/arrays.h"
#include "client/numbers.h"
#include "client/reply.h"
#include "client/request.h"
#include "client/status.h"
#include "commands/commands.h"
#include "module/exceptions.h"

namespace vu_mom {
namespace {

const ReplyPrefix on_pexpire("on_pexpire_");
const ReplyPrefix on_pexpirefield("on_pexpirefield_");
const ReplyPrefix on_pexpirefields("on_pexpirefields_");
const ReplyPrefix on_delexpire("on_delexpire_");
const ReplyPrefix on_pdel("on_pdel_");

const MessageTuple field_tags_is_none("field_tags is None");

struct Lifetime {
  std::int32_t seconds;
  std::int32_t microseconds;
};

// The conversion of the target's processor, spelled out: values out of range become the
// nearest integer in range.
std::int32_t saturate(double value) {
  if (value >= std::numeric_limits<std::int32_t>::max()) {
    return std::numeric_limits<std::int32_t>::max();
  }
  if (value <= std::numeric_limits<std::int32_t>::min()) {
    return std::numeric_limits<std::int32_t>::min();
  }
  return static_cast<std::int32_t>(value);
}

// Both parts are truncated, and both carry the sign of `time`. What int() refuses is
// refused with its error: infinities and NaN.
Lifetime split(double time) {
  if (!std::isfinite(time)) py::checked(PyLong_FromDouble(time));
  const double whole = std::trunc(time);
  return {saturate(whole), static_cast<std::int32_t>((time - whole) * 1000000)};
}

void pexpire(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj, level_arg, time_arg, privdata] = in.values<5>();
  const std::uint32_t level = to_uint32(level_arg);
  const double time = to_double(time_arg);
  const Lifetime lifetime = split(time);
  Request request(client, on_pexpire, obj, privdata);
  request.end_mark(VU_MOM_END_PEXPIRE);
  request.hand_over();
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  accept(vu_mom_pexpire(client.handle(), db, message, level, lifetime.seconds,
                        lifetime.microseconds, wrap_cb, request.context()));
}

void pexpire_field(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj, level_arg, tag_arg, time_arg, privdata] = in.values<6>();
  const std::uint32_t level = to_uint32(level_arg);
  const std::int32_t tag = to_int32(tag_arg);
  const double time = to_double(time_arg);
  const Lifetime lifetime = split(time);
  Request request(client, on_pexpirefield, obj, privdata);
  request.end_mark(VU_MOM_END_PEXPIRE_FIELD);
  request.hand_over();
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  accept(vu_mom_pexpire_field(client.handle(), db, message, level, tag, lifetime.seconds,
                              lifetime.microseconds, wrap_cb, request.context()));
}

// No field, no request: nothing is looked up and nothing is sent.
void pexpire_fields(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj, level_arg, field_tags, time_arg, privdata] = in.values<6>();
  const std::uint32_t level = to_uint32(level_arg);
  const double time = to_double(time_arg);
  check_list_or_none("field_tags", field_tags);
  const Lifetime lifetime = split(time);
  if (field_tags.is_none()) raise(InputError, field_tags_is_none);
  const std::size_t n = list_length(field_tags);
  if (n == 0) return;
  std::size_t* const tags = to_sizes(field_tags);
  Request request(client, on_pexpirefields, obj, privdata);
  request.end_mark(VU_MOM_END_PEXPIRE_FIELD);
  request.hand_over();
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  const std::int32_t status =
      vu_mom_pexpire_fields(client.handle(), db, message, level, tags, static_cast<std::int32_t>(n),
                            lifetime.seconds, lifetime.microseconds, wrap_cb, request.context());
  std::free(tags);
  accept(status);
}

using LevelFunction = decltype(&vu_mom_pdel);

void reply_by_level(VuMom& client, const Arguments& in, const ReplyPrefix& prefix,
                    std::uint32_t end_mark, LevelFunction function) {
  const auto [db_arg, obj, level_arg, privdata] = in.values<4>();
  const std::uint32_t level = to_uint32(level_arg);
  Request request(client, prefix, obj, privdata);
  request.end_mark(end_mark);
  request.hand_over();
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  accept(function(client.handle(), db, message, level, wrap_cb, request.context()));
}

constexpr Command kPexpire{
    "vu_mom.VuMom.pexpire",
    {"pexpire", 5, {"db", "obj", "level", "time", "privdata"}},
    pexpire,
    "pexpire($self, /, db, obj, level, time, privdata)\n--\n\n"
    "Give every object that matches the first `level` key components of `obj` a lifetime of\n"
    "`time` seconds, to the microsecond.\n\n"
    "Replies arrive at on_pexpire_<package>_<message>(msg, p); the last has the end mark 2."};

constexpr Command kPexpireField{
    "vu_mom.VuMom.pexpire_field",
    {"pexpire_field", 6, {"db", "obj", "level", "tag", "time", "privdata"}},
    pexpire_field,
    "pexpire_field($self, /, db, obj, level, tag, time, privdata)\n--\n\n"
    "Give the field numbered `tag` of every object that matches the first `level` key\n"
    "components of `obj` a lifetime of `time` seconds.\n\n"
    "Replies arrive at on_pexpirefield_<package>_<message>(msg, p); the last has the end\n"
    "mark 4."};

constexpr Command kPexpireFields{
    "vu_mom.VuMom.pexpire_fields",
    {"pexpire_fields", 6, {"db", "obj", "level", "field_tags", "time", "privdata"}},
    pexpire_fields,
    "pexpire_fields($self, /, db, obj, level, field_tags, time, privdata)\n--\n\n"
    "Like pexpire_field, for every field numbered in the list `field_tags`; with an empty\n"
    "list nothing is sent and nothing arrives.\n\n"
    "Replies arrive at on_pexpirefields_<package>_<message>(msg, p); the last has the end\n"
    "mark 4. Raises InputError where `field_tags` is None."};

constexpr Command kDelExpire{
    "vu_mom.VuMom.del_expire",
    {"del_expire", 4, {"db", "obj", "level", "privdata"}},
    [](VuMom& client, const Arguments& in) {
      reply_by_level(client, in, on_delexpire, VU_MOM_END_DEL_EXPIRE, vu_mom_del_expire);
    },
    "del_expire($self, /, db, obj, level, privdata)\n--\n\n"
    "Take the lifetime from every object that matches the first `level` key components of\n"
    "`obj`.\n\n"
    "Replies arrive at on_delexpire_<package>_<message>(msg, p); the last has the end mark 3."};

constexpr Command kPdel{
    "vu_mom.VuMom.pdel",
    {"pdel", 4, {"db", "obj", "level", "privdata"}},
    [](VuMom& client, const Arguments& in) {
      reply_by_level(client, in, on_pdel, VU_MOM_END_PDEL, vu_mom_pdel);
    },
    "pdel($self, /, db, obj, level, privdata)\n--\n\n"
    "Delete every object that matches the first `level` key components of `obj`.\n\n"
    "Replies arrive at on_pdel_<package>_<message>(msg, p); the last has the end mark 5."};

}  // namespace

std::vector<PyMethodDef> expiry_methods() {
  return {method<kPexpire>(), method<kPexpireField>(), method<kPexpireFields>(),
          method<kDelExpire>(), method<kPdel>()};
}

}  // namespace vu_mom
