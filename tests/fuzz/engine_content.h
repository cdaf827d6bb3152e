// What the engine delivers, in the words of the model.
#pragma once

#include <cstdint>
#include <string>

#include "store_model.h"
#include "vu_platform.h"

namespace vu::fuzz {

// Whether to tell what is done: VU_FUZZ_TELL=1 vu_replay_engine ...
bool tells();

// What a reply or an event carries. Ends the run where a message in it is not live.
Content content_of(const vu_mom_reply& reply);

// The identity of the object that a record names; empty where it names none.
std::string identity_of(const vu_platform_details& details);

// On stderr, below `what`.
void show(const char* what, const Content& content);

// Ends the run with `what` where they differ; in any order where `unordered`.
void check_content(Content found, const Content& wanted, bool unordered, const char* what);

// That a record is of the database, and names the object, or none where `name` is null.
void check_names(const vu_platform_details& details, std::int32_t db, const Name* name);

}  // namespace vu::fuzz
