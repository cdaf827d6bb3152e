#include "commands/shapes.h"

#include "client/numbers.h"
#include "client/reply.h"
#include "client/request.h"
#include "client/status.h"

namespace vu_mom {
namespace {

// The last steps of every (db, obj, privdata) command with a reply.
void send_request(VuMom& client, Request& request, py::Borrowed db_arg, py::Borrowed obj,
                  MessageFunction function) {
  request.hand_over();
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  accept(function(client.handle(), db, message, wrap_cb, request.context()));
}

}  // namespace

void send(VuMom& client, const Arguments& in, MessageFunction function) {
  const auto [db_arg, obj] = in.values<2>();
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  accept(function(client.handle(), db, message, nullptr, nullptr));
}

void reply_with_message(VuMom& client, const Arguments& in, const ReplyPrefix& prefix,
                        MessageFunction function) {
  const auto [db_arg, obj, privdata] = in.values<3>();
  Request request(client, prefix, obj, privdata);
  request.message_class_of(obj);
  send_request(client, request, db_arg, obj, function);
}

void reply_with_result(VuMom& client, const Arguments& in, const ReplyPrefix& prefix,
                       PyTypeObject* result_class, MessageFunction function) {
  const auto [db_arg, obj, privdata] = in.values<3>();
  Request request(client, prefix, obj, privdata);
  request.result_class(result_class);
  send_request(client, request, db_arg, obj, function);
}

void reply_with_messages(VuMom& client, const Arguments& in, const ReplyPrefix& prefix,
                         PyTypeObject* result_class, MessageFunction function) {
  const auto [db_arg, obj, privdata] = in.values<3>();
  Request request(client, prefix, obj, privdata);
  request.message_class_of(obj).result_class(result_class);
  send_request(client, request, db_arg, obj, function);
}

}  // namespace vu_mom
