// Bodies that several commands share, named after their order of steps. A command whose
// order differs in any way is written out in its family's file.
#pragma once

#include "client/arguments.h"
#include "client/client.h"
#include "client/request.h"

namespace vu_mom {

// The store functions that take nothing but a message.
using MessageFunction = std::int32_t (*)(vu_mom_handle*, std::int32_t db, vu_mom_message,
                                         vu_mom_reply_cb, void* privdata);

// (db, obj): no reply. A third argument is taken and ignored.
void send(VuMom& client, const Arguments& in, MessageFunction function);

// (db, obj, privdata): the reply is an object of the message's class.
void reply_with_message(VuMom& client, const Arguments& in, const ReplyPrefix& prefix,
                        MessageFunction function);

// (db, obj, privdata): the reply is a result.
void reply_with_result(VuMom& client, const Arguments& in, const ReplyPrefix& prefix,
                       PyTypeObject* result_class, MessageFunction function);

// (db, obj, privdata): the reply is a result that holds messages of the message's class.
void reply_with_messages(VuMom& client, const Arguments& in, const ReplyPrefix& prefix,
                         PyTypeObject* result_class, MessageFunction function);

}  // namespace vu_mom
