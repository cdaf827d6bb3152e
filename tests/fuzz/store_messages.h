// The messages that the engine is fuzzed with, and what the model knows of them.
#pragma once

#include <memory>
#include <vector>

#include "store_model.h"
#include "vu_mom_impl.h"

namespace vu::fuzz {

struct Known : Message {
  vu_mom_message address = 0;
  std::shared_ptr<const void> held;  // what lives at the address
};

// Messages that name one object. The types of different groups may be the same.
using Group = std::vector<Known>;

const std::vector<Type>& types();
const std::vector<Group>& groups();

}  // namespace vu::fuzz
