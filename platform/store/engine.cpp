#include "engine.h"

#include "embedded/embedded_engine.h"

namespace vu::store {

Engine::~Engine() = default;

std::unique_ptr<Engine> make_engine(const std::string& store, uv_loop_s*, Session& session,
                                    std::string& error) {
  static const std::string kEmbedded = "embedded:";
  if (store.starts_with(kEmbedded)) {
    return std::make_unique<EmbeddedEngine>(store.substr(kEmbedded.size()), session);
  }
  error = "unknown kind of store '" + store + "': it begins with none of embedded:";
  return nullptr;
}

}  // namespace vu::store
