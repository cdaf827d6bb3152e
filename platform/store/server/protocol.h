// Requests as commands of a server, and what comes back as notices.
//
// The layout of keys and values is described in docs/server.md; the functions that run in
// the server are in functions/. Nothing here knows of connections. Whatever makes a text
// or a notice throws std::bad_alloc.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "../notice.h"
#include "../request.h"
#include "router.h"

struct redisReply;

namespace vu::store {

// Appends one command in the protocol's bytes.
void append_command(std::string& to, const std::vector<std::string_view>& words);

// An identity as it stands in keys: each component as readable text, followed by '/'. The
// first components of an identity give the first bytes of its text.
std::string identity_text(std::string_view identity);
void append_identity_text(std::string& text, std::string_view identity);
// And back. False where `text` is no identity of the type.
bool identity_from_text(const TypeInfo& type, std::string_view text, std::string& identity);

// What every command is made with.
struct Place {
  std::string prefix = "vu";  // without braces
  bool is_spread = false;
  std::int64_t now_us = -1;  // of a clock stopped for tests; -1: the server's
};

// The partition of an object. Says the same everywhere and for ever.
unsigned partition_of(std::int32_t db, const TypeInfo& type, std::string_view identity);

// Whether the request is one command to one partition. The others, which are requests on
// less than a whole identity, are sent to every partition where the store is spread, else
// once, to any.
bool is_on_one_partition(const Request& request);

// The command for a request. `partition` counts for those that are on none in particular:
// -1 for all of them at once. Requires: no scan, no subscription, nothing that is sent
// with others (see batch.h), and no zadd or zrem without members: those have no type, and their
// outcome is 0.
std::string encode(const Request& request, const Place& place, int partition);
bool only_reads(Command command);

// The finishing notice of a request from the reply of its server; for requests on a level
// `identities` are those of the objects that it acted on, in ascending order.
// Errors become notices with a status and what the embedded engine says. `time_us` is the notice's.
//
// Of several partitions the counts add up, and an error of the functions themselves (of
// pexpire_fields: no hash among the objects) stands only where the sum is 0.
Notice decode(const RequestHead& request, const redisReply& reply, std::int64_t time_us,
              ByteList& identities);
// The same into a new notice, without the object's identity.
void decode_nameless(const RequestHead& request, const redisReply& reply, std::int64_t time_us,
                     Notice& notice, ByteList& identities);

// One batch of a scan, from `position` on: empty at the start. `partition`: the one of its
// object where the request is on one, else as for encode.
std::string encode_scan(const Request& request, const Place& place, int partition,
                        std::string_view position, std::uint32_t most);
// Appends the objects of the batch, and says the position of the next: empty where there is
// none. There may be no object in a batch that is not the last. False, with the notice that
// fails the scan in `last`, where the reply is an error.
bool decode_scan(const Request& request, const redisReply& reply, std::int64_t time_us,
                 std::vector<Notice>& objects, std::string& position, Notice& last);

// Channels: those who watch whole objects and those who watch fields have their own.
// `prefix` are the leading components of an identity that are watched.
std::string channel_of(const Place& place, std::int32_t db, const TypeInfo& type,
                       std::string_view prefix, bool of_fields);

// Appends the notice of one message. `tag` 0: for those who watch whole objects; else, for
// a message from a channel of fields, the one for those who watch this field, which there
// may not be. False, with nothing appended, where the message cannot be read.
bool decode_event(const TypeInfo& type, std::int32_t db, std::string_view message,
                  std::uint32_t tag, std::vector<Notice>& notices);

// Lets what is due in one partition (-1: all) expire, at most `most`, the earliest first. The
// reply is how long until the next is due in microseconds, or -1.
std::string encode_sweep(const Place& place, int partition, std::uint32_t most);

// Takes or keeps the lease for sweeping, for `holder`, for `milliseconds`. The reply is 1
// where the holder has it, else 0. `partition` -1 is the lease for all of them.
std::string encode_lease(const Place& place, int partition, std::string_view holder,
                         std::uint32_t milliseconds);

// The source of the library of functions, as FUNCTION LOAD REPLACE takes it, and whether
// this is the error with which a server says that it does not have it.
std::string_view function_library();
bool says_function_is_missing(const redisReply& reply);

}  // namespace vu::store
