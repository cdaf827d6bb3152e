-- Sorted sets: under the object's key a sorted set of whole messages.

-- Parts of an event from a reply of members with their scores.
local function scored(found)
  local parts = {}
  for i = 1, #found, 2 do parts[#parts + 1] = item(found[i + 1], found[i]) end
  return concat(parts)
end

-- Pairs of score and member, each member once. How many are new.
writes('zadd', function(keys, args)
  open(keys, args)
  if kind ~= 'zset' then
    local wrong = other_than('zset')
    if wrong then return wrong end
  end
  listen(false)
  local changed
  if any_whole then
    changed = {}
    for i = 3, #args, 2 do
      local old = kind and call('ZSCORE', key, args[i + 1])
      if not old or tonumber(old) ~= tonumber(args[i]) then
        changed[#changed + 1] = item(args[i], args[i + 1])
      end
    end
  end
  local added = call_in_pieces('ZADD', args, 3, #args)
  if not kind then enter('zset') end
  if changed and #changed > 0 then tell(39, 'z', concat(changed)) end
  return added
end)

-- Members, each once. How many are gone.
writes('zrem', function(keys, args)
  local wrong = open_as('zset', keys, args)
  if wrong then return wrong end
  if not kind then return 0 end
  listen(false)
  local gone = {}
  if any_whole then
    for i = 3, #args do
      local score = call('ZSCORE', key, args[i])
      if score then gone[#gone + 1] = item(score, args[i]) end
    end
  end
  local count = call_in_pieces('ZREM', args, 3, #args)
  if count == 0 then return 0 end
  if any_whole then tell(40, 'z', concat(gone)) end
  settle()
  return count
end, true)

-- Two bounds, inclusive; `by` and `removing` are the server's commands for them.
local function remove_range(code, by, removing, keys, args)
  local wrong = open_as('zset', keys, args)
  if wrong then return wrong end
  if not kind then return 0 end
  listen(false)
  local gone
  if any_whole then gone = scored(call(by, key, args[3], args[4], 'WITHSCORES')) end
  local count = call(removing, key, args[3], args[4])
  if count == 0 then return 0 end
  if gone then tell(code, 'z', gone) end
  settle()
  return count
end

writes('zremrangebyscore', function(keys, args)
  return remove_range(41, 'ZRANGEBYSCORE', 'ZREMRANGEBYSCORE', keys, args)
end, true)

writes('zremrangebyrank', function(keys, args)
  return remove_range(42, 'ZRANGE', 'ZREMRANGEBYRANK', keys, args)
end, true)

reads('zcard', function(keys, args)
  local wrong = look_as('zset', keys, args)
  return wrong or kind and call('ZCARD', key) or 0
end)

-- member: nil where it is none.
reads('zrank', function(keys, args)
  local wrong = look_as('zset', keys, args)
  return wrong or kind and call('ZRANK', key, args[3])
end)

reads('zscore', function(keys, args)
  local wrong = look_as('zset', keys, args)
  return wrong or kind and call('ZSCORE', key, args[3])
end)

reads('zcount', function(keys, args)
  local wrong = look_as('zset', keys, args)
  return wrong or kind and call('ZCOUNT', key, args[3], args[4]) or 0
end)

-- Members, each followed by its score.
reads('zrange', function(keys, args)
  local wrong = look_as('zset', keys, args)
  return wrong or kind and call('ZRANGE', key, args[3], args[4], 'WITHSCORES') or {}
end)

reads('zrangebyscore', function(keys, args)
  local wrong = look_as('zset', keys, args)
  return wrong or kind and call('ZRANGEBYSCORE', key, args[3], args[4], 'WITHSCORES') or {}
end)

