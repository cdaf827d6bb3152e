// PUBLISH: a message to the subscribers of the object it names.
#include "client/numbers.h"
#include "client/status.h"
#include "commands/commands.h"

namespace vu_mom {
namespace {

// A failure of the store other than bad input or lack of memory is not reported: nobody
// waits for what was published.
void publish(VuMom& client, const Arguments& in) {
  const auto [db_arg, obj] = in.values<2>();
  const std::int32_t db = to_int32(db_arg);
  const vu_mom_message message = message_address(obj);
  accept_unless_refused(vu_mom_publish(client.handle(), db, message, nullptr, nullptr));
}

constexpr Command kPublish{
    "vu_mom.VuMom.publish",
    {"publish", 2, {"db", "obj"}},
    publish,
    "publish($self, /, db, obj)\n--\n\n"
    "Deliver `obj` to the subscribers of the object it names, at all their levels. Stores\n"
    "nothing. No reply.\n\n"
    "Never raises Error: a store that cannot deliver it drops it."};

}  // namespace

std::vector<PyMethodDef> publishing_methods() { return {method<kPublish>()}; }

}  // namespace vu_mom
