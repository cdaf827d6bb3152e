// Subscriptions to changes of objects and of single fields.
#include "client/arrays.h"
#include "client/numbers.h"
#include "client/reply.h"
#include "client/request.h"
#include "client/status.h"
#include "commands/commands.h"
#include "module/exceptions.h"
#include "module/imported_types.h"

namespace vu_mom {
namespace {

const ReplyPrefix on_subscribe("on_subscribe_");

const MessageTuple list_is_none("fields or funcs or args is None");
const MessageTuple lengths_differ("len of fields,funcs,args is not equal");
const MessageTuple fields_is_none("fields is None");

// Sets what changed, by type code. False for a code that is no change.
bool set_change(Delivery& delivery, std::int32_t type_code) {
  switch (type_code) {
    case VU_MOM_TYPE_NONE:
    case VU_MOM_TYPE_SUBSCRIPTION_ENDED:
    case VU_MOM_TYPE_DELETED:
      return true;
    case VU_MOM_TYPE_SET:
    case VU_MOM_TYPE_INCR:
    case VU_MOM_TYPE_PUBLISH:
      delivery.set_message();
      return true;
    case VU_MOM_TYPE_HMSET:
    case VU_MOM_TYPE_HMSETNX:
    case VU_MOM_TYPE_HMUPDATE:
      delivery.set_result_with_class(types.HashResult);
      return true;
    case VU_MOM_TYPE_SADD:
    case VU_MOM_TYPE_SREM:
      delivery.set_result_with_class(types.SetResult);
      return true;
    case VU_MOM_TYPE_LPUSH:
    case VU_MOM_TYPE_RPUSH:
    case VU_MOM_TYPE_LPOP:
    case VU_MOM_TYPE_RPOP:
    case VU_MOM_TYPE_LINSERT:
    case VU_MOM_TYPE_LSET:
    case VU_MOM_TYPE_LREM:
      delivery.set_result_with_class(types.ListResult);
      return true;
    case VU_MOM_TYPE_ZADD:
    case VU_MOM_TYPE_ZREM:
    case VU_MOM_TYPE_ZREMRANGEBYSCORE:
    case VU_MOM_TYPE_ZREMRANGEBYRANK:
      delivery.set_result_with_class(types.SortedsetResult);
      return true;
    default:
      return false;
  }
}

// A context lives as long as its subscription: it is given back with the message that ends
// it, and with one that is no message at all.
extern "C" std::int32_t sub_cb(void*, const vu_mom_reply* reply, void* privdata) {
  enter_unraisable("vu_mom.sub_cb", [&] {
    Delivery delivery(reply, privdata);
    if (!set_change(delivery, reply->type_code)) {
      delivery.release();
      py::raise(reinterpret_cast<PyObject*>(&MomCApiInnerError));
    }
    delivery.call();
    if (reply->type_code == VU_MOM_TYPE_SUBSCRIPTION_ENDED) delivery.release();
  });
  return 0;
}

void subscribe(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj, level_arg, privdata] = in.values<4>();
  const std::int32_t db = to_int32(db_arg);
  const std::uint32_t level = to_uint32(level_arg);
  Request request(client, on_subscribe, obj, privdata);
  request.message_class_of(obj);
  request.hand_over();
  const vu_mom_message message = message_address(obj);
  accept(vu_mom_subscribe(client.handle(), db, message, level, sub_cb, request.context()));
}

// The end is reported to the subscription's own context. Here `level` comes before `db`.
void unsubscribe(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj, level_arg] = in.values<3>();
  const std::uint32_t level = to_uint32(level_arg);
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  accept(vu_mom_unsubscribe(client.handle(), db, message, level, sub_cb, nullptr));
}

// The native arrays of the field commands. free() is called at the end of the steps; where
// a conversion fails before, they stay allocated.
struct FieldArrays {
  std::size_t* tags;
  vu_mom_stream_cb* callbacks;
  void** contexts;  // null where the command passes none

  static FieldArrays allocate(std::size_t n, bool with_contexts) {
    FieldArrays arrays = {};
    arrays.tags = try_allocate<std::size_t>(n);
    if (arrays.tags != nullptr) arrays.callbacks = try_allocate<vu_mom_stream_cb>(n);
    if (arrays.callbacks != nullptr && with_contexts) arrays.contexts = try_allocate<void*>(n);
    if (arrays.callbacks == nullptr || (with_contexts && arrays.contexts == nullptr)) {
      arrays.free();
      PyErr_NoMemory();
      throw py::PythonError();
    }
    return arrays;
  }

  void free() const {
    std::free(tags);
    std::free(callbacks);
    std::free(contexts);
  }
};

std::size_t field_at(py::Borrowed fields, std::size_t i) {
  const py::Owned field = list_item(fields, i);
  return to_size(field);
}

void subscribe_field(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj, level_arg, fields, funcs, args] = in.values<6>();
  const std::uint32_t level = to_uint32(level_arg);
  check_list_or_none("fields", fields);
  check_list_or_none("funcs", funcs);
  check_list_or_none("args", args);
  if (fields.is_none() || funcs.is_none() || args.is_none()) raise(InputError, list_is_none);
  const std::size_t n = list_length(fields);
  if (n != list_length(funcs) || n != list_length(args)) raise(InputError, lengths_differ);
  if (n == 0) return;

  const FieldArrays arrays = FieldArrays::allocate(n, true);
  for (std::size_t i = 0; i < n; ++i) {
    arrays.tags[i] = field_at(fields, i);
    arrays.callbacks[i] = sub_cb;
    const py::Owned arg = list_item(args, i);
    const py::Owned func = list_item(funcs, i);
    Request request(func, arg);
    request.message_class_of(obj);
    request.hand_over();
    arrays.contexts[i] = request.context();
  }
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  const std::int32_t status =
      vu_mom_subscribe_field(client.handle(), db, message, level, arrays.tags, arrays.callbacks,
                             arrays.contexts, static_cast<std::int32_t>(n));
  arrays.free();
  accept(status);
}

void unsubscribe_field(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj, level_arg, fields] = in.values<4>();
  const std::uint32_t level = to_uint32(level_arg);
  check_list_or_none("fields", fields);
  if (fields.is_none()) raise(InputError, fields_is_none);
  const std::size_t n = list_length(fields);
  if (n == 0) return;

  const FieldArrays arrays = FieldArrays::allocate(n, false);
  for (std::size_t i = 0; i < n; ++i) {
    arrays.tags[i] = field_at(fields, i);
    arrays.callbacks[i] = sub_cb;
  }
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  const std::int32_t status =
      vu_mom_unsubscribe_field(client.handle(), db, message, level, arrays.tags, arrays.callbacks,
                               nullptr, static_cast<std::int32_t>(n));
  arrays.free();
  accept(status);
}

constexpr Command kSubscribe{
    "vu_mom.VuMom.subscribe",
    {"subscribe", 4, {"db", "obj", "level", "privdata"}},
    subscribe,
    "subscribe($self, /, db, obj, level, privdata)\n--\n\n"
    "Ask for every change of the objects that match the first `level` key components of\n"
    "`obj`.\n\n"
    "Changes arrive at on_subscribe_<package>_<message>(msg, p), told by msg.type_code, until\n"
    "the one with type code 28: the subscription has ended."};

constexpr Command kUnsubscribe{
    "vu_mom.VuMom.unsubscribe",
    {"unsubscribe", 3, {"db", "obj", "level"}},
    unsubscribe,
    "unsubscribe($self, /, db, obj, level)\n--\n\n"
    "End the subscriptions that were made through the client's VuGlobal with the same `level`\n"
    "and key components. Each gets a last message, of type code 28."};

constexpr Command kSubscribeField{
    "vu_mom.VuMom.subscribe_field",
    {"subscribe_field", 6, {"db", "obj", "level", "fields", "funcs", "args"}},
    subscribe_field,
    "subscribe_field($self, /, db, obj, level, fields, funcs, args)\n--\n\n"
    "Ask for every change of single fields: those numbered in the list `fields`. A change of\n"
    "fields[i] is delivered as funcs[i](msg, args[i]).\n\n"
    "With empty lists nothing is sent. Raises InputError where a list is None or their\n"
    "lengths differ."};

constexpr Command kUnsubscribeField{
    "vu_mom.VuMom.unsubscribe_field",
    {"unsubscribe_field", 4, {"db", "obj", "level", "fields"}},
    unsubscribe_field,
    "unsubscribe_field($self, /, db, obj, level, fields)\n--\n\n"
    "End the subscriptions that were made through the client's VuGlobal to the fields\n"
    "numbered in the list `fields`.\n\n"
    "With an empty list nothing is sent. Raises InputError where `fields` is None."};

}  // namespace

std::vector<PyMethodDef> subscription_methods() {
  return {method<kSubscribe>(), method<kUnsubscribe>(), method<kSubscribeField>(),
          method<kUnsubscribeField>()};
}

}  // namespace vu_mom
