// What a request is told where its server did not say it.
#pragma once

#include <cstdint>

#include "../clock.h"
#include "../notice.h"
#include "../request.h"
#include "router.h"

namespace vu::store {

// The end mark of the finishing reply.
std::uint32_t end_mark_of(Command command);

// The finishing reply to a request, without content; takes the request's identity.
Notice bare_reply(RequestHead& request, const Clock& clock) noexcept;

// The same, as an error for which no memory is needed.
Notice out_of_memory_reply(RequestHead& request, const Clock& clock) noexcept;

// "not done: REASON" or "unknown: REASON". What only reads is never unknown. Throws
// std::bad_alloc.
std::string text_of(const Outcome& outcome, bool only_reads);

}  // namespace vu::store
