#include "engine.h"

#include <memory>
#include <utility>

#include "embedded/embedded_engine.h"
#include "server/address.h"
#include "server/server_engine.h"

namespace vu::store {

Engine::~Engine() = default;

std::unique_ptr<Engine> make_engine(const std::string& store, uv_loop_s* loop, Session& session,
                                    std::string& error) {
  static const std::string kEmbedded = "embedded:";
  if (store.starts_with(kEmbedded)) {
    return std::make_unique<EmbeddedEngine>(store.substr(kEmbedded.size()), session);
  }
  if (is_server_store(store)) {
    std::shared_ptr<ServerStore> shared = ServerStore::at(store, loop, error);
    if (!shared) return nullptr;
    return std::make_unique<ServerEngine>(std::move(shared), session);
  }
  error =
      "unknown kind of store '" + store +
      "': it begins with none of embedded:, redis:, redis+unix:, redis+sentinel:, redis+cluster:";
  return nullptr;
}

}  // namespace vu::store
