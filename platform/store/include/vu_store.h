/* What the platform's store means where the command interface leaves it to the store.
 * Both the engines and those who write applications go by this.
 *
 * Stores
 *
 *  1. "embedded:NAME" is a store in this process. Handles of one name share it; it is made
 *     by the first and goes, with all that is in it, when the last of them is closed.
 *     "embedded:" is the store of the empty name, and shared in the same way.
 *
 *  2. Messages are read through reflection. The descriptors and the message factory of
 *     every message that was ever passed must live as long as the process. Types of one
 *     full name are one type, whatever pool they come from.
 *
 * Replies. Replies of values carry the type code that a scan gives to their kind (lpop and
 * rpop: their own); all others carry VU_MOM_TYPE_NONE.
 *
 *  3. Nothing stored: get, hgetall, hmget, lpop and rpop reply without data, and so do
 *     zrank and zscore of what is no member. lrange, smembers, zrange and zrangebyscore
 *     reply with no messages; llen, scard, zcard, zcount, sismember and lset with 0.
 *
 *  4. setnx: 1 stored, 0 not. lset: 1 replaced, 0 no such position. linsert: the new
 *     length, 0 nothing stored, -1 the pivot is not in the list. sismember: 1 or 0.
 *     zrank counts from 0, in ascending order.
 *
 *  5. A callback given to a command that otherwise replies nothing gets one integer: set,
 *     setow, setnx_noreply, delow, del: 1 done, 0 not; hmset, hmupdate: how many fields
 *     were written or deleted; hmsetnx: 1 or 0; lpush, rpush: the new length; lrem, srem,
 *     sadd, zrem, zremrange*: how many elements came or went; zadd: how many members are
 *     new; publish: how many subscriptions it reached.
 *
 *  6. An object of another kind, another owner, a counter that cannot grow: a reply without
 *     data and with VU_MOM_FAILED and a text in its details. Without a callback: nothing.
 *
 *  7. On a level: one reply for each object that was acted on, then the last. pexpire,
 *     del_expire and pdel act on every kind; pexpire_field(s) on hashes that have one of
 *     the fields. Where there are objects of other kinds only, the last reply has an error.
 *
 *  8. A hash reply names in `tags` the fields asked for, or all there are; its message
 *     also carries the key fields. Key fields are fields of a hash as others are.
 *
 * Changes
 *
 *  9. Deletions, lifetimes and publish ask neither kind nor owner. set, incr and setnx do
 *     not ask for the owner and leave it as it is; setow takes what nobody holds. setnx of
 *     another kind is an error.
 *
 * 10. incr of nothing stores the message with its counter at 1 (one more than the field's
 *     declared default). A counter grows to the largest value of its field, a 64-bit
 *     unsigned one to 2^63 - 1.
 *
 * 11. set and setow without VU_STORE_KEEP_LIFETIME, and hmset that names no fields, clear
 *     the lifetime of the object; no other write does. del_expire clears the object's, not
 *     those of its fields.
 *
 * 12. Hashes, lists, sets and sorted sets cease to exist with their last field or element.
 *
 * 13. Elements and members have the key fields of the object that they are in: messages
 *     that name different objects, in one zadd, zrem or linsert, are VU_MOM_BAD_INPUT.
 *     Where a zadd names a member twice, the last score counts. A score of -0 is 0.
 *
 * Events. One for each change, none where nothing changed.
 *
 * 14. hmset, hmsetnx, hmupdate: the named fields in `tags`, the message carries those
 *     written. Lists and sets: the elements that came or went, lrem one for each. Sorted
 *     sets: the members that came, moved or went, with their scores.
 *
 * 15. An object that goes with its last element or field has no event beside the element's
 *     own. What ends at one moment is told in the order of deadlines, then of field
 *     numbers, the object last. A field that expires is told to subscribers of the whole object too: type code
 *     0, with the field in `tag`.
 *
 * 16. To a field: the type code of the write, with a hash payload of that field alone, or
 *     for single values with a message of that field (and the key fields) alone (incr of a
 *     stored object writes its counter only); or 29
 *     deleted, also by a set without it or with its object; or 0 expired, also with its
 *     object. Neither of the last two carries data. publish is not told to fields.
 *
 * 17. unsubscribe ends subscriptions to whole objects, unsubscribe_field those to the named
 *     fields. What happened before is delivered before the end. Ends name no object.
 *
 * Delivery
 *
 * 18. Replies and events of one handle come in the order of what caused them; a scan keeps
 *     back what comes behind it. A scan reads each object when it delivers it, in the order
 *     of identities, once. After 256 replies of one request a call of vu_platform_deliver
 *     returns, however many it may deliver.
 *
 * 19. With 2^20 deliveries waiting, requests with a callback are refused (VU_MOM_FAILED).
 *     Events are never refused.
 *
 * 20. Closing turns replies not yet delivered into errors; events not yet delivered come
 *     before the ends. The ends carry the reason.
 *
 * Stores on servers ("redis:...", see docs/server.md) mean the same, but for what follows
 * from a server being elsewhere:
 *
 * 21. Handles of one address on one event loop share their connections. What this process
 *     does keeps the order of its calls, subscriptions included: one hears exactly the
 *     changes that this process causes after it was made and before it is ended. Replies
 *     and events come by two connections: each in its order, but a reply may come before
 *     the events of what was done earlier, or behind those of what was done later.
 *
 * 22. A scan reads a batch of objects at a time, up to two of them ahead of their delivery.
 *     In a cluster it goes on from partition to partition, not in the order of identities.
 *
 * 23. publish counts, for each level of the object, the processes that subscribe there.
 *
 * 24. A closed handle hears the events that had arrived before. What was accepted from it is
 *     carried out as long as another handle keeps the store open; closing the last one waits
 *     for nothing, and what had no reply by then may have been carried out or not.
 *
 * 25. A request that gets no reply from its server completes with VU_MOM_FAILED and a text:
 *     "not done: ..." where it is certain that nothing was changed, "unknown: ..." where
 *     nobody can know. Nothing is repeated but what only reads.
 *
 * 26. Where events may have been missed, every subscription concerned gets one event of type
 *     code VU_MOM_TYPE_NONE with VU_MOM_FAILED and a text, which names no object.
 *
 * 27. Beside 19, requests are refused while 2^20 commands of the process have no reply, or
 *     256 MiB of them are not yet sent. With 65536 deliveries waiting in a handle, further
 *     events wait in the server, which ends the connection where they become too many: then
 *     26 applies.
 *
 * Compiles as C11 and as C++.
 */
#ifndef VU_STORE_H
#define VU_STORE_H

/* The bits of `flag` of vu_mom_set_ext, vu_mom_setow_ext and vu_mom_del_ow_ext. A bit
 * without a name here is VU_MOM_BAD_INPUT. A null `flag` is 0; it is never written. */
enum {
  VU_STORE_QUIET = 1,        /* no change event */
  VU_STORE_KEEP_LIFETIME = 2 /* the object keeps the lifetime it has; no effect on deletions */
};

#endif
