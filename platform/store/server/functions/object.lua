#!lua name=vu_mom_2
-- What runs inside the server: each function is one atomic step of the store, its events
-- included. docs/server.md describes the keys, the functions and their arguments.
--
-- Calls run one at a time, so the object at hand is kept in variables of the library and
-- not in tables made for each call.

-- Of the server. There is nothing of this while it loads the library.
local call, pcall
local byte, char, find, format, match, sub
local floor, max, min
local concat, sort

-- Why a function refuses. Nothing has changed then.
local HELD = {err = 'VUOWNER held'}
local NOT_OWNED = {err = 'VUOWNER other'}
local COUNTED_OUT = {err = 'VUCOUNT'}
local WRONG_KIND = {
  value = {err = 'VUKIND value'},
  hash = {err = 'VUKIND hash'},
  list = {err = 'VUKIND list'},
  set = {err = 'VUKIND set'},
  zset = {err = 'VUKIND zset'},
}

-- Of the call.
local now      -- microseconds since 1970, once asked for
local now_text -- the same as text, once asked for
local stopped  -- the time is one that the client gave
local spread   -- the store is a cluster: who listens is not known here

-- Of the object.
local key, meta_key  -- PREFIX:{PARTITION}:DB:TYPE:IDENTITY
local kind           -- nil: nothing, or a single value without lifetime and owner
local deadline       -- nil: none
local more           -- of a value its owner; of a hash 'fields' where some have deadlines
local prefix, part, shelf, ident  -- of its key; part is the partition, shelf DB:TYPE
local levels         -- how many channels of either sort it has; nil: not asked who listens

local function bind()
  call, pcall = redis.call, redis.pcall
  byte, char, find = string.byte, string.char, string.find
  format, match, sub = string.format, string.match, string.sub
  floor, max, min = math.floor, math.max, math.min
  concat, sort = table.concat, table.sort
end

local function begin(args)
  if not call then bind() end
  now, now_text = tonumber(args[1]), nil
  stopped = now ~= nil
  spread = args[2] ~= ''
end

local function clock()
  if not now then
    local time = call('TIME')
    now = time[1] * 1000000 + time[2]
  end
  return now
end

-- Without the way over a number where nobody else asks for the time.
local function clock_text()
  if not now_text then
    if now then
      now_text = format('%.0f', now)
    else
      local time = call('TIME')
      now_text = time[1] .. format('%06d', time[2])
    end
  end
  return now_text
end

-- The end of a lifetime that begins now. By the server's clock in whole milliseconds, as
-- native reads see it.
local function deadline_after(lifetime)
  local at = clock() + lifetime
  return stopped and at or floor(at / 1000) * 1000
end

-- Takes up the object under a key, with what its meta key says of it.
local function adopt(name, meta)
  key, meta_key = name, name .. '!meta'
  prefix, levels = nil, nil
  if not meta then
    kind, deadline, more = nil, nil, ''
    return
  end
  local at
  kind, at, more = match(meta, '^(%a+):(%d*):(.*)$')
  deadline = tonumber(at)
end

local function names()
  if not prefix then
    prefix, part, shelf, ident = match(key, '^(.-){(%d+)}:(%d+:[^:]+):(.*)$')
  end
end

local function own_key(name) return prefix .. '{' .. part .. '}!' .. name end

local function index_key() return prefix .. '{' .. part .. '}!index:' .. shelf end

local function due_member(tag)
  if tag then return format('%s:%s#%09d', shelf, ident, tag) end
  return shelf .. ':' .. ident .. '#object'
end

-- Whether something that has no meta key is stored.
local function is_plain() return call('EXISTS', key) == 1 end

-- The error for a command on another kind, which must not be that of single values. Asks
-- whether the object is there only where it may be.
local function other_than(wanted)
  if kind == wanted then return nil end
  if kind then return WRONG_KIND[kind] end
  if is_plain() then return WRONG_KIND.value end
end

local function save()
  if kind == 'value' and not deadline and more == '' then
    call('DEL', meta_key)
    kind = nil
  elseif deadline then
    call('SET', meta_key, format('%s:%.0f:%s', kind, deadline, more))
  else
    call('SET', meta_key, kind .. '::' .. more)
  end
end

-- Puts a new object into the index, under its meta key where it is of such a kind.
local function enter(new_kind)
  names()
  call('ZADD', index_key(), 0, ident)
  if new_kind then
    kind = new_kind
    call('SET', meta_key, new_kind .. '::')
  end
end

local function set_deadline(at)
  names()
  deadline = at
  kind = kind or 'value'
  save()
  -- Goes by itself when the object's time has come: how a native read sees that it has.
  call('SET', key .. '!live', '', 'PXAT', max(floor(at / 1000) - 1, 1))
  call('ZADD', own_key('due'), at, due_member())
end

local function clear_deadline()
  if not deadline then return end
  names()
  deadline = nil
  save()
  call('DEL', key .. '!live')
  call('ZREM', own_key('due'), due_member())
end

local function set_field_deadline(tag, at)
  names()
  call('ZADD', key .. '!fields', at, tag)
  call('ZADD', own_key('due'), at, due_member(tag))
end

-- Requires: more == 'fields'.
local function clear_field_deadline(tag)
  if call('ZREM', key .. '!fields', tag) == 0 then return end
  names()
  call('ZREM', own_key('due'), due_member(tag))
end

-- After clear_field_deadline.
local function note_field_deadlines()
  if call('EXISTS', key .. '!fields') == 1 then return end
  more = ''
  save()
end

-- Takes the object away with all that belongs to it, told or not.
local function remove()
  names()
  if deadline then call('ZREM', own_key('due'), due_member()) end
  if more == 'fields' then
    for _, tag in ipairs(call('ZRANGE', key .. '!fields', 0, -1)) do
      call('ZREM', own_key('due'), due_member(tag))
    end
  end
  if kind then
    call('DEL', key, meta_key, key .. '!live', key .. '!fields')
  else
    call('DEL', key)
  end
  call('ZREM', index_key(), ident)
  kind, deadline, more = nil, nil, ''
end

-- What has lost elements: gone with the last of them, without an event of its own. Says
-- whether it is still there.
local function settle()
  if call('EXISTS', key) == 1 then return true end
  remove()
  return false
end

-- Calls a command of the server on pieces of a long list of arguments: what Lua can pass at
-- once is bounded. The sum of what it returns.
local PIECE = 4000
local function call_in_pieces(name, list, first, last)
  if last - first < PIECE then return call(name, key, unpack(list, first, last)) end
  local sum = 0
  for from = first, last, PIECE do
    sum = sum + call(name, key, unpack(list, from, min(from + PIECE - 1, last)))
  end
  return sum
end

-- Registers a function that changes something. Those that make room may run when the
-- server has no memory left.
local function writes(name, body, makes_room)
  redis.register_function{
    function_name = 'vu2_' .. name, callback = body, flags = makes_room and {'allow-oom'} or {}}
end

local function reads(name, body)
  redis.register_function{function_name = 'vu2_' .. name, callback = body, flags = {'no-writes'}}
end

