#include "replies.h"

#include <string>
#include <utility>

namespace vu::store {

std::uint32_t end_mark_of(Command command) {
  switch (command) {
    case Command::kScan:
    case Command::kScanIndex:
      return VU_MOM_END_SCAN;
    case Command::kPexpire:
      return VU_MOM_END_PEXPIRE;
    case Command::kPexpireFields:
      return VU_MOM_END_PEXPIRE_FIELD;
    case Command::kDelExpire:
      return VU_MOM_END_DEL_EXPIRE;
    case Command::kPdel:
      return VU_MOM_END_PDEL;
    default:
      return 0;
  }
}

Notice bare_reply(RequestHead& request, const Clock& clock) noexcept {
  Notice notice;
  notice.time_us = clock.calendar();
  notice.db = request.db;
  notice.end_mark = end_mark_of(request.command);
  notice.names_object = notice.end_mark != VU_MOM_END_SCAN;
  if (notice.names_object) notice.identity = std::move(request.identity);
  return notice;
}

Notice out_of_memory_reply(RequestHead& request, const Clock& clock) noexcept {
  Notice notice = bare_reply(request, clock);
  notice.status = VU_MOM_NO_MEMORY;
  notice.error = "out of memory";  // as short as a string may be without memory of its own
  return notice;
}

std::string text_of(const Outcome& outcome, bool only_reads) {
  const bool is_unknown = outcome.kind == Outcome::Kind::kUnknown && !only_reads;
  return std::string(is_unknown ? "unknown: " : "not done: ") + outcome.reason;
}

}  // namespace vu::store
