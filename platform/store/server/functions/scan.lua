-- Scans, one batch at a time. A position is "PARTITION:IDENTITY", what was read last.

local BATCH_BYTES = 1048576

-- The value of the object at hand, which is of another kind than a single value, and its
-- size.
local function read_body()
  local body
  if kind == 'hash' then body = living_fields()
  elseif kind == 'list' then body = call('LRANGE', key, 0, -1)
  elseif kind == 'set' then body = call('SMEMBERS', key)
  else body = call('ZRANGE', key, 0, -1, 'WITHSCORES') end
  local size = 0
  for i = 1, #body do size = size + #body[i] end
  return body, size
end

-- Appends what is alive of some identities of one partition. The last identity that was
-- read, and the bytes read altogether.
local function read_batch(reply, found, in_prefix, in_part, in_shelf, keys_only, bytes)
  local wanted = {}
  local base = in_prefix .. '{' .. in_part .. '}:' .. in_shelf .. ':'
  for i = 1, #found do
    wanted[2 * i - 1] = base .. found[i] .. '!meta'
    wanted[2 * i] = base .. found[i]
  end
  local values = call('MGET', unpack(wanted))
  for i = 1, #found do
    local meta, value = values[2 * i - 1], values[2 * i]
    -- A server that evicts keys may have left no more than the index.
    local name, ended = 'value', not value
    if meta then
      adopt_in(in_prefix, in_part, in_shelf, found[i], meta)
      name, ended = kind, has_ended()
    end
    if not ended then
      reply[#reply + 1] = found[i]
      if not keys_only then
        local size
        if name == 'value' then size = #value else value, size = read_body() end
        reply[#reply + 1] = name
        reply[#reply + 1] = value
        bytes = bytes + size
      end
    end
    if bytes > BATCH_BYTES then return found[i], bytes end
  end
  return found[#found], bytes
end

-- KEYS[1], the third and the fourth argument as for commands on a level; then the position
-- to go on from or '', how many objects at most (1000 at the most), and 'keys' or 'values'.
-- The next position, '' at the end, and of each object the identity, or the identity, the
-- kind and the value.
reads('scan', function(keys, args)
  begin(args)
  local in_prefix, first, in_shelf = match(keys[1], '^(.-){(%d+)}!index:(.*)$')
  local text, most, keys_only = args[4], tonumber(args[6]), args[7] == 'keys'
  local last = args[3] == 'all' and PARTITIONS - 1 or tonumber(first)
  local at, position = match(args[5], '^(%d+):(.*)$')
  at = tonumber(at or first)
  local reply, read, bytes = {''}, 0, 0
  while at <= last do
    local low, high = bounds(text, position)
    local found = call('ZRANGEBYLEX', in_prefix .. '{' .. at .. '}!index:' .. in_shelf, low, high,
                       'LIMIT', 0, most - read)
    if #found > 0 then
      read = read + #found
      position, bytes = read_batch(reply, found, in_prefix, at, in_shelf, keys_only, bytes)
      if read >= most or bytes > BATCH_BYTES then
        reply[1] = at .. ':' .. position
        return reply
      end
    end
    at, position = at + 1, nil
  end
  return reply
end)

