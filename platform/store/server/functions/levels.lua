-- Commands on every object that matches the first key components. KEYS[1] and the third
-- argument say where:
--   'one'        the object with this key
--   'partition'  the objects in the index with this key
--   'all'        those, and the ones of all other partitions: where all are on this server
-- The fourth is the text with which identities begin.

local PARTITIONS = 64

-- Takes up an object of an index.
local function adopt_in(in_prefix, in_part, in_shelf, identity, meta)
  adopt(in_prefix .. '{' .. in_part .. '}:' .. in_shelf .. ':' .. identity, meta)
  prefix, part, shelf, ident = in_prefix, in_part, in_shelf, identity
end

-- The bounds of an index that take in what begins with a text, behind a position if one is
-- given.
local function bounds(text, position)
  local low = position and '(' .. position or text == '' and '-' or '[' .. text
  return low, text == '' and '+' or '(' .. text .. '\255'
end

-- Calls visit(prefix, partition, shelf, identities) for each partition that has any.
local function for_each_partition(index, scope, text, visit)
  local in_prefix, in_part, in_shelf = match(index, '^(.-){(%d+)}!index:(.*)$')
  local low, high = bounds(text)
  local first, last = in_part, in_part
  if scope == 'all' then first, last = 0, PARTITIONS - 1 end
  for at = first, last do
    local found = call('ZRANGEBYLEX',
                       in_prefix .. '{' .. at .. '}!index:' .. in_shelf, low, high)
    if #found > 0 then visit(in_prefix, at, in_shelf, found) end
  end
end

-- The keys of the living objects that match. What is due of them has ended by then.
local function matching(keys, args)
  local living = {}
  local function take_up()
    if deadline or more == 'fields' then
      refresh()
      if not kind then return end
    end
    living[#living + 1] = key
  end
  if args[3] == 'one' then
    adopt(keys[1], call('GET', keys[1] .. '!meta'))
    if kind or is_plain() then take_up() end
    return living
  end
  for_each_partition(keys[1], args[3], args[4], function(in_prefix, in_part, in_shelf, found)
    for i = 1, #found do
      local name = in_prefix .. '{' .. in_part .. '}:' .. in_shelf .. ':' .. found[i]
      adopt(name, call('GET', name .. '!meta'))
      take_up()
    end
  end)
  return living
end

-- Calls act() with each of the objects at hand.
local function for_each(living, act)
  for i = 1, #living do
    adopt(living[i], call('GET', living[i] .. '!meta'))
    act()
  end
end

-- The identities of the objects, for the reply; `first` in front of them.
local function identities(living, first)
  local found = {first}
  for i = 1, #living do found[#found + 1] = match(living[i], '}:%d+:[^:]+:(.*)$') end
  return found
end

local function remove_all(living, code)
  for_each(living, function()
    tell_gone(code)
    remove()
  end)
end

-- lifetime in microseconds. The identities.
writes('pexpire', function(keys, args)
  begin(args)
  local living = matching(keys, args)
  local lifetime = tonumber(args[5])
  if lifetime <= 0 then
    remove_all(living, 0)
  else
    local at = deadline_after(lifetime)
    for_each(living, function() set_deadline(at) end)
  end
  return identities(living)
end, true)

writes('del_expire', function(keys, args)
  begin(args)
  local living = matching(keys, args)
  for_each(living, clear_deadline)
  return identities(living)
end, true)

writes('pdel', function(keys, args)
  begin(args)
  local living = matching(keys, args)
  remove_all(living, 29)
  return identities(living)
end, true)

-- lifetime, fields. Acts on hashes that have one of them: 1 where there are objects of other
-- kinds, else 0, and the identities.
writes('pexpire_fields', function(keys, args)
  begin(args)
  local lifetime = tonumber(args[5])
  local at = lifetime > 0 and deadline_after(lifetime)
  local others, hashes = 0, {}
  for_each(matching(keys, args), function()
    if kind ~= 'hash' then
      others = 1
      return
    end
    for i = 6, #args do
      if call('HEXISTS', key, args[i]) == 1 then
        hashes[#hashes + 1] = key
        return
      end
    end
  end)
  for_each(hashes, function()
    local present = {}
    for i = 6, #args do
      if call('HEXISTS', key, args[i]) == 1 then present[#present + 1] = args[i] end
    end
    if at then
      for i = 1, #present do set_field_deadline(present[i], at) end
      more = 'fields'
      save()
      return
    end
    for i = 1, #present do tell_field_expired(present[i]) end
    for i = 1, #present do
      if not drop_field(present[i]) then return end
    end
  end)
  return identities(hashes, others)
end, true)

