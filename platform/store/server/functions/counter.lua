-- The counter of a single value, in its serialised bytes. Integers of 64 bits are kept as
-- two halves of 32, which the server's numbers hold exactly.

local HALF = 4294967296

-- The varint at a position, and the position behind it; nil where there is none.
local function read_varint(bytes, at)
  local high, low = 0, 0
  for i = 0, 9 do
    local one = byte(bytes, at + i)
    if not one then return nil end
    local digit = one % 128
    if i < 4 then
      low = low + digit * 2 ^ (7 * i)
    elseif i == 4 then
      low = low + digit % 16 * 268435456
      high = floor(digit / 16)
    elseif i < 9 then
      high = high + digit * 2 ^ (7 * i - 32)
    else
      high = high + digit % 2 * 2147483648
    end
    if one < 128 then return high, low, at + i + 1 end
  end
end

local function read_fixed(bytes, at)
  local a, b, c, d = byte(bytes, at, at + 3)
  return a + b * 256 + c * 65536 + d * 16777216
end

-- The position behind what a tag of this type announces; nil where that is malformed.
local function skip(bytes, at, wire, number, depth)
  if wire == 0 then
    local _, _, behind = read_varint(bytes, at)
    return behind
  elseif wire == 1 or wire == 5 then
    local behind = at + (wire == 1 and 8 or 4)
    return behind <= #bytes + 1 and behind or nil
  elseif wire == 2 then
    local high, low, behind = read_varint(bytes, at)
    if not behind or high ~= 0 or low > #bytes + 1 - behind then return nil end
    return behind + low
  elseif wire == 3 and depth < 100 then
    while true do
      local high, low, behind = read_varint(bytes, at)
      if not behind then return nil end
      local inner, inner_number = low % 8, (high % 8 * HALF + low - low % 8) / 8
      if inner == 4 then return inner_number == number and behind or nil end
      at = skip(bytes, behind, inner, inner_number, depth + 1)
      if not at then return nil end
    end
  end
end

-- The number and type of the record at a position, where its content begins, and the
-- position behind it; nil at the end and where the bytes are malformed.
local function read_record(bytes, at)
  local high, low, content = read_varint(bytes, at)
  if not content or high ~= 0 or low < 8 then return nil end
  local number, wire = floor(low / 8), low % 8
  local behind = skip(bytes, content, wire, number, 0)
  if behind then return number, wire, content, behind end
end

local function varint(high, low)
  local bytes = ''
  while high > 0 or low > 127 do
    bytes = bytes .. char(low % 128 + 128)
    low = floor(low / 128) + high % 128 * 33554432
    high = floor(high / 128)
  end
  return bytes .. char(low)
end

local function fixed(half)
  return char(half % 256, floor(half / 256) % 256, floor(half / 65536) % 256,
              floor(half / 16777216))
end

-- Forms: 'p' plain, 'z' zigzag, '4' and '8' fixed bytes.
local function wire_of(form) return form == '4' and 5 or form == '8' and 1 or 0 end

-- The integer of a record, in two's complement.
local function decode_counter(bytes, content, form, is_signed, is_32_bit)
  local high, low
  if form == '4' then
    high, low = 0, read_fixed(bytes, content)
  elseif form == '8' then
    low, high = read_fixed(bytes, content), read_fixed(bytes, content + 4)
  else
    high, low = read_varint(bytes, content)
  end
  if form == 'z' then
    local negative = low % 2 == 1
    low = floor(low / 2) + high % 2 * 2147483648
    high = floor(high / 2)
    if negative then return HALF - 1 - high, HALF - 1 - low end
    return high, low
  end
  if is_32_bit then high = is_signed and low >= 2147483648 and HALF - 1 or 0 end
  return high, low
end

local function encode_counter(high, low, number, form)
  local tag = varint(0, number * 8 + wire_of(form))
  if form == '4' then return tag .. fixed(low) end
  if form == '8' then return tag .. fixed(low) .. fixed(high) end
  if form == 'z' then
    local negative = high >= 2147483648
    high = high % 2147483648 * 2 + floor(low / 2147483648)
    low = low % 2147483648 * 2
    if negative then high, low = HALF - 1 - high, HALF - 1 - low end
  end
  return tag .. varint(high, low)
end

local function is_largest(high, low, is_signed, is_32_bit)
  if not is_signed and high >= 2147483648 then return true end  -- beyond 63 bits
  if is_32_bit then return high == 0 and low == (is_signed and 2147483647 or HALF - 1) end
  return high == 2147483647 and low == HALF - 1
end

-- number, form, 's' signed or 'u', '4' or '8' bytes, the halves of what a message that does
-- not carry the counter counts as, and the message to store where there is none: already
-- counted, or '' where it cannot be. The two halves of what is counted.
writes('incr', function(keys, args)
  open(keys, args)
  if kind and kind ~= 'value' then return WRONG_KIND[kind] end
  local number, form = tonumber(args[3]), args[4]
  local is_signed, is_32_bit = args[5] == 's', args[6] == '4'
  local high, low = tonumber(args[7]), tonumber(args[8])
  local old = call('GET', key)

  -- What stays, in front of the counter and behind it: records are in order of numbers.
  local front, rest = {}, {}
  local at, wire = 1, wire_of(form)
  while old do
    local record, its_wire, content, behind = read_record(old, at)
    if not record then break end
    if record == number and its_wire == wire then
      high, low = decode_counter(old, content, form, is_signed, is_32_bit)
    elseif record > number or #rest > 0 then
      rest[#rest + 1] = sub(old, at, behind - 1)
    else
      front[#front + 1] = sub(old, at, behind - 1)
    end
    at = behind
  end

  if is_largest(high, low, is_signed, is_32_bit) then return COUNTED_OUT end
  low = low + 1
  if low == HALF then high, low = (high + 1) % HALF, 0 end
  local value = args[9]
  if old then
    value = concat(front) .. encode_counter(high, low, number, form) .. concat(rest)
  else
    enter()
  end
  call('SET', key, value)
  tell_value(3, old, value)
  return {high, low}
end)

