-- Lists and sets: under the object's key a list or a set of stored messages.

-- Adds to a list or set of the wanted kind, which may be new. What the server's command
-- replies, or the error.
local function add(wanted, name, value)
  if kind then
    if kind ~= wanted then return nil, WRONG_KIND[kind] end
    return call(name, key, value)
  end
  local reply = pcall(name, key, value)
  if type(reply) == 'table' then
    if find(reply.err, 'WRONGTYPE', 1, true) then return nil, WRONG_KIND.value end
    return nil, reply
  end
  enter(wanted)
  return reply
end

local function push(name, code, keys, args)
  open(keys, args)
  local length, wrong = add('list', name, args[3])
  if wrong then return wrong end
  tell_element(code, args[3])
  return length
end

local function pop(name, code, keys, args)
  local wrong = open_as('list', keys, args)
  if wrong then return wrong end
  if not kind then return false end
  local value = call(name, key)
  if value then tell_element(code, value) end
  settle()
  return value
end

writes('lpush', function(keys, args) return push('LPUSH', 10, keys, args) end)
writes('rpush', function(keys, args) return push('RPUSH', 11, keys, args) end)
writes('lpop', function(keys, args) return pop('LPOP', 12, keys, args) end, true)
writes('rpop', function(keys, args) return pop('RPOP', 13, keys, args) end, true)

-- value, position: 0 where there is no such position.
writes('lset', function(keys, args)
  local wrong = open_as('list', keys, args)
  if wrong then return wrong end
  if not kind then return 0 end
  local length, position = call('LLEN', key), tonumber(args[4])
  if position >= length or position < -length then return 0 end
  call('LSET', key, position, args[3])
  tell_element(35, args[3])
  return 1
end)

-- value, count.
writes('lrem', function(keys, args)
  local wrong = open_as('list', keys, args)
  if wrong then return wrong end
  if not kind then return 0 end
  local count = call('LREM', key, args[4], args[3])
  if count == 0 then return 0 end
  tell_element(36, args[3], count)
  settle()
  return count
end, true)

-- value, pivot, 'BEFORE' or 'AFTER': the new length, 0 without a list, -1 without the pivot.
writes('linsert', function(keys, args)
  local wrong = open_as('list', keys, args)
  if wrong then return wrong end
  if not kind then return 0 end
  local length = call('LINSERT', key, args[5], args[4], args[3])
  if length < 0 then return length end
  tell_element(34, args[3])
  return length
end)

reads('llen', function(keys, args)
  local wrong = look_as('list', keys, args)
  return wrong or kind and call('LLEN', key) or 0
end)

-- first, last position.
reads('lrange', function(keys, args)
  local wrong = look_as('list', keys, args)
  return wrong or kind and call('LRANGE', key, args[3], args[4]) or {}
end)

writes('sadd', function(keys, args)
  open(keys, args)
  local added, wrong = add('set', 'SADD', args[3])
  if wrong then return wrong end
  if added == 0 then return 0 end
  tell_element(18, args[3])
  return 1
end)

writes('srem', function(keys, args)
  local wrong = open_as('set', keys, args)
  if wrong then return wrong end
  if not kind or call('SREM', key, args[3]) == 0 then return 0 end
  tell_element(19, args[3])
  settle()
  return 1
end, true)

reads('smembers', function(keys, args)
  local wrong = look_as('set', keys, args)
  return wrong or kind and call('SMEMBERS', key) or {}
end)

reads('scard', function(keys, args)
  local wrong = look_as('set', keys, args)
  return wrong or kind and call('SCARD', key) or 0
end)

reads('sismember', function(keys, args)
  local wrong = look_as('set', keys, args)
  return wrong or kind and call('SISMEMBER', key, args[3]) or 0
end)

