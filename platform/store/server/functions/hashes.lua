-- Hashes. Under the object's key a hash of field numbers and the records of the fields.

-- Writes fields; those without records are deleted. Nothing but fields that are not there
-- to be deleted: no change, and no event. How many were written or deleted.
local function write_fields(code, args, first, whole)
  local written, gone, told, watched = {}, {}, {}, {}
  for i = first, #args, 2 do
    if args[i + 1] == '' then
      if kind and call('HDEL', key, args[i]) == 1 then
        gone[#gone + 1] = args[i]
        watched[#watched + 1] = item(args[i], '')
      end
    else
      written[#written + 1] = args[i]
      written[#written + 1] = args[i + 1]
      watched[#watched + 1] = item(args[i], args[i + 1])
    end
    told[#told + 1] = item(args[i], args[i + 1])
  end
  local changed = #written / 2 + #gone
  if changed == 0 then return 0 end
  if #written > 0 then call_in_pieces('HSET', written, 1, #written) end
  if not kind then enter('hash') end

  listen(true)
  if any_whole then tell(code, 'h', concat(told)) end
  if any_fields then tell_fields(code, 'h', concat(watched)) end

  if #written == 0 and not settle() then return changed end
  if more == 'fields' then
    for i = 1, #written, 2 do clear_field_deadline(written[i]) end
    for i = 1, #gone do clear_field_deadline(gone[i]) end
    note_field_deadlines()
  end
  if whole then clear_deadline() end
  return changed
end

-- 'all' where the object is written as a whole, else ''; then pairs of field and records.
writes('hmset', function(keys, args)
  local wrong = open_as('hash', keys, args)
  return wrong or write_fields(4, args, 4, args[3] == 'all')
end)

-- Pairs of field and records.
writes('hmsetnx', function(keys, args)
  local wrong = open_as('hash', keys, args)
  if wrong then return wrong end
  if kind then
    for i = 3, #args, 2 do
      if call('HEXISTS', key, args[i]) == 1 then return 0 end
    end
  end
  return write_fields(6, args, 3) > 0 and 1 or 0
end)

writes('hmupdate', function(keys, args)
  local wrong = open_as('hash', keys, args)
  if wrong then return wrong end
  return kind and write_fields(9, args, 3) or 0
end)

-- The fields that have ended though they are still there, as a set.
local function ended_fields()
  local ended = {}
  local due = call('ZRANGEBYSCORE', key .. '!fields', '-inf', clock())
  for i = 1, #due do ended[due[i]] = true end
  return ended
end

-- All fields of the hash at hand: pairs of field and records.
local function living_fields()
  local all = call('HGETALL', key)
  if more ~= 'fields' then return all end
  local ended, living = ended_fields(), {}
  for i = 1, #all, 2 do
    if not ended[all[i]] then
      living[#living + 1] = all[i]
      living[#living + 1] = all[i + 1]
    end
  end
  return living
end

-- Pairs of field and records, or nil where there is no hash. Without arguments all fields,
-- else those named that are there.
reads('hmget', function(keys, args)
  local wrong = look_as('hash', keys, args)
  if wrong then return wrong end
  if not kind then return false end
  if not args[3] then return living_fields() end
  local ended = more == 'fields' and ended_fields() or {}
  local found = {}
  for i = 3, #args do
    local records = not ended[args[i]] and call('HGET', key, args[i])
    if records then
      found[#found + 1] = args[i]
      found[#found + 1] = records
    end
  end
  return found
end)

