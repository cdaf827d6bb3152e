-- Single values.

local function tell_value(code, old, value)
  listen(true)
  if any_whole then tell(code, 'm', item('', value)) end
  if any_fields then
    local new = item('new', value)
    if old then new = item('old', old) .. new end
    tell_fields(code, 'v', new)
  end
end

-- For native reads: the value, what is known of the object, and whether it is alive. The
-- same from here, where the clock is the caller's.
reads('get', function(keys, args)
  begin(args)
  local found = call('MGET', keys[1], keys[1] .. '!meta')
  adopt(keys[1], found[2])
  if kind and has_ended() then return {false, false, false} end
  found[3] = ''
  return found
end)

-- value, flags: 'q' quiet, 'k' keep the lifetime.
writes('set', function(keys, args)
  open(keys, args)
  if kind and kind ~= 'value' then return WRONG_KIND[kind] end
  local value, flags = args[3], args[4]
  local old = call('SET', key, value, 'GET')
  if not old then enter() end
  if flags ~= 'k' and flags ~= 'qk' then clear_deadline() end
  if flags ~= 'q' and flags ~= 'qk' then tell_value(1, old, value) end
  return 1
end)

writes('setnx', function(keys, args)
  open(keys, args)
  if kind then return kind == 'value' and 0 or WRONG_KIND[kind] end
  if not call('SET', key, args[3], 'NX') then return 0 end
  enter()
  tell_value(1, false, args[3])
  return 1
end)

-- value, flags, owner.
writes('setow', function(keys, args)
  open(keys, args)
  local value, flags, owner = args[3], args[4], args[5]
  if kind and kind ~= 'value' then return WRONG_KIND[kind] end
  if more ~= '' and more ~= owner then return HELD end
  local old = call('SET', key, value, 'GET')
  if not old then enter() end
  if flags ~= 'k' and flags ~= 'qk' then clear_deadline() end
  kind = 'value'
  if more ~= owner then
    more = owner
    save()
  end
  if flags ~= 'q' and flags ~= 'qk' then tell_value(1, old, value) end
  return 1
end)

-- flags, owner.
writes('delow', function(keys, args)
  open(keys, args)
  if not kind and not is_plain() then return 0 end
  if kind ~= 'value' or more ~= args[4] then return NOT_OWNED end
  if args[3] ~= 'q' and args[3] ~= 'qk' then tell_gone(29) end
  remove()
  return 1
end, true)

writes('del', function(keys, args)
  open(keys, args)
  if not kind and not is_plain() then return 0 end
  tell_gone(29)
  remove()
  return 1
end, true)

-- Several objects. The clients that heard each, on any level. The events come complete but for their
-- beginning, and with the channels that they go to: to ask who listens would take longer than to
-- tell all of them.
writes('publish', function(keys, args)
  begin(args)
  local metas = {}
  for i = 1, #keys do metas[i] = keys[i] .. '!meta' end
  metas = call('MGET', unpack(metas))
  local head = event_head(24)
  local heard = {}
  local silent = {}  -- channels that nobody listens to
  local at = 3
  for i = 1, #keys do
    if metas[i] then open_next(keys[i]) end
    local message = head .. args[at]
    local last = at + 1 + args[at + 1]
    local clients = 0
    for place = at + 2, last do
      local channel = args[place]
      if not silent[channel] then
        local count = call('PUBLISH', channel, message)
        clients = clients + count
        if count == 0 and not spread then silent[channel] = true end
      end
    end
    heard[i] = clients
    at = last + 1
  end
  return #keys == 1 and heard[1] or heard
end, true)

