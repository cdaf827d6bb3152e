"""The 49 commands as a table, written down by hand: what each takes, does and leaves behind.

Nothing here is asked of the module. The tests in test_commands.py hold the module against
every row; a reader can hold a row against the documentation.

Columns:

  parameters  as they are written in a def: names in order, defaults
  prefix      of the reply method; None: no reply method is looked up, no context is made
  function    the one function of the store library that is called
  native      its arguments after the handle, in order. wrap, scan and sub are the three
              callbacks; context is the request context; null is a null pointer;
              callbacks and contexts are arrays. Other names are values of parameters,
              with message: the address of obj; messages, scores, tags: arrays; length:
              the number of elements of the list; seconds, microseconds: parts of time.
  context     the keys of the context, in order
  result      the class under "resobj", of vu_mom_common
  flag        the number under "flag": the end mark that ends the request
  steps       what happens to the arguments, in order. lookup and call are the two halves of
              self.__getfunc(name); package and short are obj's names; class is
              obj.__class__, pivot and obj are get_ptr() of those, address is the conversion
              of what get_ptr() returned; any other name is the conversion of that argument,
              name[i] of an element of that list. The steps run up to the library's call.
"""
import collections

Command = collections.namedtuple(
    "Command", "name parameters prefix function native context result flag steps")

REQUIRED = object()


class Row(Command):
    __slots__ = ()

    @property
    def names(self):
        return [name for name, _ in self.parameters]

    @property
    def required(self):
        return [name for name, default in self.parameters if default is REQUIRED]

    @property
    def has_context(self):
        return bool(self.context)

    @property
    def count_word(self):
        """For too few and for too many arguments."""
        if len(self.required) == len(self.parameters):
            return "exactly", "exactly"
        return "at least", "at most"


def _parameters(text):
    result = []
    for parameter in text.split(", "):
        name, equals, default = parameter.partition("=")
        result.append((name, {"0": 0, "None": None}[default] if equals else REQUIRED))
    return result


def _row(name, parameters, prefix, function, native, context, result, flag, steps):
    return Row(name, _parameters(parameters), prefix, function, native.split(),
               context.split(), result, flag, steps.split())


FIND = "lookup package short call "     # find the reply method
FIND_CLASS = FIND + "class "            # and read the message class into the context
SEND = "db obj address"                 # what every command needs of its message


def _reply(name, prefix, context, result=None, parameters="db, obj, privdata", native="",
           before="", after=""):
    """A command with one reply through wrap."""
    find = FIND_CLASS if "obj" in context.split() else FIND
    return _row(name, parameters, prefix, "vu_mom_" + name,
                "db message " + native + " wrap context",
                context, result, None, before + " " + find + SEND + " " + after)


def _send(name, function, parameters="db, obj", native="", steps=SEND):
    """A command without a reply."""
    return _row(name, parameters, None, function, "db message " + native + " null null", "", None,
                None, steps)


def _owner(name, function):
    return _row(name, "db, obj, owner, flag=0", None, function, "db flag message null null owner",
                "", None, None, "flag db obj address owner")


def _tags(name):
    return _row(name, "db, obj, field_tags", None, "vu_mom_" + name,
                "db message tags length null null", "", None, None,
                "field_tags[0] field_tags[1] " + SEND)


def _scan(name, prefix):
    return _row(name, "db, obj, level, privdata", prefix, "vu_mom_" + name,
                "db message level scan context", "p cb obj", None, None,
                "level " + FIND_CLASS + SEND)


def _expiry(name, prefix, flag, parameters, native, before):
    return _row(name, parameters, prefix, "vu_mom_" + name,
                "db message " + native + " wrap context",
                "p cb flag", None, flag, before + " " + FIND + SEND)


KEYS = [
    _reply("get", "on_get_", "p cb obj"),
    _reply("incr", "on_incr_", "p cb resobj", "IncrResult"),
    _reply("setnx", "on_setnx_", "p cb resobj", "SetnxResult"),
    _row("set", "db, obj, flag=0", None, "vu_mom_set_ext", "db flag message null null", "", None,
         None, "flag db obj address"),
    _owner("setow", "vu_mom_setow_ext"),
    _owner("delow", "vu_mom_del_ow_ext"),
    _send("delete", "vu_mom_del"),
    _send("setnx_noreply", "vu_mom_setnx_noreply"),
]

HASHES = [
    _tags("hmset"),
    _tags("hmsetnx"),
    _tags("hmupdate"),
    _reply("hmget", "on_hmget_", "p cb obj resobj", "HashResult",
           "db, obj, field_tags, privdata", "tags length", before="field_tags[0] field_tags[1]"),
    _reply("hgetall", "on_hgetall_", "p cb obj resobj", "HashResult"),
]

SCANS = [
    _scan("scan", "on_scan_"),
    _scan("scan_index", "on_scanindex_"),
]

LISTS = [
    _send("lpush", "vu_mom_lpush"),
    _send("rpush", "vu_mom_rpush"),
    _reply("lpop", "on_lpop_", "p cb obj"),
    _reply("rpop", "on_rpop_", "p cb obj"),
    _reply("llen", "on_llen_", "p cb resobj", "LlenResult"),
    _reply("lset", "on_lset_", "p cb resobj", "LsetResult", "db, obj, pos, privdata", "pos",
           after="pos"),
    _send("lrem", "vu_mom_lrem", "db, obj, count, privdata=None", "count", SEND + " count"),
    _row("linsert", "db, pivot, obj, order, privdata", "on_linsert_", "vu_mom_linsert",
         "db pivot message order wrap context", "p cb resobj", "LinsertResult", None,
         "order " + FIND + "db pivot address obj address"),
    _reply("lrange", "on_lrange_", "p cb obj resobj", "LrangeResult",
           "db, obj, start, stop, privdata", "start stop", before="start stop"),
]

SETS = [
    _send("sadd", "vu_mom_sadd"),
    _send("srem", "vu_mom_srem", "db, obj, privdata=None"),
    _reply("smembers", "on_smembers_", "p cb obj resobj", "SmembersResult"),
    _reply("scard", "on_scard_", "p cb resobj", "ScardResult"),
    _reply("sismember", "on_sismember_", "p cb resobj", "SismemberResult"),
]

SORTED_SETS = [
    _row("zadd", "db, scores, objs", None, "vu_mom_zadd", "db scores messages length null null", "",
         None, None, "objs[0] address scores[0] objs[1] address scores[1] db"),
    _row("zrem", "db, objs", None, "vu_mom_zrem", "db messages length null null", "", None, None,
         "objs[0] address objs[1] address db"),
    _reply("zcard", "on_zcard_", "p cb resobj", "ZcardResult"),
    _reply("zrank", "on_zrank_", "p cb resobj", "ZrankResult"),
    _reply("zscore", "on_zscore_", "p cb resobj", "ZscoreResult"),
    _reply("zcount", "on_zcount_", "p cb resobj", "ZcountResult", "db, obj, min, max, privdata",
           "min max", before="min max"),
    _reply("zrange", "on_zrange_", "p cb obj resobj", "ZrangeResult",
           "db, obj, start, stop, privdata", "start stop", before="start stop"),
    _reply("zrangebyscore", "on_zrangebyscore_", "p cb obj resobj", "ZrangebyscoreResult",
           "db, obj, min, max, privdata", "min max", before="min max"),
    _send("zremrangebyscore", "vu_mom_zremrangebyscore", "db, obj, min, max", "min max",
          "min max " + SEND),
    _send("zremrangebyrank", "vu_mom_zremrangebyrank", "db, obj, start, stop", "start stop",
          "start stop " + SEND),
]

EXPIRY = [
    _expiry("pexpire", "on_pexpire_", 2, "db, obj, level, time, privdata",
            "level seconds microseconds", "level time"),
    _expiry("pexpire_field", "on_pexpirefield_", 4, "db, obj, level, tag, time, privdata",
            "level tag seconds microseconds", "level tag time"),
    _expiry("pexpire_fields", "on_pexpirefields_", 4, "db, obj, level, field_tags, time, privdata",
            "level tags length seconds microseconds", "level time field_tags[0] field_tags[1]"),
    _expiry("del_expire", "on_delexpire_", 3, "db, obj, level, privdata", "level", "level"),
    _expiry("pdel", "on_pdel_", 5, "db, obj, level, privdata", "level", "level"),
]

SUBSCRIPTIONS = [
    _row("subscribe", "db, obj, level, privdata", "on_subscribe_", "vu_mom_subscribe",
         "db message level sub context", "p cb obj", None, None,
         "db level " + FIND_CLASS + "obj address"),
    _row("unsubscribe", "db, obj, level", None, "vu_mom_unsubscribe", "db message level sub null",
         "", None, None, "level " + SEND),
    # Its contexts are made in the loop, one per field, from funcs and args.
    _row("subscribe_field", "db, obj, level, fields, funcs, args", None, "vu_mom_subscribe_field",
         "db message level tags callbacks contexts length", "", None, None,
         "level fields[0] class fields[1] class " + SEND),
    _row("unsubscribe_field", "db, obj, level, fields", None, "vu_mom_unsubscribe_field",
         "db message level tags callbacks null length", "", None, None,
         "level fields[0] fields[1] " + SEND),
]

PUBLISHING = [
    _send("publish", "vu_mom_publish"),
]

COMMANDS = (KEYS + HASHES + SCANS + LISTS + SETS + SORTED_SETS + EXPIRY + SUBSCRIPTIONS
            + PUBLISHING)

BY_NAME = dict((row.name, row) for row in COMMANDS)

# Commands whose status is mapped to exceptions as everywhere: all but one.
SWALLOWS_FAILURE = "publish"

# The widths of numbers, by parameter name. Lists hold what their elements are.
INT32 = "int32"
UINT32 = "uint32"
INT64 = "int64"
SIZE = "size"
DOUBLE = "double"
KINDS = {
    "db": INT32, "flag": INT32, "order": INT32, "start": INT32, "stop": INT32, "pos": INT32,
    "tag": INT32, "level": UINT32, "owner": INT64, "count": SIZE, "min": DOUBLE, "max": DOUBLE,
    "time": DOUBLE,
}
LISTS_OF = {"field_tags": SIZE, "fields": SIZE, "scores": DOUBLE, "objs": None, "funcs": None,
            "args": None}

# Reply methods: every row with a prefix.
REPLYING = [row for row in COMMANDS if row.prefix]
# Those whose reply comes through wrap, with how the result is built from the data.
WRAPPED = [row for row in REPLYING if "wrap" in row.native]
