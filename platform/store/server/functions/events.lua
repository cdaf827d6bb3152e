-- Events, and what ends by itself. Each event is published on the channels of those who
-- may want it: one for each level of the object, the widest first.

local channels = {}  -- whole objects at 1 to levels, their fields behind them
local hears = {}     -- for each channel, whether anybody does
local any_whole, any_fields

-- Asks who listens to the object; with_fields: to its fields too.
local function listen(with_fields)
  if levels then return end
  names()
  local whole, fields = prefix .. 'o:' .. shelf .. ':', prefix .. 'f:' .. shelf .. ':'
  local count, at = 0, 0
  repeat
    count = count + 1
    channels[count] = whole .. sub(ident, 1, at)
    at = find(ident, '/', at + 1, true)
  until not at
  levels = count
  if with_fields then
    at = 0
    repeat
      count = count + 1
      channels[count] = fields .. sub(ident, 1, at)
      at = find(ident, '/', at + 1, true)
    until not at
  end
  if spread then
    for i = 1, count do hears[i] = true end
    any_whole, any_fields = true, with_fields
    return
  end
  local clients = call('PUBSUB', 'NUMSUB', unpack(channels, 1, count))
  any_whole, any_fields = false, false
  for i = 1, count do
    local heard = clients[2 * i] > 0
    hears[i] = heard
    if heard then
      if i <= levels then any_whole = true else any_fields = true end
    end
  end
end

-- One part of an event: a label, the size of its bytes, and they.
local function item(label, bytes) return label .. ' ' .. #bytes .. '\n' .. bytes end

-- How an event begins, up to its time.
local function event_head(code) return '1 ' .. code .. ' ' .. clock_text() .. ' ' end

local function publish(first, last, code, tag, form, body)
  local message = event_head(code) .. tag .. ' ' .. form .. ' ' .. ident .. '\n' .. body
  local clients = 0
  for i = first, last do
    if hears[i] then clients = clients + call('PUBLISH', channels[i], message) end
  end
  return clients
end

-- To those who watch the whole object. Forms: 'n' nothing, 'm' a message, 'h' fields of a
-- hash, 'l' elements (labelled with how many equal ones, if more than one), 'z' members
-- labelled with their scores.
local function tell(code, form, body, tag)
  return publish(1, levels, code, tag or 0, form, body)
end

-- To those who watch fields. Forms: 'v' a single value that was 'old' and is 'new', 'h'
-- fields of a hash, without bytes where they are gone.
local function tell_fields(code, form, body)
  publish(levels + 1, 2 * levels, code, 0, form, body)
end

-- An element that came or went, or several equal ones.
local function tell_element(code, value, count)
  listen(false)
  if any_whole then tell(code, 'l', item(count or '', value)) end
end

-- That the object is gone, it and each field that it carries: 29 deleted, 0 expired.
local function tell_gone(code)
  listen(true)
  if any_whole then tell(code, 'n', '') end
  if not any_fields then return end
  if not kind or kind == 'value' then
    local old = call('GET', key)
    if old then tell_fields(code, 'v', item('old', old)) end
  elseif kind == 'hash' then
    local parts = call('HKEYS', key)
    for i = 1, #parts do parts[i] = item(parts[i], '') end
    tell_fields(code, 'h', concat(parts))
  end
end

-- A field that is gone by its lifetime: those who watch it, and with its number those who
-- watch the whole object.
local function tell_field_expired(tag)
  listen(true)
  if any_fields then tell_fields(0, 'h', item(tag, '')) end
  if any_whole then tell(0, 'n', '', tag) end
end

-- Takes a field from a hash, which goes with its last one. Says whether it is still there.
local function drop_field(tag)
  if call('HDEL', key, tag) == 0 then return true end
  if more == 'fields' then clear_field_deadline(tag) end
  if not settle() then return false end
  if more == 'fields' then note_field_deadlines() end
  return true
end

local function by_deadline(one, other)
  if one[1] ~= other[1] then return one[1] < other[1] end
  return one[2] < other[2]
end

-- Lets end what is due of the object. What ended first is told first, fields before their
-- object: as when it is swept.
local function refresh()
  if more == 'fields' then
    local bound = clock()
    if deadline and deadline < bound then bound = deadline end
    local found = call('ZRANGEBYSCORE', key .. '!fields', '-inf', bound, 'WITHSCORES')
    local due = {}
    for i = 1, #found, 2 do due[#due + 1] = {tonumber(found[i + 1]), tonumber(found[i])} end
    sort(due, by_deadline)
    for i = 1, #due do
      tell_field_expired(due[i][2])
      if not drop_field(due[i][2]) then return end
    end
  end
  if deadline and deadline <= clock() then
    tell_gone(0)
    remove()
  end
end

-- Takes up an object that a writing command is about.
local function open_next(name)
  adopt(name, call('GET', name .. '!meta'))
  if deadline or more == 'fields' then refresh() end
end

local function open(keys, args)
  begin(args)
  open_next(keys[1])
end

local function all_fields_due()
  return call('ZCOUNT', key .. '!fields', '-inf', clock()) == call('HLEN', key)
end

-- Whether the object at hand, which has a meta key, has ended though it is still there.
local function has_ended()
  if deadline and deadline <= clock() then return true end
  return more == 'fields' and all_fields_due()
end

-- The same for a command on objects of one kind: an error where it is another.
local function open_as(wanted, keys, args)
  open(keys, args)
  return other_than(wanted)
end

-- Takes up the object that a reading command is about. What has ended is not there.
local function look_as(wanted, keys, args)
  begin(args)
  local name = keys[1]
  adopt(name, call('GET', name .. '!meta'))
  if (deadline or more == 'fields') and has_ended() then
    kind = nil
    return nil
  end
  return other_than(wanted)
end

