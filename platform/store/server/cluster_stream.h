// Messages from the channels of a cluster.
//
// All members hand on what one of them publishes, so one connection hears everything; but
// what another member publishes comes over the bus between them, later than the reply to
// whoever caused it. So a mark is a message of its own, published through the master of
// each partition: it comes behind all that this master has published before.
#pragma once

#include <memory>

#include "event_stream.h"

namespace vu::store {

// The stream of one server, or of any member of a cluster.
std::unique_ptr<EventStream> make_server_stream(const Address& address, uv_loop_s* loop,
                                                EventStream::Listener& listener);

std::unique_ptr<EventStream> make_cluster_stream(const Address& address, uv_loop_s* loop,
                                                 EventStream::Listener& listener);

}  // namespace vu::store
