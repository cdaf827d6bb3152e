#include "router.h"

#include "cluster_router.h"
#include "router_core.h"

namespace vu::store {

namespace {

// All partitions on one server, found by Sentinels or known.
class ServerRouter final : public RouterCore {
 public:
  ServerRouter(const Address& address, uv_loop_t* loop, Listener& listener)
      : RouterCore(address, loop, listener, 1) {
    groups().front().lane = &add_lane(address.endpoints.front());
  }
};

}  // namespace

std::unique_ptr<Router> make_router(const Address& address, uv_loop_t* loop,
                                    Router::Listener& listener) {
  if (address.kind == Address::Kind::kCluster) {
    return std::make_unique<ClusterRouter>(address, loop, listener);
  }
  return std::make_unique<ServerRouter>(address, loop, listener);
}

}  // namespace vu::store
