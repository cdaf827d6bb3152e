-- What ends by itself, for whoever holds the lease.

-- Adds what is due in one partition to a list of {deadline, member, partition}; the next
-- deadline after now, or nil.
local function find_due(due, base, at, most)
  local zset = base .. '{' .. at .. '}!due'
  local found = call('ZRANGE', zset, 0, most, 'WITHSCORES')
  for i = 1, #found, 2 do
    local deadline_at = tonumber(found[i + 1])
    if deadline_at > clock() then return deadline_at end
    due[#due + 1] = {deadline_at, found[i], at}
  end
end

local function end_one(base, at, member)
  local in_shelf, identity, what = match(member, '^(%d+:[^:]+):(.*)#(.*)$')
  local name = base .. '{' .. at .. '}:' .. in_shelf .. ':' .. identity
  call('ZREM', base .. '{' .. at .. '}!due', member)
  adopt_in(base, at, in_shelf, identity, call('GET', name .. '!meta'))
  if what == 'object' then
    if not deadline then return end
    tell_gone(0)
    remove()
  elseif more == 'fields' then
    local tag = format('%d', what)
    tell_field_expired(tag)
    drop_field(tag)
  end
end

-- KEYS[1] is the due key of the partition, or with 'all' as third argument of any: all are
-- on this server. At most the fourth argument. Microseconds until the next, or -1.
writes('sweep', function(keys, args)
  begin(args)
  local base, first = match(keys[1], '^(.-){(%d+)}!due$')
  local last = first
  if args[3] == 'all' then first, last = 0, PARTITIONS - 1 end
  local most = tonumber(args[4])
  local due, next_at = {}, nil
  for at = first, last do
    local later = find_due(due, base, at, most)
    if later and (not next_at or later < next_at) then next_at = later end
  end
  sort(due, by_deadline)
  for i = 1, min(#due, most) do end_one(base, due[i][3], due[i][2]) end
  if #due > most then return 0 end
  return next_at and next_at - clock() or -1
end, true)

-- holder, milliseconds: 1 where it has the lease from now on.
writes('lease', function(keys, args)
  begin(args)
  if call('SET', keys[1], args[3], 'NX', 'PX', args[4]) then return 1 end
  if call('GET', keys[1]) ~= args[3] then return 0 end
  call('PEXPIRE', keys[1], args[4])
  return 1
end, true)
